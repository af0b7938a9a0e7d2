#!/bin/bash
# In the guest, thirty blank disks (fifteen virtio, fifteen scsi):
# nasbroltadm creates arrays of every level (0, 1, 5 with a spare, 6, 10,
# 50, 60) side by side on disks found by serial, reads each back as mdadm -D
# sees it, and removes it, which must leave no array and clean disks. Arrays
# are created one at a time (each takes the first free md number), but read
# back and removed side by side.
#   raid-levels.sh NASBROLTADM      (NBTEST_DIR: this directory)
# Under emulation every process start counts: few jq and mdadm runs.
set -uo pipefail
# shellcheck source=tests/guest/lib.sh
. "$NBTEST_DIR/lib.sh"
adm_bin="$1"
out="$NBGUEST_ARTIFACTS"
export NASBROLT_TOOLS="$NBTEST_DIR/tools"
md_fast_sync

find_disks 30

# md_busy MD: /proc/mdstat shows a resync, recovery or reshape of MD. Read
# by the shell itself: a percents run is a process start.
md_busy() {
    local line in_md=0
    while IFS= read -r line; do
        if [[ "$line" == md* ]]; then
            in_md=0
            [[ "$line" != "${1#/dev/} : "* ]] || in_md=1
        elif [ "$in_md" = 1 ] && [[ "$line" =~ resync|recovery|reshape ]]; then
            return 0
        fi
    done </proc/mdstat
    return 1
}

# wait_synced MD: percents until nothing runs (60 s).
wait_synced() {
    local deadline=$((SECONDS + 60))
    while md_busy "$1" && [ "$SECONDS" -lt "$deadline" ]; do sleep 0.3; done
    while :; do
        adm_call 0 VXRaid::percents "$1"
        [[ "$answer" == *'"synching":1'* ]] || return 0
        [ "$SECONDS" -lt "$deadline" ] || { fail "$1 still synching after 60 s: $answer"; return 1; }
        sleep 0.3
    done
}

# What is left on the disks: arrays, partitions, signatures, md superblocks.
leftovers() {
    udevadm settle -t 30
    md_names | sed 's/^/array /'
    lsblk -lnpo NAME,TYPE "${disks[@]}" | awk '$2 != "disk" { print "device", $1, $2 }'
    blkid -p -o export "${disks[@]}" 2>/dev/null | grep -E '^(DEVNAME|PTTYPE|TYPE)=' | paste -sd' '
    mdadm -E --scan 2>/dev/null
}

# A failed round must not spoil the next: no array, blank disks.
scrub() {
    local md p
    # Twice: a sub-array stops only once its two-tier array has.
    for md in $(md_names) $(md_names); do mdadm -S "/dev/$md" >/dev/null 2>&1; done
    for p in $(lsblk -lnpo NAME,TYPE "${disks[@]}" | awk '$2 == "part" { print $1 }'); do
        mdadm --zero-superblock "$p" >/dev/null 2>&1
    done
    wipefs -qa "${disks[@]}" >/dev/null 2>&1
    udevadm settle -t 30
}

# The lines of stdin sorted, on one line.
sorted() { sort | paste -sd' '; }

# The arrays of the round: level, member disks and spare disks by path.
round=()
declare -A level_of members_of spares_of

# make_array LEVEL DISK... [-- SPARE...]
make_array() {
    local level="$1" arg members=() spares=() in_spares=0 t0=$SECONDS
    shift
    for arg in "$@"; do
        if [ "$arg" = -- ]; then
            in_spares=1
        elif [ "$in_spares" = 1 ]; then
            spares+=("$arg")
        else
            members+=("$arg")
        fi
    done
    local what="raid$level on ${members[*]}${spares:+ spares ${spares[*]}}"
    adm_create "$what" "$level" "$(json_list "${members[@]}")" "$(json_list "${spares[@]}")"
    echo "$what: $md in $((SECONDS - t0)) s"
    [ -n "$md" ] || return
    round+=("$md")
    level_of[$md]=$level members_of[$md]="${members[*]}" spares_of[$md]="${spares[*]}"
    # Read back while the next array is made: reading touches no disk of it.
    in_background read_back "$md"
}

