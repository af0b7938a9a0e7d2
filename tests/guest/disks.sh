#!/bin/bash
# In the guest, six blank disks on one bus: two partitions in a raid1, a
# whole-disk LVM PV, a mounted ext4, a stale md signature and a blank disk.
# nasbroltadm's inventory must say what each is used for, as the tools
# themselves see it; then the health readings, wipefs and removePart. With
# several buses (guest.sh -b virtio,scsi,...) each bus's six disks in turn
# in the one boot: the whole of it on nvme (its partitions are named
# nvme0n1p1), on the other buses the inventory of their blank disks and the
# health readings (under emulation the set-up costs some twenty seconds a
# bus, and the usage rule does not depend on the bus).
#   disks.sh NASBROLTADM      (NBTEST_DIR: this directory)
set -uo pipefail
. "$NBTEST_DIR/lib.sh"
adm_bin="$1"
out="$NBGUEST_ARTIFACTS"
export NASBROLT_TOOLS="$NBTEST_DIR/tools"

# adm STATUS ARG...: runs nasbroltadm -r, checks its exit status, leaves
# what it printed in $answer. Few jq starts: each costs half a second here.
adm() {
    local expected="$1" status err="${TMPDIR:-/tmp}/nbtest-adm.$BASHPID.err"
    shift
    answer="$("$adm_bin" -r "$@" 2>"$err")"
    status=$?
    check "exit status of nasbroltadm $*" "$expected" "$status"
    [ "$status" = "$expected" ] || cat "$err" >&2
}

settle() { udevadm settle -t 30; }

# Several buses: this script once per bus on its six disks (NBTEST_FULL=1
# for the whole of it). The Nth bus (from 0) names its arrays mdN and md1N
# and its volume group nbvgN; what the buses before it set up stays.
if [[ "$NBGUEST_BUS" == *,* ]]; then
    read -r -a serials <<<"$NBGUEST_SERIALS"
    k=0 arrays=0
    for bus in ${NBGUEST_BUS//,/ }; do
        full=0
        [ "$bus" != nvme ] || full=1
        echo "---- $bus"
        mkdir -p "$out/$bus"
        NBGUEST_BUS="$bus" NBGUEST_SERIALS="${serials[*]:k*6:6}" NBGUEST_ARTIFACTS="$out/$bus" \
            NBTEST_BUS_INDEX=$k NBTEST_FULL=$full NBTEST_ARRAYS=$arrays bash "$0" "$@" ||
            fail "disks on $bus: see above"
        k=$((k + 1)) arrays=$((arrays + full))
    done
    finish
fi
k="${NBTEST_BUS_INDEX:-0}" full="${NBTEST_FULL:-1}"
# The arrays the buses before this one left running.
arrays_before="${NBTEST_ARRAYS:-0}"
raid_md="/dev/md$k" stale_md="/dev/md1$k" vg="nbvg$k"

# ---- 1. the disks, by serial
find_disks 6
raid_a="${disks[0]}" raid_b="${disks[1]}" pv="${disks[2]}" data="${disks[3]}"
stale="${disks[4]}" blank="${disks[5]}"

if [ "$full" = 1 ]; then
    # ---- 2. side by side, each on disks of its own: createPart on the raid
    # disks and the data disk (seconds of parted runs each), a whole-disk LVM
    # PV in a volume group, and a stale md signature
    create_part() {
        adm 0 VXDisk::createPart "$1"
        check "createPart $1" '{"result":true}' "$answer"
    }
    pv_in_group() {
        require "pvcreate" pvcreate -ff -y "$pv"
        require "vgcreate" vgcreate "$vg" "$pv"
    }
    # A degraded array that is stopped again.
    stale_signature() {
        local part
        require "partition" parted -s "$stale" mklabel gpt mkpart data 1MiB 100% set 1 raid on
        settle
        part="$(partitions_of "$stale")"
        require "stale raid1" mdadm --create "$stale_md" --level=1 --raid-devices=2 --metadata=1.2 \
            --run "$part" missing </dev/null
        # udev sees the member change when mdadm closes it and assembles what it
        # finds (64-md-raid-assembly.rules): let that happen while the array
        # still runs.
        settle
        require "stop" mdadm --stop "$stale_md"
        settle
        check "$stale_md after stopping it" "" "$(grep "^${stale_md#/dev/} " /proc/mdstat)"
        check "signature on $part" linux_raid_member "$(blkid -p -o value -s TYPE "$part")"
    }
    for d in "$raid_a" "$raid_b" "$data"; do in_background create_part "$d"; done
    in_background pv_in_group
    in_background stale_signature
    join_background
    settle
    part_a="$(partitions_of "$raid_a")" part_b="$(partitions_of "$raid_b")"
    part_data="$(partitions_of "$data")" part_stale="$(partitions_of "$stale")"
    check_match "partition of $raid_a" "$raid_a*1" "$part_a"
    check_match "partition of $raid_b" "$raid_b*1" "$part_b"
    check_match "partition of $data" "$data*1" "$part_data"

    # ---- 3. a raid1 over the two partitions
    require "raid1" mdadm --create "$raid_md" --level=1 --raid-devices=2 --metadata=1.2 \
        --assume-clean --run "$part_a" "$part_b" </dev/null

    # ---- 4. ext4 on a partition, mounted
    adm 0 VXFileSystem::create ext4 "$part_data" 0
    check_match "VXFileSystem::create" '{*"result":true*}' "$answer"
    mkdir -p /mnt/data
    require "mount" mount "$part_data" /mnt/data
fi

# ---- 5. the inventory, read beside the disk list of step 6
adm_into() {
    local file="$1"
    shift
    adm "$@"
    printf '%s\n' "$answer" >"$file"
}
in_background adm_into "$out/allist.json" 0 VXDisk::allist
in_background adm_into "$out/alload.json" 0 VXDisk::alload true true true true
join_background
inventory="$(<"$out/allist.json")" alload="$(<"$out/alload.json")"
lsblk -a -o NAME,TYPE,SIZE,TRAN,VENDOR,MODEL,SERIAL,FSTYPE,MOUNTPOINT >"$out/lsblk.txt"
# One for each disk in the guest, on this bus or not, and for the arrays of
# this bus and of those before it.
arrays=$((arrays_before + full))
check "records (the guest's $NBGUEST_DISKS disks and $arrays arrays)" $((NBGUEST_DISKS + arrays)) \
    "$(jq '.result | length' <<<"$inventory")"

case "$NBGUEST_BUS" in
    virtio) bus_view="|0x1af4|" ;;
    scsi) bus_view="|QEMU*|QEMU HARDDISK" ;;
    sata) bus_view="sata|ATA*|NBDISK-SATA" ;;
    nvme) bus_view="nvme|*|QEMU NVMe Ctrl" ;;
    usb) bus_view="usb|QEMU*|QEMU HARDDISK" ;;
