#!/bin/bash
# In the guest, six blank disks on one bus: two partitions in a raid1, a
# whole-disk LVM PV, a mounted ext4, a stale md signature and a blank disk.
# nasbroltadm's inventory must say what each is used for, as the tools
# themselves see it; then the health readings, wipefs and removePart.
#   disks.sh NASBROLTADM      (NBTEST_DIR: this directory)
set -uo pipefail
. "$NBTEST_DIR/lib.sh"
adm_bin="$1"
out="$NBGUEST_ARTIFACTS"
export NASBROLT_TOOLS="$NBTEST_DIR/tools"

# adm STATUS ARG...: runs nasbroltadm -r, checks its exit status, leaves
# what it printed in $answer. Few jq starts: each costs half a second here.
adm() {
    local expected="$1" status
    shift
    answer="$("$adm_bin" -r "$@" 2>"$out/adm.err")"
    status=$?
    check "exit status of nasbroltadm $*" "$expected" "$status"
    [ "$status" = "$expected" ] || cat "$out/adm.err" >&2
}

settle() { udevadm settle -t 30; }

# ---- 1. the disks, by serial
read -r -a serials <<<"$NBGUEST_SERIALS"
disks=()
for s in "${serials[@]}"; do
    d="$(disk_by_serial "$s")" || { fail "no disk with serial $s in /dev/disk/by-id"; finish; }
    disks+=("$d")
done
check "disks" 6 "${#disks[@]}"
raid_a="${disks[0]}" raid_b="${disks[1]}" pv="${disks[2]}" data="${disks[3]}"
stale="${disks[4]}" blank="${disks[5]}"

# ---- 2. createPart on the raid disks and the data disk; a raid1 over two
for d in "$raid_a" "$raid_b" "$data"; do
    adm 0 VXDisk::createPart "$d"
    check "createPart $d" '{"result":true}' "$answer"
done
settle
part_a="$(partitions_of "$raid_a")" part_b="$(partitions_of "$raid_b")"
part_data="$(partitions_of "$data")"
check_match "partition of $raid_a" "$raid_a*1" "$part_a"
check_match "partition of $raid_b" "$raid_b*1" "$part_b"
check_match "partition of $data" "$data*1" "$part_data"
require "raid1" mdadm --create /dev/md0 --level=1 --raid-devices=2 --metadata=1.2 \
    --assume-clean --run "$part_a" "$part_b" </dev/null

# ---- 3. a whole-disk physical volume in a volume group
require "pvcreate" pvcreate -ff -y "$pv"
require "vgcreate" vgcreate nbvg "$pv"

# ---- 4. ext4 on a partition, mounted
adm 0 VXFileSystem::create ext4 "$part_data" 0
check_match "VXFileSystem::create" '{*"result":true*}' "$answer"
mkdir -p /mnt/data
require "mount" mount "$part_data" /mnt/data

# ---- 5. a stale md signature: a degraded array that is stopped again
require "partition" parted -s "$stale" mklabel gpt mkpart data 1MiB 100% set 1 raid on
settle
part_stale="$(partitions_of "$stale")"
require "stale raid1" mdadm --create /dev/md1 --level=1 --raid-devices=2 --metadata=1.2 \
    --run "$part_stale" missing </dev/null
# udev sees the member change when mdadm closes it and assembles what it
# finds (64-md-raid-assembly.rules): let that happen while md1 still runs.
settle
require "stop" mdadm --stop /dev/md1
settle
check "md1 after stopping it" "" "$(grep '^md1 ' /proc/mdstat)"
check "signature on $part_stale" linux_raid_member "$(blkid -p -o value -s TYPE "$part_stale")"

# ---- 6. the inventory
adm 0 VXDisk::allist
inventory="$answer"
echo "$inventory" >"$out/allist.json"
lsblk -a -o NAME,TYPE,SIZE,TRAN,VENDOR,MODEL,SERIAL,FSTYPE,MOUNTPOINT >"$out/lsblk.txt"
check "records (six disks and md0)" 7 "$(jq '.result | length' <<<"$inventory")"

case "$NBGUEST_BUS" in
    virtio) bus_view="|0x1af4|" ;;
    scsi) bus_view="|QEMU*|QEMU HARDDISK" ;;
    sata) bus_view="sata|ATA*|NBDISK-SATA" ;;
    nvme) bus_view="nvme|*|QEMU NVMe Ctrl" ;;
    usb) bus_view="usb|QEMU*|QEMU HARDDISK" ;;
esac
declare -A flags=(
    ["$raid_a"]='{"raid":1,"lvm":0,"mounted":0,"used":1,"system":0}'
    ["$raid_b"]='{"raid":1,"lvm":0,"mounted":0,"used":1,"system":0}'
    ["$pv"]='{"raid":0,"lvm":1,"mounted":0,"used":1,"system":0}'
    ["$data"]='{"raid":0,"lvm":0,"mounted":1,"used":1,"system":0}'
    ["$stale"]='{"raid":0,"lvm":0,"mounted":0,"used":0,"system":0}'
    ["$blank"]='{"raid":0,"lvm":0,"mounted":0,"used":0,"system":0}'
)
# One jq for all disks: a jq start costs half a second under emulation.
declare -A lsblk_view lsblk_serial
while IFS=$'\t' read -r d view serial; do
    lsblk_view[$d]="$view"
    lsblk_serial[$d]="$serial"
