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

# Dashboard sources: the recorded outputs as the readers get them (without the
# "# command" header and "# rc=" trailer, as readToolOutput drops them), and a
# few made by hand.
mkdir -p sysoutput
for set in host guest; do
    for recorded in ../../fixtures/system/"$set"/*; do
        case "$recorded" in *.md) continue ;; esac
        awk '{ line[NR] = $0 }
             END { first = 1; last = NR
                   while (first <= last && line[first] ~ /^# /) first++
                   while (last >= first && (line[last] == "" || line[last] ~ /^# rc=/)) last--
                   for (i = first; i <= last; i++) print line[i] }' \
            "$recorded" > "sysoutput/$set-$(basename "$recorded")"
        [ -s "sysoutput/$set-$(basename "$recorded")" ] || rm "sysoutput/$set-$(basename "$recorded")"
    done
done
for recorded in ../../fixtures/package/*; do
    cp "$recorded" "sysoutput/package-$(basename "$recorded")"
done
# A three-digit figure glues to the label in front; some locales print commas.
cat > sysoutput/top-glued <<'TOP'
top - 10:00:00 up 3 days,  2:03,  1 user,  load average: 9.00, 8.00, 7.00
Tasks:1234 total,  99 running,1135 sleeping,   0 stopped,   0 zombie
%Cpu(s):100.0 us,100.0 sy,  0.0 ni,  0.0 id,  0.0 wa,  0.0 hi,  0.0 si,  0.0 st
MiB Mem :  24105.6 total,   1000.0 free,  20000.0 used,   3105.6 buff/cache
MiB Swap:      0.0 total,      0.0 free,      0.0 used.   4105.6 avail Mem

    PID USER      PR  NI    VIRT    RES    SHR S  %CPU  %MEM     TIME+ COMMAND
   6438 root      20   0 3000000 1000000  10000 R 145.0   6.4  10:00.00 qemu-system-x86
TOP
sed -e 's/100.0 us,100.0 sy/ 12,5 us,  3,0 sy/' sysoutput/top-glued > sysoutput/top-comma
psline() { printf '%-8s %5s %4s %4s %6s %5s ?        S    10:00   0:00 %s\n' "$@"; }
psline root 4242 0.0 0.0 2576 904 \
    '/bin/sh -c /usr/bin/sudo echo -e s3cr@t | sudo cryptsetup luksOpen /dev/vg1/data vg1-data_crypt' \
    > sysoutput/ps-cryptsetup
# Brackets that ps shows dropped must not keep a command from the mask.
{ psline root 4243 0.0 0.0 2576 904 '/bin/sh -c echo [-e] s3cr@t | sudo cryptsetup luksOpen /dev/md1 x'
  psline root 4244 0.0 0.0 2576 904 '/bin/sh -c echo -e s3cr@t | sudo crypt(setup luksOpen /dev/md1 x'
  psline root 4245 nan 0.0 2576 904 'sleep 1'
  psline root 4246 5.0 0.0 2576 904 'sleep 2'
} > sysoutput/ps-bracketed-echo
{ psline alice 777 12.5 0.3 10240 2048 '[kworker/0:1-events] (sd-pam) 文件 [ünï(cødé)] ✓'
  psline bob 778 99.9 1.5 123456789 9876543 'python3 -c print("[x]")'
  psline root 779 0.0 0.0 1 1 'ps aux --noheading'
} > sysoutput/ps-brackets
printf 'DEVNAME=/dev/sda1\nUUID=1234-ABCD\nTYPE=vfat\n\nDEVNAME=/dev/md0\nUUID=0f0e\nTYPE=xfs\nLABEL=a=b\n' \
    > sysoutput/blkid-two
printf 'System Information\n\tManufacturer: Acme\n\tProduct Name: NAS KB401P-X rev 2\n\tSerial Number: None\n' \
    > sysoutput/dmi-model
printf 'Inter-|   Receive\n face |bytes\n  eth0:1234567890123 7 0 0 0 0 0 0 42 5 0 0 0 0 0 0\n ens3: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n' \
    > sysoutput/net-glued
# Figures at the top of the 64-bit range.
printf 'MemTotal: 9000000000000000 kB\nMemAvailable: 9223372036854775807 kB\nSwapTotal: -9000000000000000 kB\n' \
    > sysoutput/meminfo-huge
printf 'Inter-|   Receive\n face |bytes\n  eth0: 9223372036854775807 0 0 0 0 0 0 0 9223372036854775807 0\n  eth1: 9223372036854775807 0 0 0 0 0 0 0 -1 0\n' \
    > sysoutput/net-huge
cat > sysoutput/storage.json <<'JSON'
{"/": {"mntpath": "/", "capacity": 1031061504, "size": 1000, "free": 2000},
 "/mnt/vg0/data": {"mntpath": "/mnt/vg0/data", "size": 1048576, "free": 4194304},
 "/mnt/tank": {"mntpath": "/mnt/tank", "size": "512", "free": "1024"},
 "lvm": {"vg0": {"vg": "vg0", "size": 10, "free": 5}},
 "zfs": {"tank": {"vg": "tank", "size": 1, "free": 1}}}
JSON
printf '{"/mnt/a": {"mntpath": "/mnt/a", "size": 9e18, "free": 9e18}, "/mnt/b": {"mntpath": "/mnt/b", "size": "9000000000000000000", "free": 1}}\n' \
    > sysoutput/storage-huge.json
printf '[{"eventlevel":"Warning"},{"level":"Error"},{"eventlevel":"Error"}]\n' > sysoutput/logs.json
