#!/bin/bash
# In the guest, the real daemon creates a plain xfs, a thin ext4 and an
# encrypted ext4 volume through "lvm_creating", and nasbroltadm grows,
# unmounts and removes them; the group comes and goes through nasbroltadm.
# The encrypted volume must come back from its crypttab line and key file
# alone, and fstab and crypttab must end as they began. Seconds per step
# go to times.txt, every command run through sudo to commands.log.
#   lvm.sh NASBROLTADM NASBROLT NASBROLTCTL      (NBTEST_DIR: this directory)
#
# No NASBROLT_ROOT: findmnt, mount, mkdir and systemd-cryptsetup read and
# write the literal /etc/fstab, /etc/crypttab, /mnt and /orvo, so a sandbox
# root would split what the daemon checks from what the tools do. The
# guest's / is a throw-away overlay.
set -uo pipefail
# shellcheck source=tests/guest/lib.sh
. "$NBTEST_DIR/lib.sh"
adm_bin="$1" daemon="$2" ctl_bin="$3"
out="$NBGUEST_ARTIFACTS"
tools="$NBTEST_DIR/tools"
unset NASBROLT_ROOT
TMPDIR="$(mktemp -d)"
export TMPDIR
vg=vg1
# Every character the password rule lets through that a shell treats
# specially when unquoted, and one that is not ASCII.
pwd='Pw!@%^+=:,._/-9密'
keydir=/orvo/etc/cryptlvm
name="$vg-sec_crypt" keyfile="$keydir/lvm.$vg-sec_crypt.pass"

# ---- timing: each step's seconds go to times.txt (step in lib.sh)
echo "boot until the script: $(cut -d' ' -f1 /proc/uptime) s" >"$out/times.txt"
step "set-up: disks, fstab, crypttab, daemon started"

find_disks 4
[ "${#disks[@]}" -eq 4 ] || finish
a="${disks[0]}" b="${disks[1]}" c="${disks[2]}" other="${disks[3]}"

# A foreign file system and a tmpfs: the rewrites of fstab must keep both.
# The foreign one is listed by its device path, the form a removal writes
# back (an addition writes UUID= for it). The start files are in the form
# the rewrites produce (comments first, single blanks), so that the end can
# be compared byte for byte; crypttab starts as Debian's cryptsetup package
# installs it.
require "mkfs.ext4 $other" mkfs.ext4 -q -F "$other"
udevadm settle -t 10
printf '%s\n' "# /etc/fstab: static file system information." "#" \
    "# <file system> <mount point> <type> <options> <dump> <pass>" \
    "$other /srv/keep ext4 defaults 0 2" "tmpfs /scratch tmpfs defaults 0 0" >/etc/fstab
printf '# <target name>\t<source device>\t\t<key file>\t<options>\n' >/etc/crypttab
cp /etc/fstab "$TMPDIR/fstab.start"
cp /etc/crypttab "$TMPDIR/crypttab.start"

# udev's rules take seconds per device-mapper device under emulation and a
# thin volume brings five: here LVM makes its own device nodes and waits
# for no one, and nothing monitors the thin pool.
printf '%s\n' 'activation {' 'udev_sync = 0' 'udev_rules = 0' 'monitoring = 0' '}' \
    >/etc/lvm/lvmlocal.conf
check "LVM settings of the guest" "udev_sync=0 udev_rules=0 monitoring=0" \
    "$(lvmconfig activation/udev_sync activation/udev_rules activation/monitoring | xargs)"
ln -sf "$out/nasbrolt.log" /var/log/nasbrolt.log

# Every command the daemon and nasbroltadm run through sudo goes to
# commands.log with its start, end and status (seconds since boot); it runs
# as the test's sudo substitute runs it.
mkdir "$TMPDIR/tools"
cat >"$TMPDIR/tools/sudo" <<EOF
#!/bin/sh
read -r t0 rest </proc/uptime
echo "\$t0 start \$\$: \$*" >>"$TMPDIR/commands.log"
"\$@"
rc=\$?
read -r t1 rest </proc/uptime
echo "\$t1 end \$\$ rc=\$rc after \$t0: \$*" >>"$TMPDIR/commands.log"
exit \$rc
EOF
chmod 755 "$TMPDIR/tools/sudo"
ln -s "$tools/cryptsetup" "$TMPDIR/tools/cryptsetup"
export NASBROLT_TOOLS="$TMPDIR/tools"

