#!/usr/bin/env python3
"""Writes the seed corpora under fuzz/corpus/: the inputs the tests use
(command lines of tests/e2e and tests/platform_sysutils, engine files of
tests/config, key blobs as the store makes them for tests/keystore, key texts
of the "mount" lines, kernel requests of tests/fs_handler). Run it from
anywhere; it rewrites every corpus file it owns."""
import base64
import os
import struct

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus")


def write(harness, name, data):
    folder = os.path.join(ROOT, harness)
    os.makedirs(folder, exist_ok=True)
    if isinstance(data, str):
        data = data.encode()
    with open(os.path.join(folder, name), "wb") as f:
        f.write(data)


def numbered(lines):
    return "".join("%d %s\n" % (i + 1, line) for i, line in enumerate(lines))


KEY = base64.b64encode(bytes(range(32))).decode()
AREA = "/data/media/10"

# One file per registered command, a few lines each, as the tests send them.
PELK = {
    "mount": ["create_partition 10 1", "create_partition 10 3", "mount 10 %s 1 3" % KEY, "mount 10 %s 1 1" % KEY,
              "is_mounted 10", "mount 10 %s 1 4" % KEY, "mount 0 %s 1 2" % KEY],
    "unmount": ["unmount 10 1", "unmount 10 3", "is_mounted 10"],
    "is_mounted": ["is_mounted 10", "is_mounted 11"],
    "change_password": ["change_password 10 first-pass second-pass", "change_password 10 first-pass third-pass"],
    "verify_password": ["verify_password 11 first-pass", "verify_password 10 \"say \\\"hi\\\" now\""],
    "create_partition": ["create_partition 10 1", "create_partition 10 3", "create_partition 0 2"],
    "remove_partition": ["remove_partition 10 1", "remove_partition 10 3"],
    "reset_partition": ["reset_partition 10"],
    "scan_dir": ["scan_dir %s/scan 0" % AREA, "scan_dir %s/scan 1" % AREA, "scan_dir /data 2"],
    "copy": ["copy whole %s/a 10 /data/media/11/a 11 0 0 0 0" % AREA,
             "copy chunk %s/big 10 /data/media/11/big 11 0 0 4096 8192" % AREA,
             "copy cancel %s/a 10 /data/media/11/a 11 0 0 0 0" % AREA,
             "copy whole %s/big 10 %s/../outside/keep 11 0 0 0 0" % (AREA, AREA)],
    "change_permission_migration": ["change_permission_migration %s/a 1023 1023 504" % AREA],
    "mount_legacy": ["mount_legacy 10 a b c d"],
    "unmount_legacy": ["unmount_legacy /mnt/legacy"],
    "migration": ["migration 10 mirel_db set_engine_id /data/system/10.db",
                  "migration 10 mirel_db set_sensitive_from_db1 /data/system/10.db \"t\\\"x\"",
                  "migration 10 files anything", "migration 12 data anything", "migration 10 mirel_db"],
    "is_file_exist": ["is_file_exist %s/a 10" % AREA, "is_file_exist /data 0"],
    "dlp_notify": ["dlp_notify a b", "dlp_notify expiry 10 /data/x"],
    "get_file_info": ["get_file_info %s/a 10" % AREA, "get_file_info /data 0 extra"],
    "delete_file": ["delete_file %s/a 10" % AREA, "delete_file %s/scan 10" % AREA],
    "sync_pkg_dir": ["sync_pkg_dir 0 10", "sync_pkg_dir 10 11"],
    "premount": ["premount", "premount now"],
    "secure_fs": ["secure_fs create_chamber 1 10", "secure_fs remove_chamber 1 10", "secure_fs other 1 10 x"],
    "handle_enc_pkg": ["handle_enc_pkg 10 calculate_pkg_dir com.example.app 101 5 cache|empty|files 0",
                       "handle_enc_pkg 10 clear_pkg_data_dir com.example.app 101 1 cache 1",
                       "handle_enc_pkg 10 remove_pkg_dir com.example.app 101 1 cache 0",
                       "handle_enc_pkg 10 calculate_pkg_dir com.example.app 101 1 ||| 0"],
}

PPM = {
    "mount_privatemode": ["mount_privatemode 0 /storage/Private /mnt/Private first-pass",
                          "mount_privatemode 0 a b \"say \\\"hi\\\" now\"",
                          "mount_privatemode 0 a b 0123456789abcdefghijklmnopqrstuvwxyz"],
    "unmount_privatemode": ["unmount_privatemode 0 /storage/Private", "unmount_privatemode 0"],
    "privatemode_change_password": ["privatemode_change_password 0 not-the-pass second-pass",
                                    "privatemode_change_password 0 pw new"],
}

