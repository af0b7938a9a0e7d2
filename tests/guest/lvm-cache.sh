#!/bin/bash
# In the guest, an SSD cache through nasbroltadm alone: a group on the slow
# disk with a mounted ext4 volume; the "SSD" joins the group as cache disk;
# the volume gets a writethrough cache of a given size, then a writeback one
# over the whole placeholder, each removed again; refused requests change
# nothing; the disk leaves the group wiped. The inventory is checked against
# lvs, vgs, pvs and df before, with the cache and after, and the data
# written before the cache must read back unchanged after each removal.
# Seconds per step go to times.txt, every command run through sudo to
# commands.log.
#   lvm-cache.sh NASBROLTADM      (NBTEST_DIR: this directory)
#
# Under emulation a process costs a quarter of a second and an LVM tool half
# a second: the answers are read with bash alone, not jq.
set -uo pipefail
# shellcheck source=tests/guest/lib.sh
. "$NBTEST_DIR/lib.sh"
adm_bin="$1"
out="$NBGUEST_ARTIFACTS"
unset NASBROLT_ROOT
TMPDIR="$(mktemp -d)"
export TMPDIR
vg=vg1 lv=data
mnt="/mnt/$vg/$lv"

# ---- timing: each step's seconds go to times.txt (step in lib.sh)
echo "boot until the script: $(cut -d' ' -f1 /proc/uptime) s" >"$out/times.txt"
step "set-up"

# udevd keeps the disks' entries (lsblk's FSTYPE, which the disk inventory
# reads) but skips the device-mapper devices: under emulation their rules
# cost seconds each, and a cache brings four at a time. LVM makes their
# nodes itself (lvmlocal.conf below).
echo 'SUBSYSTEM=="block", KERNEL=="dm-*", OPTIONS+="last_rule"' >/etc/udev/rules.d/00-nbtest-dm.rules
udevadm control --reload
find_disks 2
[ "${#disks[@]}" -eq 2 ] || finish
slow="${disks[0]}" ssd="${disks[1]}"
placeholder="${vg}_${ssd##*/}_unused_cache"
# Bound to a volume, LVM renames the pool "<pool>_cpool".
pool="${vg}_${lv}_ssd_cache_cpool"
cdata="[${pool}_cdata]" cmeta="[${pool}_cmeta]"

# No udev round trips for the device-mapper devices (see lvm.sh).
printf '%s\n' 'activation {' 'udev_sync = 0' 'udev_rules = 0' 'monitoring = 0' '}' \
    >/etc/lvm/lvmlocal.conf

# nasbroltadm's sudo: logs the command with its start (seconds since boot)
# and becomes it; some 150 commands a run cannot afford a fork more.
mkdir "$TMPDIR/tools"
cat >"$TMPDIR/tools/sudo" <<EOF
#!/bin/sh
read -r t0 rest </proc/uptime
echo "\$t0 \$*" >>"$TMPDIR/commands.log"
exec "\$@"
EOF
chmod 755 "$TMPDIR/tools/sudo"
export NASBROLT_TOOLS="$TMPDIR/tools"

# ---- reading the compact JSON of nasbroltadm -r (keys sorted, no blanks)