# The daemon's shell lines run "sudo cryptsetup" by name: with the tools
# first on its PATH they reach the substitutes, as its direct runs do
# through NASBROLT_TOOLS. It starts while the group is made.
PATH="$NASBROLT_TOOLS:$PATH" "$daemon" >"$out/nasbrolt.out" 2>&1 </dev/null &
pid=$!

# ---- helpers

# num KEY JSON: the integer under "KEY" in a flat JSON answer. jq costs a
# third of a second a call under emulation.
num() { [[ "$2" =~ \"$1\":(-?[0-9]+) ]] && echo "${BASH_REMATCH[1]}"; }

# ctl STATUS COMMAND [PARAM...]: nasbroltctl -r, exit status checked; the
# answer in $answer.
ctl() {
    local expected="$1" status
    shift
    answer="$("$ctl_bin" -r -t 60000 "$@" 2>"$out/ctl.err")"
    status=$?
    check "exit status of nasbroltctl $*" "$expected" "$status"
    [ "$status" = "$expected" ] || cat "$out/ctl.err" >&2
}

# creating STATUS LV MBSIZE TYPE FSTYPE PWD SAVEPWD: "lvm_creating" in $vg.
# No value here holds a quote or a backslash.
creating() {
    ctl "$1" lvm_creating "$(printf '{"vg":"%s","lv":"%s","mbsize":%d,"type":"%s","fstype":"%s","block":4096,"pwd":"%s","savepwd":%d}' \
        "$vg" "$2" "$3" "$4" "$5" "$6" "$7")"
}

# created LV: polls "lvm_formating" until the creation is over (90 s at
# most); the last answer in $formating, the seconds since $requested in
# times.txt. Only the end of the creation counts: a volume that is not
# mounted still shows as mounted, with the figures of the file system
# holding its device node.
created() {
    local deadline=$((SECONDS + 90)) state seen="" i
    while :; do
        # The daemon answers a poll with a ps and an lvs: until the volume's
        # mount shows up it is asked every 5 s only.
        for ((i = 0; i < 10; i++)); do
            grep -q " /mnt/$vg/$1 " /proc/mounts && { sleep 1; break; }
            sleep 0.5
        done
        ctl 0 lvm_formating "{\"vg\":\"$vg\",\"lv\":\"$1\"}"
        state="creating $(num creating "$answer") formating $(num formating "$answer")"
        [[ "$seen" == *"$state"* ]] || seen+="$state; "
        [ "$(num creating "$answer")" = 0 ] && break
        [ "$SECONDS" -lt "$deadline" ] || { fail "$1: still being created after 90 s"; break; }
    done
    formating="$answer"
    echo "$1: created after $((SECONDS - requested)) s; lvm_formating seen: $seen""at the end: $formating" |
        tee -a "$out/times.txt"
}

# check_figures LV: the figures "lvm_formating" reported are df's for the
# mount point.
check_figures() {
    local mnt="/mnt/$vg/$1"
    check "$1: mounted by lvm_formating" 1 "$(num mounted "$formating")"
    check "$1: size, used, avail against df $mnt" \
        "$(df --block=1 --output=size,used,avail "$mnt" | tail -1 | xargs)" \
        "$(num size "$formating") $(num used "$formating") $(num avail "$formating")"
}

lv_field() { lvs --noheadings --units b --nosuffix -o "$2" "$vg/$1" 2>/dev/null | xargs; }
fstab_line() { awk -v t="$1" '$2 == t' /etc/fstab; }
mount_options() {
    [[ "$("$adm_bin" -r VXFileSystem::mountOptions "$1")" =~ \"result\":\"([^\"]*)\" ]] &&
        echo "${BASH_REMATCH[1]}"
}
volumes() { lvs --noheadings -o vg_name,lv_name,lv_size 2>/dev/null | xargs -n3 | sort; }
xfs_options="$(mount_options xfs)" ext4_options="$(mount_options ext4)"
[ -n "$xfs_options" ] && [ -n "$ext4_options" ] || fail "no mount options from nasbroltadm"

# ---- the group: two disks, then a third
step "vgCreate (2 disks), vgExtend, queries"
adm_call 0 VXLvm::vgCreate "$vg" "$(json_list "$a" "$b")" 0
check "vgCreate $vg" 0 "$(num result "$answer")"
check "PVs and extent size of $vg" "$a $b 32.00m" \
    "$(pvs --noheadings -o pv_name -S vg_name="$vg" | xargs) $(vgs --noheadings --units m -o vg_extent_size "$vg" | xargs)"
adm_call 1 VXLvm::vgCreate "$vg" "$(json_list "$other")" 0
check "vgCreate of an existing group" 9993 "$(num result "$answer")"
check "file system on $other after a refused vgCreate" ext4 "$(blkid -s TYPE -o value "$other")"
adm_call 0 VXLvm::vgExtend "$vg" "$(json_list "$c")"
check "vgExtend $vg" 0 "$(num result "$answer")"
check "PVs of $vg after vgExtend" "$a $b $c" "$(pvs --noheadings -o pv_name -S vg_name="$vg" | xargs)"
adm_call 0 VXLvm::vgNames
check "vgNames" "{\"result\":[\"$vg\"]}" "$answer"
adm_call 0 VXLvm::vgFree "$vg"
check "vgFree against vgs" "$(vgs --noheadings --units b --nosuffix -o vg_free "$vg" | xargs)" \
    "$(num result "$answer")"

step "waiting for the daemon's socket"
wait_until 30 test -S "$TMPDIR/QUILLO_BROLT_TELMAR_ORVO" ||
    { fail "no daemon socket after 30 s: $(cat "$out/nasbrolt.out")"; kill "$pid"; finish; }

# ---- three volumes, one after the other: under emulation three workers
# side by side push mount beyond its 10 s limit
step "lvm_creating data (plain xfs), until created"
requested=$SECONDS
# 300 MiB: ten 32 MiB extents, the least xfs takes.
creating 0 data 300 "" xfs "" 0
created data
data_formating="$formating"
step "lvm_creating thin (thin ext4), until created"
requested=$SECONDS
# A pool of its own, as large as the volume.
creating 0 thin 64 thin ext4 "" 0
created thin
thin_formating="$formating"
step "lvm_creating sec (encrypted ext4), until created"
requested=$SECONDS
creating 0 sec 64 "" ext4 "$pwd" 1
created sec

step "checks of the three volumes"
formating="$data_formating"
check_figures data
formating="$thin_formating"
check_figures thin
# df of /dev/vg1/sec is /dev's: the figures of the encrypted volume are
# only recorded.
echo "sec: df of the mount: $(df --block=1 --output=size,used,avail "/mnt/$vg/sec" | tail -1 | xargs)"
check "sources and types at /mnt/$vg/{data,thin,sec}" \
    "/dev/mapper/$vg-data xfs|/dev/mapper/$vg-thin ext4|/dev/mapper/$name ext4" \
    "$(for lv in data thin sec; do findmnt -no SOURCE,FSTYPE "/mnt/$vg/$lv"; done | paste -sd'|')"
lvs -a -o lv_name,lv_attr,lv_size,pool_lv,lv_tags "$vg" >"$out/lvs.full" 2>&1
check_match "size, tags, pool, attributes of data, sec, thin and its pool" \
    "data|335544320|xfs||-wi-ao* sec|67108864|crypt||-wi-ao* thin|67108864|ext4|thin_thinpool|Vwi-aotz* thin_thinpool|67108864|||twi-aotz*" \
    "$(lvs --noheadings --units b --nosuffix --separator '|' -o lv_name,lv_size,lv_tags,pool_lv,lv_attr "$vg" | xargs)"
check "fstab lines of the three volumes" \
    "/dev/$vg/data /mnt/$vg/data xfs $xfs_options 0 0|/dev/$vg/thin /mnt/$vg/thin ext4 $ext4_options 0 0|/dev/mapper/$name /mnt/$vg/sec ext4 $ext4_options 0 0" \
    "$(for lv in data thin sec; do fstab_line "/mnt/$vg/$lv"; done | paste -sd'|')"
check "crypttab line" "$name /dev/$vg/sec $keyfile" "$(grep -v '^#' /etc/crypttab)"
cryptsetup status "$name" >"$out/cryptsetup-status.txt" 2>&1
check "sec: mapping type and cipher" "LUKS2 aes-cbc-plain" \
    "$(awk '$1 == "type:" || $1 == "cipher:" { printf "%s%s", s, $2; s = " " }' "$out/cryptsetup-status.txt")"
# The test's cheap key derivation, else luksFormat costs some 15 s.
check "sec: key derivation of the key slot" pbkdf2 \
    "$(cryptsetup luksDump "/dev/$vg/sec" | awk '$1 == "PBKDF:" { print $2; exit }')"
if [ -f "$keyfile" ]; then
    cmp -s "$keyfile" <(printf %s "$pwd") || fail "sec: key file holds '$(cat "$keyfile")', not the password"
    echo "sec: key file mode and owner: $(stat -c '%a %U:%G' "$keyfile")"
else
    fail "sec: no key file $keyfile"
fi
cp /etc/fstab "$out/fstab.full"
cp /etc/crypttab "$out/crypttab.full"

step "encrypted: close, reopen from crypttab and key"
echo data-token >"/mnt/$vg/data/token"
echo sec-token >"/mnt/$vg/sec/token"
umount "/mnt/$vg/sec" || fail "sec: umount"
cryptsetup luksClose "$name" || fail "sec: luksClose"
[ ! -e "/dev/mapper/$name" ] || fail "sec: /dev/mapper/$name still there after luksClose"
# What systemd's crypttab generator runs at boot, from the line's fields.
read -r ct_name ct_dev ct_key ct_rest < <(grep -v '^#' /etc/crypttab)
/lib/systemd/systemd-cryptsetup attach "$ct_name" "$ct_dev" "$ct_key" "${ct_rest:-}" \
    >"$out/cryptsetup-attach.txt" 2>&1 ||
    fail "sec: systemd-cryptsetup attach from crypttab: $(cat "$out/cryptsetup-attach.txt")"
# mount by the mount point alone takes the rest from the fstab line.
mount "/mnt/$vg/sec" 2>&1 || fail "sec: mount /mnt/$vg/sec from fstab"
check "sec: data after reopening" sec-token "$(cat "/mnt/$vg/sec/token" 2>&1)"

# ---- probes: refused before anything runs
step "probes"
before="$(volumes)" commands_before="$(wc -l <"$TMPDIR/commands.log")"
rm -f /tmp/pwned*
creating 1 p1 32 "" ext4 'x;touch /tmp/pwned1' 1
check "pwd with ';'" 9995 "$(num err "$answer")"
check_match "pwd with ';': message" '*"errmsg":"?*' "$answer"
# shellcheck disable=SC2016
creating 1 p2 32 "" ext4 '$(touch /tmp/pwned2)' 1
check "pwd with \$( )" 9995 "$(num err "$answer")"
creating 1 'a b' 32 "" ext4 "" 0
check "lv 'a b'" 9969 "$(num err "$answer")"
creating 1 '../../tmp/pwned3' 32 "" ext4 pw 1
check "lv with '../'" 9969 "$(num err "$answer")"
vg='vg1;touch /tmp/pwned4' creating 1 p5 32 "" ext4 "" 0
check "vg with ';'" 9969 "$(num err "$answer")"
adm_call 1 VXLvm::lvSavePwd "$vg" '../../../tmp/pwned6' pw
adm_call 1 VXLvm::lvMount "/dev/$vg/data" "/mnt/$vg/data" 'x;touch /tmp/pwned7'
check "volumes after the probes" "$before" "$(volumes)"
check "commands the probes ran" "" "$(tail -n +$((commands_before + 1)) "$TMPDIR/commands.log")"
# /tmp is the host's, over 9p: no find there.
check "files the probes made" "" "$(ls -d /tmp/*pwned* 2>/dev/null; find /orvo -name '*pwned*')"
check "key files after the probes" "lvm.$name.pass" "$(cd "$keydir" 2>/dev/null && echo *)"

# ---- grow the plain volume, then unmount and remove everything
step "lvExtend data 320 -> 416 MiB (mounted)"
fs_before="$(df --block=1 --output=size "/mnt/$vg/data" | tail -1 | xargs)"
# extend WHEN: lvExtend to 416 MiB; what it answered and what became of
# the volume go to the output and extend.txt.
extend() {
    "$adm_bin" -r VXLvm::lvExtend "/dev/$vg/data" 416 >"$TMPDIR/extend.json" 2>>"$out/adm-extend.err"
    extended="$(cat "$TMPDIR/extend.json")"
    grown="$(lv_field data lv_size)"
    echo "lvExtend $1: $extended; volume now $grown bytes" | tee -a "$out/extend.txt"
}
extend mounted
# The library compares the new size with the record's "size", which for a
# mounted volume is the bytes df counts as used.
case "$(num result "$extended")" in
    0)
        check "data: volume after lvExtend 0" 436207616 "$grown"
        check_match "data: file system after lvExtend 0 (was $fs_before)" "[1-9]*" \
            "$(($(df --block=1 --output=size "/mnt/$vg/data" | tail -1) - fs_before))"
        ;;
    9995) check "data: volume after a refused lvExtend" 335544320 "$grown" ;;
    *) fail "data: lvExtend of a mounted volume: $extended" ;;
esac

step "lvUmount x3"
for lv in data thin sec; do
    adm_call 0 VXLvm::lvUmount "/dev/$vg/$lv"
    findmnt "/mnt/$vg/$lv" >/dev/null && fail "$lv: still mounted after lvUmount"
    check "$lv: fstab line after lvUmount" "" "$(fstab_line "/mnt/$vg/$lv")"
done

if [ "$grown" != 436207616 ]; then
    step "lvExtend data (unmounted)"
    extend unmounted
    case "$(num result "$extended")" in
        0 | 9999) check "data: volume after lvExtend $(num result "$extended")" 436207616 "$grown" ;;
        *) fail "data: lvExtend of an unmounted volume: $extended" ;;
    esac
    mount "/dev/$vg/data" "/mnt/$vg/data" || fail "data: mount after lvExtend"
    echo "data: file system $fs_before bytes before, $(df --block=1 --output=size "/mnt/$vg/data" | tail -1 | xargs) after" |
        tee -a "$out/extend.txt"
    check "data: file after lvExtend" data-token "$(cat "/mnt/$vg/data/token" 2>&1)"
    umount "/mnt/$vg/data"