esac
unused='{"raid":0,"lvm":0,"mounted":0,"used":0,"system":0}'
declare -A flags=(
    ["$raid_a"]="$unused" ["$raid_b"]="$unused" ["$pv"]="$unused" ["$data"]="$unused"
    ["$stale"]="$unused" ["$blank"]="$unused"
)
if [ "$full" = 1 ]; then
    flags["$raid_a"]='{"raid":1,"lvm":0,"mounted":0,"used":1,"system":0}'
    flags["$raid_b"]='{"raid":1,"lvm":0,"mounted":0,"used":1,"system":0}'
    flags["$pv"]='{"raid":0,"lvm":1,"mounted":0,"used":1,"system":0}'
    flags["$data"]='{"raid":0,"lvm":0,"mounted":1,"used":1,"system":0}'
fi
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
    [ "$full" = 0 ] || [ "$d" != "$data" ] || check "mountpoint of $data" /mnt/data "$mountpoint"
done < <(jq -r '.result as $r | $ARGS.positional[] as $d | $r[$d] // empty |
    [$d, ({dev, name, type, size, capacity} | tojson), ({tran, vendor, model} | tojson),
     "\(.tran)|\(.vendor)|\(.model)",
     ({raid, lvm, mounted, used, system: (.system // 0)} | tojson), (.mountpoint // "")] | @tsv' \
    --args "${disks[@]}" <<<"$inventory")
check "disk records in allist" 6 "$seen"
if [ "$full" = 1 ]; then
    check "the array's record" \
        "{\"dev\":\"$raid_md\",\"md\":\"$raid_md\",\"level\":1,\"model\":\"RAID-1\",\"type\":\"raid1\"}" \
        "$(jq -c --arg md "$raid_md" '.result[$md] | {dev, md, level, model, type}' <<<"$inventory")"
fi

# ---- 6. the disk list with serials
declare -A alload_serial
while IFS=$'\t' read -r d serial; do
    alload_serial[$d]="$serial"
done < <(jq -r '.result[] | [.dev, .serial] | @tsv' <<<"$alload")
for i in "${!disks[@]}"; do
    d="${disks[$i]}"
    check "serial lsblk prints for $d" "${serials[$i]}" "${lsblk_serial[$d]}"
    check "alload serial of $d" "${lsblk_serial[$d]}" "${alload_serial[$d]-(none)}"
done

if [ "$full" = 1 ]; then
    # ---- 7. the tools' own view of the same
    cat /proc/mdstat >"$out/mdstat.txt"
    check_match "$raid_md in /proc/mdstat" "${raid_md#/dev/} : active raid1 *" \
        "$(grep "^${raid_md#/dev/} " /proc/mdstat)"
    for p in "$part_a" "$part_b"; do
        grep -q "^${raid_md#/dev/} .* ${p#/dev/}\[" /proc/mdstat ||
            fail "/proc/mdstat: $raid_md has no member ${p#/dev/}"
    done
    check "arrays in /proc/mdstat" "$arrays" "$(grep -c '^md' /proc/mdstat)"
    read -r pv_name vg_name < <(pvs --noheadings -o pv_name,vg_name "$pv")
    check "pvs" "$pv $vg" "$pv_name $vg_name"
    check "/proc/mounts" "/mnt/data ext4" \
        "$(awk -v p="$part_data" '$1 == p { print $2, $3 }' /proc/mounts)"
fi

# ---- 8. health, where the bus reports it
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

if [ "$full" = 1 ]; then
    # ---- 9. wipefs and removePart, side by side
    wipe_stale() {
        adm 0 VXDisk::wipefs "$part_stale" false
        check "wipefs $part_stale" '{"result":true}' "$answer"
        check "signature left on $part_stale" "" "$(blkid -p -o value -s TYPE "$part_stale")"
        ! mdadm -E "$part_stale" >/dev/null 2>&1 || fail "mdadm -E still finds a superblock on $part_stale"
    }
    remove_data() {
        require "umount" umount /mnt/data
        adm 0 VXDisk::removePart "$data"
        check "removePart $data" '{"result":true}' "$answer"
        settle
        check "partitions left on $data" "" "$(partitions_of "$data")"
        check "partition table left on $data" "" "$(blkid -p -o value -s PTTYPE "$data")"
    }
    in_background wipe_stale
    in_background remove_data
    join_background
fi

finish