done < <(lsblk -dJ -o PATH,TRAN,VENDOR,MODEL,SERIAL "${disks[@]}" |
    jq -r '.blockdevices[] | map_values(. // "") |
        [.path, ({tran, vendor, model} | tojson), .serial] | @tsv')
seen=0
while IFS=$'\t' read -r d base view bus flag mountpoint; do
    seen=$((seen + 1))
    bytes="$(blockdev --getsize64 "$d")"
    check "$d dev, name, type, size, capacity" \
        "{\"dev\":\"$d\",\"name\":\"${d#/dev/}\",\"type\":\"disk\",\"size\":$bytes,\"capacity\":$bytes}" \
        "$base"
    check "$d tran, vendor, model as lsblk prints them" "${lsblk_view[$d]}" "$view"
    check_match "$d tran|vendor|model on $NBGUEST_BUS" "$bus_view" "$bus"
    check "$d flags" "${flags[$d]}" "$flag"
    [ "$d" != "$data" ] || check "mountpoint of $data" /mnt/data "$mountpoint"
done < <(jq -r '.result as $r | $ARGS.positional[] as $d | $r[$d] // empty |
    [$d, ({dev, name, type, size, capacity} | tojson), ({tran, vendor, model} | tojson),
     "\(.tran)|\(.vendor)|\(.model)",
     ({raid, lvm, mounted, used, system: (.system // 0)} | tojson), (.mountpoint // "")] | @tsv' \
    --args "${disks[@]}" <<<"$inventory")
check "disk records in allist" 6 "$seen"
check "the array's record" \
    '{"dev":"/dev/md0","md":"/dev/md0","level":1,"model":"RAID-1","type":"raid1"}' \
    "$(jq -c '.result["/dev/md0"] | {dev, md, level, model, type}' <<<"$inventory")"

# ---- 7. the disk list with serials
adm 0 VXDisk::alload true true true true
echo "$answer" >"$out/alload.json"
declare -A alload_serial
while IFS=$'\t' read -r d serial; do
    alload_serial[$d]="$serial"
done < <(jq -r '.result[] | [.dev, .serial] | @tsv' <<<"$answer")
for i in "${!disks[@]}"; do
    d="${disks[$i]}"
    check "serial lsblk prints for $d" "${serials[$i]}" "${lsblk_serial[$d]}"
    check "alload serial of $d" "${lsblk_serial[$d]}" "${alload_serial[$d]-(none)}"
done

# ---- 8. the tools' own view of the same
cat /proc/mdstat >"$out/mdstat.txt"
check_match "md0 in /proc/mdstat" "md0 : active raid1 *" "$(grep '^md0 ' /proc/mdstat)"
for p in "$part_a" "$part_b"; do
    grep -q "^md0 .* ${p#/dev/}\[" /proc/mdstat || fail "/proc/mdstat: md0 has no member ${p#/dev/}"
done
check "arrays in /proc/mdstat" 1 "$(grep -c '^md' /proc/mdstat)"
read -r pv_name vg_name < <(pvs --noheadings -o pv_name,vg_name)
check "pvs" "$pv nbvg" "$pv_name $vg_name"
check "/proc/mounts" "/mnt/data ext4" \
    "$(awk -v p="$part_data" '$1 == p { print $2, $3 }' /proc/mounts)"

# ---- 9. health, where the bus reports it
if [ "$NBGUEST_BUS" = sata ] || [ "$NBGUEST_BUS" = nvme ]; then
    smartctl -aj "$blank" >"$out/smartctl.json"
    adm 0 VXDisk::smartInfo "$blank"
    echo "$answer" >"$out/smartinfo.json"
    check_match "smartInfo rows" '*"rows":\[{*' "$answer"
    if [ "$NBGUEST_BUS" = nvme ]; then
        # The rows are the health log's fields, all with ID 0.
        check "smartInfo result, IDs, names" \
            "$(jq -c '{result: 0, ids: [0], names: (.nvme_smart_health_information_log | keys)}' \
                "$out/smartctl.json")" \
            "$(jq -c '{result, ids: ([.rows[].ID] | unique), names: ([.rows[].ATTRIBUTE_NAME] | sort)}' \
                <<<"$answer")"
        adm 0 VXDisk::temperature "$blank"
        check "temperature" \
            "{\"result\":true,\"celsius\":$(smartctl -A "$blank" | awk '$1 == "Temperature:" { print $2 }')}" \
            "$(jq -c '{result, celsius}' <<<"$answer")"
    else
        check "smartInfo result, IDs" \
            "$(jq -c '{result: 0, ids: [.ata_smart_attributes.table[].id]}' "$out/smartctl.json")" \
            "$(jq -c '{result, ids: [.rows[].ID]}' <<<"$answer")"
        # qemu's SATA disks report no Temperature_Celsius attribute.
        adm 1 VXDisk::temperature "$blank"
        check_match "temperature" '{*"result":false*}' "$answer"
    fi
fi

# ---- 10. wipefs and removePart
adm 0 VXDisk::wipefs "$part_stale" false
check "wipefs $part_stale" '{"result":true}' "$answer"
check "signature left on $part_stale" "" "$(blkid -p -o value -s TYPE "$part_stale")"
mdadm -E "$part_stale" >/dev/null 2>&1 && fail "mdadm -E still finds a superblock on $part_stale"
require "umount" umount /mnt/data
adm 0 VXDisk::removePart "$data"
check "removePart $data" '{"result":true}' "$answer"
settle
check "partitions left on $data" "" "$(partitions_of "$data")"
check "partition table left on $data" "" "$(blkid -p -o value -s PTTYPE "$data")"

finish
