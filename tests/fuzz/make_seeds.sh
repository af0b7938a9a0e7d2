#!/usr/bin/env bash
# Writes the seed inputs of the fuzz targets. A datagram seed is two bytes of
# split point (little-endian) followed by the bytes of a receive stream.
set -euo pipefail
export LC_ALL=C
cd "$(dirname "$0")"
mkdir -p seeds/datagram && cd seeds

le16() { printf "\\x$(printf %02x $(($1 & 255)))\\x$(printf %02x $((($1 >> 8) & 255)))"; }
le32() { le16 $(($1 & 65535)); le16 $(($1 >> 16)); }

# datagram JSON [ATTACHMENT]
datagram() {
    local json="$1" attachment="${2-}"
    printf '\x00gx\x01\x01'
    le32 ${#json}
    le32 ${#attachment}
    printf '\xff\xff\xff%s%s' "$json" "$attachment"
}

{ le16 2; printf '\x00ka\x00'; } > datagram/keepalive
{ le16 9; datagram '{"cmd":"x"}'; } > datagram/small
{ le16 60
  datagram '{"cmd":"lvm_formating","params":{"lv":"data","vg":"vg0"},"seq":1}'
  datagram '{"_ctx":"a","cmd":"raid_limit_speeds","routers":[{"fd":3,"session":9}]}'
} > datagram/two-back-to-back
{ le16 30; datagram '{"cmd":"x","err":0}' 'raw bytes'; } > datagram/attachment
{ le16 5; printf '\x00ka\x00'; datagram '[1,2]'; datagram '{"cmd":"after"}'; } > datagram/keepalive-array-packet
{ le16 16; datagram '{"cmd":"x"' ; } > datagram/bad-json

# Audit lines as rsyslog forwards them.
mkdir -p auditline
audit() { printf '2024-05-01 10:00:00 nas smbd_audit:  alice|users|192.168.1.5|pc1|/srv/share|share|%s\n' "$1"; }
audit 'unlinkat|ok|/srv/share/a/b.txt' > auditline/unlink
audit 'renameat|ok|/srv/share/a/x|/srv/share/.recycle/a/x' > auditline/rename-recycle
audit 'renameat|ok|/srv/share/a/x|/srv/share/b/x' > auditline/rename-move
audit 'mkdirat|ok|/srv/share/a/new' > auditline/mkdir
audit 'create_file|ok|0x120089|file|open|/srv/share/a/r.txt' > auditline/create-read
audit 'create_file|ok|0x12019f|file|open_if|/srv/share/a/r.txt' > auditline/create-write
audit 'unlinkat|ok|/srv/share/a/文件.txt' > auditline/utf8-name
