#!/usr/bin/env bash
# Runs on the host, outside any sandbox: a mount and a process made inside
# the simulated device must not show on the host.
set -euo pipefail
device="$1"
marker="pelk-isolation-$$"
"$device" -- /bin/sh -c "mkdir -p /data/$marker && mount -t tmpfs $marker /data/$marker && sleep 30 & sleep 0.5; grep -q $marker /proc/self/mountinfo" &
inside=$!
sleep 1
status=0
if grep -q "$marker" /proc/self/mountinfo; then echo "FAIL: the sandbox's mount shows on the host"; status=1; fi
if [ -e "/data/$marker" ]; then echo "FAIL: the sandbox's folder shows on the host"; status=1; fi
wait "$inside" || { echo "FAIL: the mount did not work inside the device"; status=1; }
if pgrep -f "sleep 30" >/dev/null && grep -qs "$marker" /proc/*/mountinfo; then echo "FAIL: a sandbox process outlived the device"; status=1; fi
[ "$status" -eq 0 ] && echo "1 passed, 0 failed"
exit "$status"
