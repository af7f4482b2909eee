#!/bin/bash
# The session that `make run` shows a newcomer: the daemon is started, a
# stand-in for system_server (pelkctl) sends it a few command lines, and each
# line sent and each reply that came back is printed. Then a shell on the
# device, with pelkd still running and pelkctl on the PATH.

# The daemon's log goes to the device log (see "logcat"), not the terminal.
export ANDROID_LOG_TAGS='*:s'

say() { printf '\n== %s\n' "$*"; }
# Sends one command line with pelkctl (options first) and shows both sides.
send() {
    local opts=()
    while [[ $1 == --* ]]; do opts+=("$1" "$2"); shift 2; done
    printf '   sent: %s%s\n' "$*" "${opts[*]:+   (pelkctl ${opts[*]})}"
    pelkctl "${opts[@]}" "$@" | sed 's/^/   back: /'
}
daemon_log() { logcat -d -s 'pelkd:v' | grep -v 'Partition object\|^.\{33\}pelkd   : *$' | tail -n "$1" | sed 's/^/   log:  /'; }

say "simulated device booted: $(uname -n), this shell is pid $$ inside the device"
echo "   device profile (pelk-profile show):"
pelk-profile show | sed 's/^/     /'

say "starting the daemon: pelkd serves /dev/socket/pelk (container storage) and /dev/socket/ppm (private mode)"
pelkd &
PELKD_PID=$!
for _ in $(seq 100); do [[ -S /dev/socket/pelk && -S /dev/socket/ppm ]] && break; sleep 0.05; done
ls -l /dev/socket | sed 's/^/   /'

say "replies are \"<code> <sequence number> <text>\": 200 done, 201 still running, 281 refused or failed, 501 wrong words"

say "is container 10's storage mounted? (this device uses file-based encryption, so the answer is always yes)"
send is_mounted 10

say "a legacy container on a device without file-based encryption: its storage can be down"
pelk-profile set fbe 0
pelk-profile set user.10 zanth,legacy
send is_mounted 10
echo "   (mounting tmpfs on its three DE areas)"
for d in /data/user_de/10 /data/misc_de/10 /data/system_de/10; do mkdir -p "$d" && mount -t tmpfs tmpfs "$d"; done
send is_mounted 10

say "wrong number of words: both counts are quoted"
send is_mounted

say "file information: modification time and size; a missing file always reads as error number 1"
send get_file_info /data/local/tmp 10
send get_file_info /data/local/tmp/missing 10

say "chambers are no longer made on request; other secure_fs sub-commands are acknowledged"
send secure_fs create_chamber 0 10
send secure_fs set_policy 0 10

say "commands whose storage work is not built into this daemon yet answer failed"
send mount 10 c2VjcmV0IGtleSB0aGF0IG5ldmVyIHJlYWNoZXMgdGhlIGxvZw== 1 1
echo "   the key never reaches the log, only the leading words:"
daemon_log 1

say "container 10's keys and password, provisioned as the platform would (pelkprov)"
pelkprov key 10 1 4 random >/dev/null && pelkprov password 10 first-secret
echo "   key store files: $(ls /data/misc/fips_quarn_keystore/user_0/ | wc -l) (names are encrypted)"
echo "   password key file: $(ls /data/system/users/ | grep zanth_edk)"
send verify_password 10 first-secret
send change_password 10 first-secret second-secret
send verify_password 10 first-secret
echo "   the passwords never reach the log, only the leading words:"
logcat -d -s pelkd:v | grep -E 'CMD > (verify|change)_password' | sed 's/^/   log:  /'

say "only the real system_server may talk: a process named \"system_server2\" is refused"
send --caller suffix is_mounted 10
daemon_log 1
say "and so is a system_server whose zygote parent does not run as root"
send --caller zygote-not-root is_mounted 10
daemon_log 2

say "the private-mode socket serves any caller (here pelkctl as itself)"
send --socket ppm --caller self unmount_privatemode 0 /mnt/x

say "the kernel's key-event log: a line written to /dev/dek_log is copied with a readable time"
echo "1447600000.123|demo key event" > /dev/dek_log
for _ in $(seq 40); do [[ -s /data/log/mirel_log.txt ]] && break; sleep 0.05; done
sed 's/^/   mirel_log.txt: /' /data/log/mirel_log.txt 2>/dev/null

say "a shell on the device: pelkd runs as pid $PELKD_PID. Try"
cat <<'EOF'
     pelkctl is_mounted 10                      one command line
     pelkctl                                    then type lines, one per command
     pelkctl --caller full-path is_mounted 10   a refused caller (pelkctl --help lists them)
     logcat -d -s pelkd                         the daemon's log
     pelk-profile show                          the device profile
   'exit' leaves the device; everything made in it but /data goes with it.
EOF
exec /bin/bash --norc -i