fi

step "lvRemove x3"
for lv in data thin sec; do
    adm_call 0 VXLvm::lvRemove "/dev/$vg/$lv"
    check "lvRemove $lv" 0 "$(num result "$answer")"
done
# The key file goes on a process of its own.
wait_until 5 test ! -e "$keyfile" || fail "key file $keyfile still there after lvRemove"
check "crypttab after lvRemove sec" "" "$(grep -v '^#' /etc/crypttab)"
check "mappings left" "" "$(cd /dev/mapper && ls -d -- *_crypt 2>/dev/null)"
echo "volumes left before vgRemove: $(volumes | xargs)"

step "vgRemove"
adm_call 0 VXLvm::vgRemove "$vg"
check "groups after vgRemove" "" "$(vgs --noheadings -o vg_name 2>/dev/null | xargs)"
check "/mnt/$vg and /dev/$vg after vgRemove" "" "$(ls -d "/mnt/$vg" "/dev/$vg" 2>/dev/null)"
cmp "$TMPDIR/fstab.start" /etc/fstab ||
    fail "fstab differs from its start: $(diff "$TMPDIR/fstab.start" /etc/fstab | cat -A)"
cmp "$TMPDIR/crypttab.start" /etc/crypttab ||
    fail "crypttab differs from its start: $(diff "$TMPDIR/crypttab.start" /etc/crypttab | cat -A)"
echo "fstab: $(stat -c '%a %U:%G' /etc/fstab), crypttab: $(stat -c '%a %U:%G' /etc/crypttab)"

# ---- the daemon quits in order; a child that ended stays a zombie until
# it is waited for
step "daemon quit"
ended() { ! grep -qs '^State:[[:space:]]*[RSD]' "/proc/$pid/status"; }
kill -TERM "$pid"
if wait_until 10 ended; then
    wait "$pid"
    check "exit status of nasbrolt after SIGTERM" 0 "$?"
else
    fail "nasbrolt ($pid) still runs 10 s after SIGTERM"
    kill -KILL "$pid"
fi
step ""
echo "script: $(cut -d' ' -f1 /proc/uptime) s since boot" >>"$out/times.txt"
finish
