#!/bin/bash
# The session that `make run` shows a newcomer: a container's whole life on
# the simulated device, driven over the "pelk" socket exactly as the
# platform's system_server drives it. Each line sent and each reply is
# printed with one sentence of why; then a shell on the device, with pelkd
# still running and pelkctl, zygote-sim and logcat on the PATH.

# The daemon's log goes to the device log (see "logcat"), not the terminal.
export ANDROID_LOG_TAGS='*:s'

say() { printf '\n== %s\n' "$*"; }
# Sends one command line with pelkctl (options first) and shows both sides;
# a base64 key is shown shortened.
send() {
    local opts=()
    while [[ $1 == --* ]]; do opts+=("$1" "$2"); shift 2; done
    local shown="$*"
    [[ -n $KEY_CE ]] && shown=${shown//$KEY_CE/<CE key>}
    [[ -n $KEY_DE ]] && shown=${shown//$KEY_DE/<DE key>}
    [[ -n $KEY_WIDE ]] && shown=${shown//$KEY_WIDE/<device-wide key>}
    [[ -n $KEY_WRONG ]] && shown=${shown//$KEY_WRONG/<another key>}
    printf '   sent: %s%s\n' "$shown" "${opts[*]:+   (pelkctl ${opts[*]})}"
    pelkctl "${opts[@]}" "$@" | sed 's/^/   back: /'
}
log_lines() { logcat -d -s $1 | grep -E "$2" | tail -n "${3:-20}" | sed "s/^/   log:  /"; }  # $1: logcat filters, split on blanks
mounted() { grep -E " ($1)[ /]" /proc/mounts | awk '{print "   mounted: " $2}'; }
start_daemon() {
    pelkd &
    PELKD_PID=$!
    for _ in $(seq 100); do [[ -S /dev/socket/pelk && -S /dev/socket/ppm ]] && break; sleep 0.05; done
}
# 32 bytes as hex (for the key store) and as base64 (for the "mount" line).
hex_key() { printf '%s' "$1" | sha256sum | cut -c1-64; }
b64_of_hex() { printf '%s' "$1" | xxd -r -p | base64 -w0; }

say "simulated device booted: $(uname -n), this shell is pid $$ inside the device"
pelk-profile set fbe 0 >/dev/null          # the older scheme: container storage is mounted by the daemon
pelk-profile set ode 1 >/dev/null          # on-device encryption is running: mounts are the daemon's job
pelk-profile set user.10 zanth,legacy >/dev/null
pelk-profile set time.scale 0.01 >/dev/null  # the daemon's own waits run 100x faster
echo "   device profile: $(pelk-profile show | tr '\n' ' ')"

say "starting the daemon: pelkd serves /dev/socket/pelk (container storage) and /dev/socket/ppm (private mode)"
start_daemon
echo "   replies are \"<code> <sequence number> <text>\": 200 done, 281 refused or failed, 501 wrong words"

say "container 10's keys, provisioned in the trusted key store as the platform does at creation"
HEX_CE=$(hex_key ce-key-of-10); HEX_DE=$(hex_key de-key-of-10); HEX_WIDE=$(hex_key secure-fs-key)
pelkprov key 10 1 4 "$HEX_CE" >/dev/null && pelkprov key 10 2 4 "$HEX_DE" >/dev/null
KEY_CE=$(b64_of_hex "$HEX_CE"); KEY_DE=$(b64_of_hex "$HEX_DE"); KEY_WIDE=$(b64_of_hex "$HEX_WIDE")
KEY_WRONG=$(b64_of_hex "$(hex_key not-the-key)")
echo "   key store files: $(ls /data/misc/fips_quarn_keystore/user_0/ | wc -l) (names and contents wrapped)"

say "create_partition <user> <type>: the backing directories of CE (1), DE (3) and the device-wide store (2)"
send create_partition 10 1
send create_partition 10 3
send create_partition 0 2
ls -ld /data/zanth/data/10 /data/zanth/data_de/10 /data/zanth/secure_fs/enc_user | sed 's/^/   dir:  /'

say "is_mounted 10: a legacy container whose storage is down answers failed"
send is_mounted 10

say "an app of user 0 is already running (uid 10123, a mount namespace of its own, /storage its default view)"
zygote-sim --user 0 --app 123 --name com.example.viewer --detach -- sleep 600 >/tmp/viewer.pid
VIEWER=$(cat /tmp/viewer.pid)
echo "   viewer: pid $VIEWER; /storage/emulated/10 in its namespace: $(nsenter -t "$VIEWER" -m ls -d /storage/emulated/10 2>/dev/null || echo none)"

say "mount <user> <base64 key> <flag> <type>: DE (3) first, then CE (1), then the device-wide store (2)"
send mount 10 "$KEY_DE" 1 3
send mount 10 "$KEY_CE" 1 1
send mount 0 "$KEY_WIDE" 1 2
mounted '/data/user/10|/data/user_de/10|/data/system_ce/10|/data/misc_ce/10|/mnt/zanth/[a-z]+/emulated/10|/data/enc_user'
echo "   the keys never reach the log, only the leading words:"
log_lines pelkd:v 'CMD > mount' 3
send is_mounted 10

say "the CE mount's worker gave the running app the container's emulated storage in its own namespace"
sleep 0.5
nsenter -t "$VIEWER" -m grep ' /storage/emulated/10 ' /proc/self/mountinfo | awk '{print "   in the app: " $4 " on " $5}'
nsenter -t "$VIEWER" -m setpriv --reuid=10123 --regid=10123 --groups=1015,1023,9997 -- \
    sh -c 'echo "hello from the personal side" > /storage/emulated/10/note.txt && ls -l /storage/emulated/10/note.txt' |
    sed 's/^/   app:  /'
echo "   the same bytes in the container's sdcard area: $(cat /data/zanth/sdcard/10/note.txt 2>/dev/null)"

say "an app of the container keeps a file open in its CE data area; unmount CE and DE while it holds it"
# This host's kernel detaches even a busy mount at once, so the daemon would
# never see the failed tries it answers with the process killer. For this
# step pelkd runs under busy-kernel, which refuses its unmount of
# /data/user/10 while any process holds a file there.
kill "$PELKD_PID"; wait "$PELKD_PID" 2>/dev/null
busy-kernel /data/user/10 -- pelkd &
PELKD_PID=$!
for _ in $(seq 100); do [[ -S /dev/socket/pelk ]] && break; sleep 0.05; done
echo "   (pelkd restarted under busy-kernel: unmounting /data/user/10 fails while a file there is open)"
echo "kept across mounts" > /data/user/10/diary.txt
zygote-sim --user 10 --app 77 --shared-ns --name com.example.diary --detach -- sh -c 'exec 3</data/user/10/diary.txt; exec sleep 600' >/tmp/holder.pid
HOLDER=$(cat /tmp/holder.pid)
echo "   holder: pid $HOLDER ($(tr '\0' ' ' </proc/$HOLDER/cmdline)) has /data/user/10/diary.txt open"
send unmount 10 1
echo "   the daemon's tries, and the process killer between them (its own log, tag ProcessKiller):"
log_lines 'pelkd:v ProcessKiller:v' 'Failed to unmount /data/user/10 |has open file|Sending|/data/user/10 sucessfully' 12
[[ -d /proc/$HOLDER ]] && echo "   the holder is still there" || echo "   the holder is gone; the data stays in the lower directory"
send unmount 10 3
mounted '/data/user/10|/data/user_de/10' || true
echo "   (nothing of container 10 is mounted any more)"
kill "$PELKD_PID"; wait "$PELKD_PID" 2>/dev/null
start_daemon

say "another key is refused and leaves nothing mounted; the right key brings the data back"
send mount 10 "$KEY_WRONG" 1 1
mounted '/data/user/10' || echo "   nothing mounted at /data/user/10"
send mount 10 "$KEY_DE" 1 3
send mount 10 "$KEY_CE" 1 1
echo "   /data/user/10/diary.txt: $(cat /data/user/10/diary.txt)"

say "a reboot: the daemon stops, every mount goes, and the booting platform asks for a pre-mount"
kill "$PELKD_PID"; wait "$PELKD_PID" 2>/dev/null
grep -E ' /(data/(user|user_de|system_ce|system_de|misc_ce|misc_de|zanth/sdcard)/|data/enc_user |data/zanth/secure_fs/enc_media |mnt/zanth/|mnt/runtime/[a-z]+/emulated/|mnt/shell/enc)' /proc/mounts |
    awk '{print $2}' | sort -r | while read -r m; do umount -l "$m"; done
echo "   mounts of container 10 left: $(grep -c '/10 ' /proc/mounts)"
start_daemon
send premount
mounted '/data/user/10|/data/user_de/10|/data/system_ce/10|/data/misc_ce/10'
echo "   /data/user/10/diary.txt: $(cat /data/user/10/diary.txt 2>/dev/null)"
echo "   status files:"
for f in /data/log/pelk_success /data/log/pelk_error; do
    [[ -f $f ]] && { echo "   $f:"; sed 's/^/     /' "$f"; }
done
send is_mounted 10

# The kernel side asks about files of the mounted storage.
source "$(dirname "$0")/demo_kernel.sh"
demo_kernel
source "$(dirname "$0")/demo_sensitive.sh"
demo_sensitive

say "remove_partition: the CE storage is taken down and removed with the password file"
send unmount 10 1
send remove_partition 10 1
echo "   (without FBE the sdcard's source and mount paths are one folder; the second clear finds it gone: \"failed\", as the platform knows it)"
ls -d /data/zanth/data/10 2>/dev/null || echo "   /data/zanth/data/10 is gone"

# The other sockets and sides of the daemon, one part each.
source "$(dirname "$0")/demo_private.sh"
demo_private
source "$(dirname "$0")/demo_migration.sh"
demo_migration

say "a shell on the device: pelkd runs as pid $PELKD_PID. Try"
cat <<'EOF'
     pelkctl is_mounted 10                      one command line
     pelkctl                                    then type lines, one per command
     zygote-sim --user 0 -- ls /storage/emulated   an app's view of the storage
     logcat -d -s pelkd                         the daemon's log
     pelk-profile show                          the device profile
   'exit' leaves the device; the next `make run` boots a fresh one.
EOF
if [[ -t 0 ]]; then exec /bin/bash --norc -i; fi