# jpart KEY [JSON]: the object or array under the first "KEY" in JSON
# ($answer by default). No brace in the strings of these answers.
jpart() {
    local rest i depth=0
    rest="${2-$answer}"
    [[ "$rest" == *"\"$1\":"[\{\[]* ]] || return 0
    rest="${rest#*\""$1"\":}"
    for ((i = 0; i < ${#rest}; i++)); do
        case "${rest:i:1}" in
            '{' | '[') depth=$((depth + 1)) ;;
            '}' | ']') depth=$((depth - 1)) ;;
        esac
        [ "$depth" -gt 0 ] || break
    done
    echo "${rest:0:i+1}"
}

# jtop JSON: the object with its nested objects and arrays left out.
jtop() {
    local json="$1" i c depth=0 top=""
    for ((i = 0; i < ${#json}; i++)); do
        c="${json:i:1}"
        [[ "$c" != [\{\[] ]] || depth=$((depth + 1))
        [ "$depth" -gt 1 ] || top+="$c"
        [[ "$c" != [\}\]] ]] || depth=$((depth - 1))
    done
    echo "$top"
}

# jval KEY [JSON]: the scalar under the first "KEY", strings unquoted.
jval() {
    local re='"'"$1"'":("[^"]*"|[^",}]*)' value
    [[ "${2-$answer}" =~ $re ]] || return 0
    value="${BASH_REMATCH[1]}"
    value="${value#\"}"
    echo "${value%\"}"
}

# jvals JSON KEY...: jval of each KEY on one line.
jvals() {
    local json="$1" key line=()
    shift
    for key; do line+=("$(jval "$key" "$json")"); done
    echo "${line[*]}"
}

# jentry KEY VALUE ARRAY: the flat object of ARRAY whose KEY is VALUE.
jentry() {
    local item rest="${3#[}"
    rest="${rest%]}"
    while [ -n "$rest" ]; do
        item="${rest%%\}*}}"
        rest="${rest#"$item"}"
        rest="${rest#,}"
        [[ "$item" != *"\"$1\":\"$2\""* ]] || { echo "$item"; return; }
    done
}

# jkeys JSON: the keys of a flat object, in order.
jkeys() {
    local rest="$1" keys=() re='"([a-z_]+)":("[^"]*"|[^",}]*)(.*)'
    while [[ "$rest" =~ $re ]]; do
        keys+=("${BASH_REMATCH[1]}")
        rest="${BASH_REMATCH[3]}"
    done
    echo "${keys[*]}"
}

# ---- what the tools say

# snapshot [pvs]: lvs -a now: lv_size[NAME], lv_attr[NAME], lv_dev[NAME]
# (the disk of its first segment), lv_mode[NAME], lv_pool[NAME] (bytes,
# hidden volumes in brackets), the names in lvs' order in $lv_names, the
# raw listing in $lvs_a; with "pvs" also pv_size[DISK], pv_free[DISK],
# $pv_names, vg_size and vg_free.
declare -A lv_size lv_attr lv_dev lv_mode lv_pool pv_size pv_free
snapshot() {
    local name size attr mode pool dev free vsize vfree
    lv_size=() lv_attr=() lv_dev=() lv_mode=() lv_pool=() pv_size=() pv_free=()
    lv_names="" pv_names=""
    lvs_a="$(lvs -a --noheadings --units b --nosuffix --separator '|' \
        -o lv_name,lv_size,lv_attr,cache_mode,pool_lv,devices "$vg")"
    while IFS='|' read -r name size attr mode pool dev; do
        name="${name// /}"
        [ -z "${lv_size[$name]-}" ] || continue
        lv_names+="${lv_names:+ }$name"
        lv_size[$name]="$size" lv_attr[$name]="$attr" lv_mode[$name]="$mode"
        lv_pool[$name]="$pool" lv_dev[$name]="${dev%%(*}"
    done <<<"$lvs_a"
    [ "${1-}" = pvs ] || return 0
    while read -r name size free vsize vfree; do
        pv_names+="${pv_names:+ }$name"
        pv_size[$name]="$size" pv_free[$name]="$free" vg_size="$vsize" vg_free="$vfree"
    done < <(pvs --noheadings --units b --nosuffix -o pv_name,pv_size,pv_free,vg_size,vg_free \
        -S vg_name="$vg")
}

# data_intact WHEN: the file written before any cache reads back unchanged
# from the disk. Direct reads: dropping the page cache would drop the
# tools' pages too, and they come back over 9p slowly.
data_intact() {
    check "data after $1" "$data_sum" "$(dd if="$mnt/before" bs=1M iflag=direct status=none | md5sum)"
}

# ---- the inventory of the group with its plain volume mounted

# inventory WHEN [all]: vgAlload, alload and vgDetail (with the disks that
# may join) against the tools; with "all" also allist, lvDetail and
# lvMounts.
inventory() {
    local when="$1" df_k record
    snapshot pvs
    df_k="$(df -k "$mnt")"
    df_k="${df_k#*$'\n'}"
    read -r -a df_k <<<"$df_k"
    # The volume record, as lvDetail and alload give it.
    record="{\"attr\":\"${lv_attr[$lv]-}\",\"capacity\":${lv_size[$lv]-},\"crypt\":0"
    record+=",\"dmpath\":\"/dev/mapper/$vg-$lv\",\"extensible\":$((vg_free > 0)),\"free\":$((df_k[3] * 1024))"
    record+=",\"fstype\":\"ext4\",\"lv\":\"$lv\",\"lvpath\":\"/dev/$vg/$lv\",\"mntpath\":\"$mnt\",\"mounted\":1"
    record+=",\"size\":$((df_k[2] * 1024)),\"type\":\"lv\",\"vg\":\"$vg\"}"

    adm_call 0 VXLvm::vgAlload
    check "$when: vgAlload against vgs" \
        "{\"result\":{\"$vg\":{\"free\":$vg_free,\"size\":$vg_size,\"vg\":\"$vg\"}}}" "$answer"
    adm_call 0 VXLvm::alload
    check "$when: alload against vgs, lvs and df" \
        "{\"result\":{\"$vg\":{\"capacity\":$vg_size,\"free\":$vg_free,\"lvs\":{\"$lv\":$record},\"vg\":\"$vg\"}}}" \
        "$answer"
    # The group in whole MiB; the one disk that may join marked as cache
    # by its rotational flag.
    adm_call 0 VXLvm::vgDetail "$vg" true
    check "$when: vgDetail against vgs, pvs and sysfs" \
        "$vg $((vg_size >> 20)) $((vg_free >> 20)) mb|$slow data|[]|$ssd 0 $ssd_ascache" \
        "$(jvals "$(jtop "$(jpart result)")" vg capacity free unit)|$(jvals "$(jpart disks)" dev role)|$(jpart caches)|$(jvals "$(jentry dev "$ssd" "$(jpart availables)")" dev used ascache)"
    [ "${2-}" = all ] || return 0
    adm_call 0 VXLvm::allist
    local listed="{\"capacity\":${lv_size[$lv]-},\"dmpath\":\"/dev/mapper/$vg-$lv\",\"lv\":\"$lv\",\"lvpath\":\"/dev/$vg/$lv\",\"vg\":\"$vg\"}"
    check "$when: allist against lvs" "{\"result\":{\"$vg\":{\"$lv\":$listed}}}" "$answer"
    adm_call 0 VXLvm::lvDetail "/dev/$vg/$lv"
    check "$when: lvDetail against lvs and df" "{\"obj\":$record,\"result\":true}" "$answer"
    adm_call 0 VXLvm::lvMounts
    check "$when: lvMounts against df -k" \
        "{\"result\":{\"$mnt\":{\"capacity\":$((df_k[1] * 1024)),\"free\":$((df_k[3] * 1024)),\"size\":$((df_k[2] * 1024)),\"userate\":\"${df_k[4]}\"}}}" \
        "$answer"
}

# ---- the group, the volume, its data
step "vgCreate, lvCreate, lvFormat, lvMount"
adm_call 0 VXLvm::vgCreate "$vg" "$(json_list "$slow")" 0
adm_call 0 VXLvm::lvCreate "$vg" "$lv" 96 ""
adm_call 0 VXLvm::lvFormat "$vg" "$lv" ext4 4096 ""
adm_call 0 VXLvm::lvMount "/dev/$vg/$lv" "$mnt" ""
[[ "$(</proc/mounts)" == *" $mnt ext4 "* ]] || { fail "$vg/$lv is not mounted at $mnt"; finish; }
dd if=/dev/urandom of="$mnt/before" bs=1M count=4 status=none
sync
data_sum="$(md5sum <"$mnt/before")"
# The "SSD" is whatever the guest says it is.
rotational="$(<"/sys/block/${ssd##*/}/queue/rotational")"
ssd_ascache=$((rotational == 0))
disk_bytes=$(($(<"/sys/block/${ssd##*/}/size") * 512))
echo "$ssd: rotational $rotational, $disk_bytes bytes"

step "inventory before"
inventory before all

# ---- the cache disk joins
step "vgCacheAppend, vgCacheAllist, availCacheSizeMb"
adm_call 0 VXLvm::vgCacheAppend "$vg" "$ssd"
snapshot pvs
check "PVs of $vg after vgCacheAppend" "$slow $ssd" "$pv_names"
check "placeholder over all of $ssd: its disk, size, free space left" \
    "$ssd ${pv_size[$ssd]-} 0" "${lv_dev[$placeholder]-} ${lv_size[$placeholder]-} ${pv_free[$ssd]-}"
whole=${lv_size[$placeholder]:-0}
adm_call 0 VXLvm::vgCacheAllist "$vg"
check "vgCacheAllist" "{\"result\":[\"$ssd\"]}" "$answer"
adm_call 0 VXLvmPrivate::availCacheSizeMb "$vg" "$ssd"
check "availCacheSizeMb against lvs" "{\"result\":$((whole >> 20))}" "$answer"

# ---- a writethrough cache of 128 MiB: 32 MiB metadata (one extent), 64
# MiB data, room for LVM's spare metadata
step "lvCacheAppend writethrough 128"
adm_call 0 VXLvm::lvCacheAppend "$vg" "$lv" "$ssd" 128 writethrough
snapshot pvs
check "cached volume: attribute, mode, pool" "C writethrough [$pool]" \
    "${lv_attr[$lv]:0:1} ${lv_mode[$lv]} ${lv_pool[$lv]}"
check "pool data and metadata on $ssd, the placeholder over the rest" \
    "$ssd 67108864 $ssd 33554432 $ssd 0" \
    "${lv_dev[$cdata]-} ${lv_size[$cdata]-} ${lv_dev[$cmeta]-} ${lv_size[$cmeta]-} ${lv_dev[$placeholder]-} ${pv_free[$ssd]}"
echo "$lvs_a" >"$out/lvs-cached.txt"

step "I/O through the cache"
# Direct I/O, past the page cache. Written (write misses), then read until
# the policy has promoted some of it (read misses, then hits; promotion
# runs in the background), rewritten in place (write hits).
dd if=/dev/urandom of="$mnt/cached" bs=1M count=8 oflag=direct status=none
for ((try = 0; try < 20; try++)); do
    dd if="$mnt/cached" of=/dev/null bs=1M iflag=direct status=none
    read -r hits < <(lvs --noheadings -o cache_read_hits "$vg/$lv")
    [ "${hits:-0}" -eq 0 ] || break
    sleep 0.5
done
echo "read hits after $((try + 1)) read(s) of 8 MiB" >>"$out/times.txt"
dd if=/dev/urandom of="$mnt/cached" bs=1M count=8 conv=notrunc oflag=direct status=none

step "lvCacheExists, lvCacheDev, lvCacheDetail"
adm_call 0 VXLvm::lvCacheExists "$vg" "$lv"
check "lvCacheExists" '{"result":true}' "$answer"
adm_call 0 VXLvm::lvCacheDev "$vg" "$lv"
check "lvCacheDev" "{\"dev\":\"$ssd\",\"result\":true}" "$answer"
adm_call 0 VXLvm::lvCacheDetail "$vg" "$lv"
detail="$(jpart obj)"
check "lvCacheDetail keys" \
    "cache_dirty_blocks cache_mode cache_read_hits cache_read_misses cache_total_blocks cache_used_blocks cache_write_hits cache_write_misses cachepath copy_percent data_percent lvpath metadata_percent size" \
    "$(jkeys "$detail")"
read -r total_blocks pool_meta < <(lvs -a --noheadings --units b --nosuffix \
    -o cache_total_blocks,lv_metadata_size -S lv_name="$pool" "$vg")
check "lvCacheDetail: mode, blocks, size, cache disk against lvs" \
    "writethrough ${total_blocks-} $((${lv_size[$cdata]:-0} + 2 * ${pool_meta:-0})) $ssd" \
    "$(jvals "$detail" cache_mode cache_total_blocks size lvpath)"
check_match "lvCacheDetail: cachepath" "*${pool}_cdata(0)*" "$(jval cachepath "$detail")"
counters="$(jvals "$detail" cache_read_hits cache_read_misses cache_write_hits cache_write_misses)"
echo "cache counters after the I/O (read hits, misses, write hits, misses): $counters" |
    tee -a "$out/times.txt"
check_match "lvCacheDetail: every counter non-zero" "[1-9]* [1-9]* [1-9]* [1-9]*" "$counters"

step "vgCacheAlload x2, vgDetail, alload"
# Bound: the pool's data and metadata; free: the placeholder.
bound=$((${lv_size[$cdata]:-0} + ${lv_size[$cmeta]:-0})) free=${lv_size[$placeholder]:-0}
adm_call 0 VXLvm::vgCacheAlload
check "vgCacheAlload() against lvs -a" \
    "{\"result\":{\"$vg\":{\"capacity\":$((bound + free)),\"free\":$free,\"size\":$bound}}}" "$answer"
group_cache="$(jpart "$vg")"
# Per disk, the disk's last cache line in lvs' order decides.
last_size=0 last_free=0
read -r -a names <<<"$lv_names"
for name in "${names[@]}"; do
    [ "${lv_dev[$name]}" = "$ssd" ] || continue
    case "$name" in
        *_ssd_cache_cpool_cdata] | *_ssd_cache_cpool_cmeta]) last_size=${lv_size[$name]} last_free=0 ;;
        *_unused_cache) last_size=0 last_free=${lv_size[$name]} ;;
    esac
done
disk_figures="{\"capacity\":$((last_size + last_free)),\"dev\":\"$ssd\",\"free\":$last_free,\"size\":$last_size}"
adm_call 0 VXLvm::vgCacheAlload "$vg"
check "vgCacheAlload($vg) against lvs -a" "{\"result\":{\"$ssd\":$disk_figures}}" "$answer"
adm_call 0 VXLvm::vgDetail "$vg" false
caches="$(jpart caches)"
check "vgDetail: the cache disk's figures, size, role; the data disks" \
    "$((last_size + last_free)) $ssd $last_free $last_size $disk_bytes cache|$slow data|" \
    "$(jvals "$caches" capacity dev free size devsize role)|$(jvals "$(jpart disks)" dev role)|$(jpart availables)"
# The volume record's cache is lvCacheDetail's; the placeholder is no volume.
adm_call 0 VXLvm::alload
check "alload: the group's cache; volumes; the volume's type, cache mode and disk" \
    "$group_cache $lv lv+cache writethrough $ssd" \
    "$(jpart cache) $(jkeys "$(jtop "$(jpart lvs)")") $(jval type "$(jpart "$lv")") $(jvals "$(jpart cache "$(jpart "$lv")")" cache_mode lvpath)"

step "lvCacheRemove (writethrough)"
adm_call 0 VXLvm::lvCacheRemove "$vg" "$lv"
snapshot
check "volumes after lvCacheRemove, attribute, pool, placeholder" "$lv $placeholder|- |$whole" \
    "$lv_names|${lv_attr[$lv]:0:1} ${lv_pool[$lv]}|${lv_size[$placeholder]-}"
adm_call 0 VXLvmPrivate::availCacheSizeMb "$vg" "$ssd"
check "availCacheSizeMb after lvCacheRemove" "{\"result\":$((whole >> 20))}" "$answer"
data_intact "the writethrough cache"

# ---- writeback over the whole placeholder: one extent (32 MiB, vgCreate's
# default) of metadata, the data all but two extents
step "lvCacheAppend writeback 0, lvCacheRemove"
adm_call 0 VXLvm::lvCacheAppend "$vg" "$lv" "$ssd" 0 writeback
snapshot
check "cached volume (writeback): attribute, mode, pool data" \
    "C writeback $((whole - 2 * 33554432))" "${lv_attr[$lv]:0:1} ${lv_mode[$lv]} ${lv_size[$cdata]-}"
dd if=/dev/urandom of="$mnt/cached" bs=1M count=8 conv=notrunc oflag=direct status=none
adm_call 0 VXLvm::lvCacheRemove "$vg" "$lv"
snapshot
check "volumes after lvCacheRemove (writeback), attribute, placeholder" \
    "$lv $placeholder - $whole" "$lv_names ${lv_attr[$lv]:0:1} ${lv_size[$placeholder]-}"
data_intact "the writeback cache"

# ---- refused: nothing runs, nothing changes
step "probes"
lvs_before="$lvs_a" commands_before="$(wc -l <"$TMPDIR/commands.log")"
adm_call 1 VXLvm::lvCacheAppend "$vg" "$lv" "$ssd" 64 WriteBack
check "lvCacheAppend mode WriteBack" 9922 "$(jval result)"
check "commands run for mode WriteBack" "" "$(tail -n +$((commands_before + 1)) "$TMPDIR/commands.log")"
snapshot
check "lvs -a after the refused lvCacheAppend" "$lvs_before" "$lvs_a"
adm_call 1 VXLvm::lvCacheRemove "$vg" "$lv"
check "lvCacheRemove of a volume without cache" 9994 "$(jval result)"

# ---- the cache disk leaves, wiped
step "vgCacheRemove"
adm_call 0 VXLvm::vgCacheRemove "$vg" "$ssd"
check "vgCacheRemove" '{"result":0}' "$answer"
snapshot pvs
check "PVs and volumes after vgCacheRemove" "$slow $lv" "$pv_names $lv_names"
check "signatures on $ssd after vgCacheRemove" "" "$(blkid -p -o export "$ssd" 2>&1)"
data_intact "vgCacheRemove"

step "inventory after"
inventory after
step ""
echo "script: $(cut -d' ' -f1 /proc/uptime) s since boot" >>"$out/times.txt"
finish
