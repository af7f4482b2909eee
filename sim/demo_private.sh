#!/bin/bash
# The private-mode part of the `make run` session, sourced by sim/demo.sh:
# the device owner's password-protected store, driven over the "ppm" socket
# with demo.sh's helpers (say, send, log_lines, mounted) and pelkd running.

# The store, its three views and the media link, as a `mounted` pattern.
PRIVATE_MOUNTS='/data/privatemode|/mnt/runtime/[a-z]+/Private|/mnt/media_rw/Private'

private_mounts_left() { grep -cE " ($PRIVATE_MOUNTS) " /proc/mounts; }

demo_private() {
    local key=/data/system/users/privatemode_edk_0
    say "private mode: the owner's password-protected store, served on /dev/socket/ppm to any caller"
    echo "   key file $key: $([[ -e $key ]] && echo present || echo 'not there yet')"

    say "mount_privatemode <user> <path> <path> <password>: the first use makes the key file with this password"
    send --socket ppm mount_privatemode 0 /storage/Private /mnt/media_rw/Private owners-secret
    ls -l "$key" | sed 's/^/   key:  /'
    echo "   the store, its default, read and write views, and the media link (a bind of the write view):"
    mounted "$PRIVATE_MOUNTS"
    echo "   (this shell reads the host kernel's table; the device's programs see the store as ecryptfs, partition_id=3)"
    echo "a private photo" >/mnt/media_rw/Private/photo.txt
    echo "   written through the media link, kept in the store: $(cat /data/privatemode/photo.txt)"
    echo "   the password never reaches the log, only the leading words:"
    log_lines pelkd:v 'CMD > mount_privatemode' 1

    say "mounted already: a mount with any password is answered without a check"
    send --socket ppm mount_privatemode 0 /storage/Private /mnt/media_rw/Private a-guess

    say "unmount_privatemode <user> <path>: the media link first, then the views and the store"
    send --socket ppm unmount_privatemode 0 /storage/Private
    echo "   private-mode mounts left: $(private_mounts_left); media link directory: $([[ -e /mnt/media_rw/Private ]] && echo kept || echo removed)"

    say "another password is refused: the key file does not open with it, and nothing is mounted"
    send --socket ppm mount_privatemode 0 /storage/Private /mnt/media_rw/Private a-guess
    log_lines pelkd:v 'verify failed|Mount ERROR' 2
    echo "   private-mode mounts left: $(private_mounts_left)"

    say "privatemode_change_password <user> <old> <new>: the key is wrapped anew, the store's data stays (asked here by a caller that is not system_server)"
    send --socket ppm --caller self privatemode_change_password 0 owners-secret new-secret
    send --socket ppm mount_privatemode 0 /storage/Private /mnt/media_rw/Private owners-secret
    send --socket ppm mount_privatemode 0 /storage/Private /mnt/media_rw/Private new-secret
    echo "   /mnt/media_rw/Private/photo.txt: $(cat /mnt/media_rw/Private/photo.txt)"

    say "unmount_privatemode again: private mode is closed"
    send --socket ppm unmount_privatemode 0 /storage/Private
    echo "   private-mode mounts left: $(private_mounts_left)"
}