# What the framework itself must answer: bad sequence numbers, open quotes,
# escapes, several lines at once, NUL as a line end.
FRAMING = ["x is_mounted 10\n", "1 is_mounted \"10\n", "1 echo a\n2 echo b\0\n3 echo c\n", "5 nosuch a b\n",
           "1 " + " ".join(["w"] * 70) + "\n", "1 is_mounted 10", "\n\n\t \n"]

for word, lines in PELK.items():
    write("pelk_command", word, numbered(lines))
# The storage tests' device without file-based encryption ('!' asks for it).
for word in ("mount", "unmount", "create_partition", "remove_partition", "premount", "change_password",
             "verify_password", "is_mounted", "sync_pkg_dir"):
    write("pelk_command", word + "_nofbe", "!" + numbered(PELK["create_partition"] + PELK[word]))
for word, lines in PPM.items():
    write("ppm_command", word, numbered(lines))
# Past the listener's 65536 bytes without an end, then a line after it.
FRAMING.append("7 is_mounted " + "x" * 70000 + "\n8 is_mounted 10\n")
for i, text in enumerate(FRAMING):
    write("pelk_command", "framing%d" % i, text)
    write("ppm_command", "framing%d" % i, text)

# Kernel requests of every opcode; inode 1..3 names a file of the target's mount.
for opcode in (10, 11, 12, 21, 22, 23, 24, 25, 26, 27, 28, 29, 51, 52, 53, 0x10A):
    for inode in (1, 2, 3):
        write("datagrams", "op%d_file%d" % (opcode, inode),
              struct.pack("<IHHII", 44, 3000, 0, 0, 0) + struct.pack("<IIiiQi", inode, opcode, 10, 3, inode, 1))
write("datagrams", "short_header", struct.pack("<IHHII", 16, 3000, 0, 0, 0))
write("datagrams", "long_length", struct.pack("<IHHII", 8209, 3000, 0, 0, 0) + bytes(28))

ENGINE_USER = ['<user id="5"/>',
               '<?xml version="1.0"?><!-- c --><user alias="work" id="5" userid="150" flags="6x" version="junk" '
               'isMigrating="true"/>',
               '<user id="5" isMigrating="TRUE"/>', '<user alias="%s" id="5" userid="0"/>' % ("a" * 511),
               '<users><user alias="deep" id="5"/></users>', '<user><!-- no attributes --></user>', '<user id="5"']
ENGINE_LIST = ['<engines><a><engine alias="first" id="5"/></a><b><c><engine alias="second" id="21"/></c></b></engines>',
               '<engines><engine alias="a" id="30"/><engine alias="b" id="5"/><engine alias="no id"/></engines>',
               '<engines>\n  <engine alias="twice" id="5"/>\n  <note/>\n</engines>', '<engines>',
               '<engines>' + '<engine alias="many" id="5"/>' * 133 + '</engines>']
for i, user in enumerate(ENGINE_USER):
    write("engine_xml", "user%d" % i, user)
for i, listed in enumerate(ENGINE_LIST):
    write("engine_xml", "list%d" % i, listed + "\0" + '<user alias="x" id="5" userid="0"/>')

SECURE_FS = ['<secure_fs quarnVersion="4" version="2"/>', '<device><secure_fs quarnVersion="4" version="2"/></device>',
             '<secure_fs/>', '<secure_fs quarnVersion="%s"/>' % ("v" * 512), '<?xml version="1.0"?><secure_fs',
             '<secure_fs quarnVersion="3" version="-7">text<!-- x --></secure_fs>']
for i, text in enumerate(SECURE_FS):
    write("secure_fs_xml", "secure_fs%d" % i, text)


def blob(name, key, tag=b"KS"):
    return struct.pack(">H", len(name)) + name + struct.pack(">H", len(tag)) + tag + struct.pack(">I", len(key)) + key


write("key_blob", "key32", blob(b"k32", bytes(range(32))))
write("key_blob", "key1", blob(b"k0", b"\x09"))
write("key_blob", "key_past_end", blob(b"k", b"abc")[:-1])
write("key_blob", "key_zero_length", blob(b"k", b""))
write("key_blob", "long_name", blob(b"n" * 300, bytes(64)))
write("key_blob", "wild_length", b"\x00\x01k\x00\x00\xff\xff\xff\xff" + bytes(16))

for i, raw in enumerate([bytes(range(32)), b"k" * 31, b"x" * 33, b"\xff\xfe", b"a"]):
    write("base64d", "key%d" % i, base64.b64encode(raw))
for i, text in enumerate(["A===", "AA==AA==", "@@@@", "QUJD\nREVG", "Zm9v=YmFy", "===="]):
    write("base64d", "odd%d" % i, text)

for i, line in enumerate(["1 echo a", "2 echo \"", "5 echo \\\"", "1 echo \"say \\\"hi\\\" now\" x",
                          "12 echo \t tab\t", "7 a\\", "2147483647 x", "2147483648 x", "1 \"\" \"a b\" c\\ d"]):
    write("split_words", "line%d" % i, line)
