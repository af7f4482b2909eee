# The kernel side of the session (sourced by demo.sh once container 10's
# storage is mounted; uses its say, log_lines and pelkd). The eCryptfs
# module, played by pelk-kernel, asks the daemon about a real file: a
# process opens it, the module sends the DLP "file opened" request (21) for
# that file's inode with the opener's pid, the daemon finds the path,
# answers, writes the audit line and broadcasts it with code 610 to every
# client of "pelk" - here a pelkctl that stays connected and prints what
# arrives. Then an expired file is accessed (25) and the daemon deletes it.

# kernel_request [--id N] OPCODE USER PARTITION INODE PID: pelk-kernel plays
# the module, sends the request and prints the daemon's 8-byte reply; the
# one place that knows its command line.
kernel_request() {
    pelk-kernel request "$@" | sed 's/^/   kernel: /'
}

inode_of() { stat -c %i "$1"; }

demo_kernel() {
    say "the kernel side: the eCryptfs module asks pelkd about files by partition id and inode (netlink unit 28)"
    echo "   $(pelk-kernel status)"
    echo "   the eCryptfs mounts as the device's kernel lists them:"
    pelk-kernel mounts | sed 's/^/   ecryptfs: /'
    local part
    part=$(pelk-kernel mounts | awk '$1 == "/data/user/10" { sub("partition_id=", "", $2); print $2 }')
    pelk-profile set dlp.audit_state 2 >/dev/null   # the DLP audit of opened files is on

    local follow_out=/tmp/demo_kernel.follow
    pelkctl --follow >"$follow_out" 2>&1 &
    local follower=$!
    sleep 0.3   # the follower is connected before anything is broadcast

    echo "quarterly figures" >/data/user/10/report.txt
    (exec 3</data/user/10/report.txt; exec sleep 600) &
    local opener=$!
    local inode
    inode=$(inode_of /data/user/10/report.txt)
    echo "   pid $opener opens /data/user/10/report.txt (inode $inode, partition_id $part)"
    echo "   the module sends: request 21 (DLP file opened), user 10, partition $part, inode $inode, pid $opener"
    kernel_request --id 1 21 10 "$part" "$inode" "$opener"
    log_lines pelkd:v "find_path_by_inode found|DLP_LIBPELK : AUDIT|result : req_id\[1\]" 3

    echo "   an expired file is accessed (25): the daemon deletes it and always broadcasts it"
    echo "old draft" >/data/user/10/expired.txt
    kernel_request --id 2 25 10 "$part" "$(inode_of /data/user/10/expired.txt)" "$opener"
    [[ -e /data/user/10/expired.txt ]] && echo "   expired.txt is still there" || echo "   expired.txt is gone"

    echo "   a file the daemon cannot find is answered with -2 (ENOENT):"
    kernel_request --id 3 22 10 "$part" 1 "$opener"

    sleep 0.3
    kill "$follower" "$opener" 2>/dev/null
    wait "$follower" "$opener" 2>/dev/null
    echo "   what the following pelkctl printed:"
    sed 's/^/   pelkctl --follow: /' "$follow_out"
}
