#!/bin/bash
# The session that `make run` shows a newcomer, then a shell on the device.
echo "== simulated device booted: $(uname -n), pid $$ inside the device"
echo "== device profile (pelk-profile show):"
pelk-profile show
echo "== the daemon and its client arrive with the command spine; here is a shell."
exec /bin/bash --norc -i
