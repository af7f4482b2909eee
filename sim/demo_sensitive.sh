#!/bin/bash
# The kernel-event part of `make run`, sourced by sim/demo.sh: what the
# daemon does when the encryption filesystem's kernel module asks about a
# file. Call demo_sensitive once container 10's CE storage is mounted and
# pelkd runs; it uses demo.sh's say and log_lines.
#
# The kernel names a file by the partition id of its eCryptfs mount and its
# inode; kernel_request and inode_of come from demo_kernel.sh.

# The partition id the device's kernel gives the eCryptfs mount at POINT (the
# newest registration of that mount point).
partition_of() {
    awk -F'\t' -v point="$1" '$3 == point { id = $6 } END { print id }' /sim/kernel/ecryptfs
}

# Starts `pelkctl --follow` in the background, writing to $FOLLOW_OUT.
start_follow() {
    FOLLOW_OUT=$(mktemp)
    pelkctl --follow >"$FOLLOW_OUT" 2>/dev/null &
    FOLLOW_PID=$!
    sleep 0.2
}
stop_follow() {
    sleep 0.2
    kill "$FOLLOW_PID" 2>/dev/null; wait "$FOLLOW_PID" 2>/dev/null
    sed 's/^/   broadcast: /' "$FOLLOW_OUT"
    rm -f "$FOLLOW_OUT"
}

demo_sensitive() {
    local area=/data/user/10 part
    part=$(partition_of "$area")
    if [[ -z $part ]]; then
        echo "   ($area is not an eCryptfs mount: nothing for the kernel to ask about)"
        return
    fi

    say "DLP: a file of container 10 gets an expiry when it is initialised, and is deleted when accessed after it"
    pelk-profile set dlp.expiry_after.10 60 >/dev/null   # container 10's DLP files live one minute
    mkdir -p "$area/dlp"
    echo "quarterly figures" >"$area/dlp/report.txt"
    local report=$area/dlp/report.txt ino
    ino=$(inode_of "$report")
    echo "   $report is inode $ino on the mount with partition_id=$part"
    echo "   the kernel: pid $$ initialised it as a whitelisted DLP file (opcode 23)"
    kernel_request 23 10 "$part" "$ino" $$
    pelk-tags "$report" | sed 's/^/   tags: /'

    echo "   a minute later an app of the container opens it; the kernel sees the expiry passed (opcode 25)"
    # The app keeps the output open, so its pid is read from a file, not a pipe.
    local app pidfile
    pidfile=$(mktemp)
    zygote-sim --user 10 --app 78 --name com.example.reader --detach -- sh -c "exec 3<$report; sleep 600" >"$pidfile"
    app=$(cat "$pidfile"); rm -f "$pidfile"
    start_follow
    kernel_request 25 10 "$part" "$ino" "$app"
    stop_follow
    log_lines pelkd:v 'accessed expired file|AUDIT:' 2
    [[ -e $report ]] && echo "   $report is still there" || echo "   $report is gone"
    kill "$app" 2>/dev/null

    say "sensitive data: the kernel asks to mark a tree sensitive for engine 10 (opcode 10), and a subtree protected (11)"
    local tree=$area/projects
    mkdir -p "$tree/design/drafts" "$tree/budget"
    echo plan >"$tree/design/plan.txt"; echo v1 >"$tree/design/drafts/v1.txt"; echo 42 >"$tree/budget/total.txt"
    ln -s design/plan.txt "$tree/latest"
    mkfifo "$tree/queue"
    kernel_request 10 10 "$part" "$(inode_of "$tree/design")" $$
    kernel_request 11 10 "$part" "$(inode_of "$tree/budget")" $$
    echo "   the marks (files and directories only; the link and the pipe are left alone):"
    pelk-tags "$tree" | sed 's/^/   tags: /'

    say "a request for an inode the mount does not hold is answered -2 and marks nothing"
    kernel_request 10 10 "$part" 999999999 $$
}