# The partitions of disks $@ (one each).
parts_of() {
    [ $# -gt 0 ] || return 0
    lsblk -lnpo NAME,TYPE "$@" | awk '$2 == "part" { print $1 }'
}

# read_back MD: mdadm -D of the array (and of its sub-arrays) against
# acquit and status.
read_back() {
    local md="$1" s p
    local level=${level_of[$md]} subs=() sub_parts=()
    local -a members spares
    read -r -a members <<<"${members_of[$md]}"
    read -r -a spares <<<"${spares_of[$md]}"
    local what="raid$level $md" top_level=$level sublevel=$level size=${#members[@]}
    case "$level" in 50) top_level=0 sublevel=5 size=3 ;; 60) top_level=0 sublevel=6 size=4 ;; esac

    # The tools' view: mdadm -D of the array and of its sub-arrays.
    check_match "$what in /proc/mdstat" "${md#/dev/} : active raid$top_level *" \
        "$(grep "^${md#/dev/} " /proc/mdstat)"
    if [ "$level" -ge 50 ]; then
        for s in $(md_rows "$md" | awk '{ print $1 }'); do subs+=("$s"); done
        check "$what: sub-arrays" "$((${#members[@]} / size))" "${#subs[@]}"
        for s in "${subs[@]}"; do
            local sub
            sub="$(mdadm -D "$s")"
            check "$what: $s level, raid devices" "raid$sublevel $size" \
                "$(md_field_of "$sub" "Raid Level") $(md_field_of "$sub" "Raid Devices")"
            for p in $(md_rows_of "$sub" | awk '{ print $1 }'); do sub_parts+=("$p"); done
        done
        check "$what: partitions of the sub-arrays" "$(parts_of "${members[@]}" | sorted)" \
            "$(printf '%s\n' "${sub_parts[@]}" | sorted)"
    fi
    wait_synced "$md"
    local d
    d="$(mdadm -D "$md")"
    echo "$d" >"$out/mdadm-D-raid$level.txt"

    # acquit and status against it.
    local acquit got=()
    adm_call 0 VXRaid::acquit "$md"
    acquit="$answer"
    adm_call 0 VXRaid::status "$md"
    printf '%s\n' "$acquit" "$answer" >"$out/acquit-status-raid$level.json"
    mapfile -t got < <(jq -rn --argjson a "$acquit" --argjson s "$answer" '
        ($a.out | {md, dev, level, active} | tojson),
        ($a.out.attributes | "\(.raid_level) \(.raid_devices) \(.uuid) \(.state)"),
        ([$a.out.members[] | "\(.part) \(.state)"] + [$a.out.spares[] | "\(.part) spare"] | sort | join(";")),
        ([$a.out.members[].dev] | sort | join(" ")),
        ([$a.out.spares[].part] | sort | join(" ")),
        ($s.out | {faulty, synching, sync, used, note: .["//sync"]} | tojson)' 2>&1)
    check "$what: acquit md, dev, level, active" \
        "{\"md\":\"$md\",\"dev\":\"$md\",\"level\":$top_level,\"active\":1}" "${got[0]-}"
    check "$what: acquit raid_level, raid_devices, uuid, state" \
        "$(md_field_of "$d" "Raid Level") $(md_field_of "$d" "Raid Devices") $(md_field_of "$d" UUID) $(md_field_of "$d" State)" \
        "${got[1]-}"
    check "$what: acquit members and spares as mdadm -D lists them" \
        "$(md_rows_of "$d" | paste -sd';')" "${got[2]-}"
    if [ "$level" -lt 50 ]; then
        check "$what: member disks" "$(printf '%s\n' "${members[@]}" | sorted)" "${got[3]-}"
        check "$what: spares" "$(parts_of "${spares[@]}" | sorted)" "${got[4]-}"
    fi
    check "$what: status" \
        '{"faulty":0,"synching":0,"sync":0,"used":0,"note":"deprecated: -> synching"}' "${got[5]-}"
    if [ "${#spares[@]}" -gt 0 ]; then
        local ssd_status=0
        for s in "${members[@]}" "${spares[@]}"; do
            [ "$(<"/sys/block/${s#/dev/}/queue/rotational")" = 0 ] || ssd_status=1
        done
        adm_call "$ssd_status" VXRaid::isAllSsd "$md"
    fi
}

# adm_into FILE STATUS ARG...: adm_call, its answer kept in FILE.
adm_into() {
    local file="$1"
    shift
    adm_call "$@"
    printf '%s\n' "$answer" >"$file"
}

remove_array() {
    adm_call 0 VXRaid::remove "$1"
    check "raid${level_of[$1]} $1: remove" '{"error":"","result":0}' "$answer"
}

# Waits for the arrays' reading back, checks allist and alload, removes the
# arrays and checks the disks.
finish_round() {
    local md t0=$SECONDS
    join_background
    [ "${#round[@]}" -gt 0 ] || { scrub; return; }

    # allist: every array by its path; alload folds the sub-arrays into
    # their two-tier array.
    local allist alload names=() tmp="${TMPDIR:-/tmp}"
    in_background adm_into "$tmp/nbtest-allist" 0 VXRaid::allist
    in_background adm_into "$tmp/nbtest-alload" 0 VXRaid::alload
    join_background
    allist="$(<"$tmp/nbtest-allist")" alload="$(<"$tmp/nbtest-alload")"
    printf '%s\n' "$allist" "$alload" >"$out/allist-alload-${level_of[${round[0]}]}.json"
    mapfile -t names < <(jq -rn --argjson l "$allist" --argjson d "$alload" '
        ($l.result | keys | join(" ")),
        ($ARGS.positional[] as $md | ($l.result[$md] | {level, members} | tojson),
            ($d.result[$md] | if .submd then {level, levels,
                parts: ([.submd[].members[].part] | sort | join(" "))} else {level, members} end |
                tojson))' \
        --args "${round[@]}" 2>&1)
    check "arrays in allist" "$(md_names | sed 's|^|/dev/|' | sorted)" "${names[0]-}"
    local i=1
    for md in "${round[@]}"; do
        local level=${level_of[$md]} expected
        local -a members
        read -r -a members <<<"${members_of[$md]}"
        if [ "$level" -ge 50 ]; then
            local sub=$((level / 10)) n=$((${#members[@]} / (level == 50 ? 3 : 4))) levels
            levels="$(printf "$sub,%.0s" $(seq $n))"
            expected="{\"level\":0,\"levels\":[${levels%,}],\"parts\":\"$(parts_of "${members[@]}" | sorted)\"}"
        else
            expected="${names[$i]-}"
        fi
        check "raid$level $md: alload record" "$expected" "${names[$((i + 1))]-}"
        i=$((i + 2))
    done
    echo "round ${round[*]}: read back in $((SECONDS - t0)) s"

    # remove: no array left, every disk clean.
    t0=$SECONDS
    for md in "${round[@]}"; do in_background remove_array "$md"; done
    join_background
    adm_call 1 VXRaid::exists "${round[0]}"
    local left
    left="$(leftovers)"
    check "left after removing ${round[*]}" "" "$left"
    [ -z "$left" ] || scrub
    echo "round ${round[*]}: removed in $((SECONDS - t0)) s"
    round=()
}

a=("${disks[@]}")
make_array 0 "${a[0]}" "${a[1]}"
make_array 1 "${a[2]}" "${a[3]}"
make_array 5 "${a[4]}" "${a[5]}" "${a[6]}" -- "${a[7]}"
make_array 6 "${a[@]:8:4}"
make_array 10 "${a[@]:12:4}"
make_array 50 "${a[@]:16:6}"
make_array 60 "${a[@]:22:8}"
finish_round

finish
