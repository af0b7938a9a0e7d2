#!/bin/bash
# In the guest, eight blank disks and two arrays changed through
# nasbroltadm: a raid5 loses a member (mdadm --fail), takes a new disk
# (push) and rebuilds, lets the failed one go (pull) and grows from 3 to
# 4 disks (extend); a raid1 becomes a raid5 (grow); both are renamed; then
# repairAll brings back an auto-read-only and a stopped array. Beside the
# first steps, in the same boot to spare one, raid-speed.sh.
#   raid-reshape.sh NASBROLTADM NASBROLT NASBROLTCTL      (NBTEST_DIR: this directory)
set -uo pipefail
# shellcheck source=tests/guest/lib.sh
. "$NBTEST_DIR/lib.sh"
adm_bin="$1"
out="$NBGUEST_ARTIFACTS"
export NASBROLT_TOOLS="$NBTEST_DIR/tools"
# raid-speed.sh needs the kernel's default speed limits, which nothing here
# changes before md_fast_sync, and no disk.
speed_limits() {
    echo "---- speed limits"
    bash "$NBTEST_DIR/raid-speed.sh" "$@" || fail "speed limits: see above"
    echo "---- reshape"
}
in_background speed_limits "$@"
modprobe -a md_mod raid0 raid1 raid10 raid456

find_disks 8
a="${disks[0]}" b="${disks[1]}" c="${disks[2]}" d="${disks[3]}"
e="${disks[4]}" f="${disks[5]}" g="${disks[6]}" h="${disks[7]}"

part() { partitions_of "$1"; }

# create LEVEL DISK...: the new array's path in $md; the rest needs it.
create() {
    local level="$1"
    shift
    adm_create "raid$level on $*" "$level" "$(json_list "$@")" '[]'
    [ -n "$md" ] || finish
}

# watch_md MD WHAT: percents until nothing runs (60 s); what it reported on
# the way goes to $seen ("rebuild_percent=12% ...").
watch_md() {
    local deadline=$((SECONDS + 60))
    seen=""
    while :; do
        adm_call 0 VXRaid::percents "$1"
        [[ "$answer" =~ \"([a-z]+_percent)\":\"([^\"]*)\" ]] &&
            seen+="${BASH_REMATCH[1]}=${BASH_REMATCH[2]} "
        [[ "$answer" == *'"synching":1'* ]] || break
        [ "$SECONDS" -lt "$deadline" ] || { fail "$2: still running after 60 s: $answer"; break; }
        sleep 0.3
    done
    echo "$2: progress seen: ${seen:-none}"
    check "$2: still running by /proc/mdstat" "" \
        "$(grep -A3 "^${1#/dev/} " /proc/mdstat | grep -E 'resync|recovery|reshape')"
}

# md_row MD PART: the state mdadm -D gives PART in MD ("" when absent).
md_row() { md_rows "$1" | awk -v p="$2" '$1 == p { $1 = ""; sub(/^ /, ""); print }'; }

# ---- 1. a raid5 (x) over a, b, c and a raid1 (y) over e, f
create 5 "$a" "$b" "$c"
x="$md"
create 1 "$e" "$f"
y="$md"
join_background
md_fast_sync
watch_md "$x" "raid5 $x resync"
watch_md "$y" "raid1 $y resync"

# ---- 2. c fails: degraded
require "mdadm --fail" mdadm "$x" --fail "$(part "$c")"
adm_call 0 VXRaid::status "$x"
check "status of $x with a failed member" '{"faulty":1,"synching":1}' \
    "$(jq -c '.out | {faulty, synching}' <<<"$answer")"
adm_call 0 VXRaid::acquit "$x"
check_match "state of $x" "*degraded*" "$(jq -r .out.attributes.state <<<"$answer")"
check "failed member of $x" "$(part "$c") faulty" \
    "$(jq -r '.out.members[] | select(.dev == $d) | "\(.part) \(.state)"' --arg d "$c" <<<"$answer")"

# ---- 3. push d: recovery onto it, held back by the speed limits until
# percents has seen it on the way (however slow this guest runs), then to
# the end
echo 1 >/proc/sys/dev/raid/speed_limit_min
echo 1 >/proc/sys/dev/raid/speed_limit_max
adm_call 0 VXRaid::push "$x" "$(json_list "$d")"
check "push error" "" "$(jq -r .error <<<"$answer")"
udevadm settle -t 30
[ -n "$(md_row "$x" "$(part "$d")")" ] || fail "mdadm -D $x does not list $(part "$d") after push"
rebuild_seen() {
    adm_call 0 VXRaid::percents "$x"
    [[ "$answer" =~ \"rebuild_percent\":\"([^\"]*%)\" ]]
}
wait_until 60 rebuild_seen
check_match "recovery of $x seen by percents" '*"rebuild_percent":"*%"*' "$answer"
md_fast_sync
watch_md "$x" "recovery of $x"
mdadm -D "$x" >"$out/mdadm-D-recovered.txt"
adm_call 0 VXRaid::status "$x"
check "status of $x after the recovery" '{"faulty":1,"synching":0}' \
    "$(jq -c '.out | {faulty, synching}' <<<"$answer")"
check "mdadm -D state of $x after the recovery" clean "$(md_field "$x" State)"
check "mdadm -D active devices of $x" 3 "$(md_field "$x" "Active Devices")"
check "$(part "$d") in $x" "active sync" "$(md_row "$x" "$(part "$d")")"

# ---- 4. pull the failed member c (clean afterwards); a member of y is not
# one of x
adm_call 0 VXRaid::pull "$x" "$c"
check "pull $c" '{"error":"","result":0}' "$answer"
check "row of ${c}1 in $x after pull" "" "$(md_row "$x" "${c}1")"
check "total devices of $x after pull" 3 "$(md_field "$x" "Total Devices")"
check_clean_disk "$c"
if [ -n "$(md_row "$x" "${c}1")" ]; then
    # Out of the way by hand, so that the steps below test what they should.
    mdadm "$x" --remove "${c}1" >/dev/null 2>&1
    mdadm --zero-superblock "${c}1" >/dev/null 2>&1
    wipefs -qa "$c" 2>/dev/null
    udevadm settle -t 30
fi
adm_call 1 VXRaid::pull "$x" "$e"
check "pull of a non-member" 9994 "$(jq .result <<<"$answer")"
check "$(part "$e") in $y after pulling it from $x" "active sync" "$(md_row "$y" "$(part "$e")")"

# ---- 5. extend x with h: 3 -> 4 disks, reshaped to the end
adm_call 0 VXRaid::extend "$x" "$(json_list "$h")"
check "extend error" "" "$(jq -r .error <<<"$answer")"
watch_md "$x" "reshape of $x"
mdadm -D "$x" >"$out/mdadm-D-extended.txt"
check "raid devices of $x after extend" 4 "$(md_field "$x" "Raid Devices")"
check "state of $x after extend" clean "$(md_field "$x" State)"
adm_call 0 VXRaid::acquit "$x"
mapfile -t working < <(printf '%s\n' "$(part "$a")" "$(part "$b")" "$(part "$d")" "$(part "$h")" | sort)
check "acquit of $x after extend (working members)" \
    "{\"level\":5,\"raid_devices\":4,\"parts\":$(json_list "${working[@]}")}" \
    "$(jq -c '.out | {level, raid_devices: .attributes.raid_devices,
        parts: ([.members[] | select(.state | contains("faulty") | not) | .part] | sort)}' <<<"$answer")"

# ---- 6. grow y from raid1 to raid5 with g
adm_call 0 VXRaid::grow "$y" 5 "$(json_list "$g")"
check "grow error" "" "$(jq -r .error <<<"$answer")"
watch_md "$y" "reshape of $y"
mdadm -D "$y" >"$out/mdadm-D-grown.txt"
check "mdadm -D level, raid devices, state of $y" "raid5 3 clean" \
    "$(md_field "$y" "Raid Level") $(md_field "$y" "Raid Devices") $(md_field "$y" State)"
adm_call 0 VXRaid::acquit "$y"
check "acquit of $y after grow" '{"level":5,"raid_devices":3}' \
    "$(jq -c '.out | {level, raid_devices: .attributes.raid_devices}' <<<"$answer")"

# ---- 7. rename: x to /dev/md/NAME (md picks the number), y to /dev/md9
x_uuid="$(md_field "$x" UUID)" y_uuid="$(md_field "$y" UUID)"
adm_call 0 VXRaid::rename "$x" /dev/md/data
udevadm settle -t 30
cat /proc/mdstat >"$out/mdstat-renamed-data.txt"
ls -l /dev/md >>"$out/mdstat-renamed-data.txt" 2>&1
[ -L /dev/md/data ] || fail "no /dev/md/data after rename: $(ls /dev/md 2>&1)"
check "array behind /dev/md/data" "$x_uuid" "$(md_field /dev/md/data UUID)"
adm_call 0 VXRaid::acquit /dev/md/data
check "acquit of /dev/md/data" '{"md":"/dev/md/data","level":5,"raid_devices":4}' \
    "$(jq -c '.out | {md, level, raid_devices: .attributes.raid_devices}' <<<"$answer")"
adm_call 0 VXRaid::exists /dev/md/data
adm_call 0 VXRaid::rename "$y" /dev/md9
udevadm settle -t 30
cat /proc/mdstat >"$out/mdstat-renamed-md9.txt"
check_match "/dev/md9 in /proc/mdstat" "md9 : active *raid5 *" "$(grep '^md9 ' /proc/mdstat)"
check "array behind /dev/md9" "$y_uuid" "$(md_field /dev/md9 UUID)"
check "array still under the old name $y" "" "$(grep "^${y#/dev/} " /proc/mdstat)"
adm_call 1 VXRaid::exists "$y"
adm_call 0 VXRaid::acquit /dev/md9
check "acquit of /dev/md9" '{"md":"/dev/md9","level":5}' "$(jq -c '.out | {md, level}' <<<"$answer")"
adm_call 1 VXRaid::rename /dev/md77 /dev/md78
check "rename of an unknown array" 9994 "$(jq .result <<<"$answer")"

# ---- 8. repairAll: md9 auto-read-only (assembled while start_ro is 1, as
# the kernel leaves arrays after boot) and /dev/md/data stopped
echo 1 >/sys/module/md_mod/parameters/start_ro
require "stop md9" mdadm --stop /dev/md9
require "assemble md9" mdadm -A /dev/md9 "$(part "$e")" "$(part "$f")" "$(part "$g")"
require "stop /dev/md/data" mdadm --stop /dev/md/data
udevadm settle -t 30
cat /proc/mdstat >"$out/mdstat-before-repair.txt"
check_match "md9 before repairAll" "md9 : active (auto-read-only) raid5 *" "$(grep '^md9 ' /proc/mdstat)"
check "/dev/md/data before repairAll" "" "$(md_by_uuid "$x_uuid")"
adm_call 0 VXRaidPrivate::mdevices
check "quick list: md9 abnormals" '["(auto-read-only)"]' \
    "$(jq -c '.result[] | select(.dev == "/dev/md9") | .abnormals' <<<"$answer")"

adm_call 0 VXRaid::repairAll
udevadm settle -t 30
cat /proc/mdstat >"$out/mdstat-after-repair.txt"
adm_call 0 VXRaidPrivate::mdevices
quick="$answer"
for uuid in "$y_uuid" "$x_uuid"; do
    md="$(md_by_uuid "$uuid")"
    [ -n "$md" ] || { fail "array $uuid not assembled by repairAll: $(cat /proc/mdstat)"; continue; }
    check_match "$md ($uuid) in /proc/mdstat after repairAll" "${md#/dev/} : active raid5 *" \
        "$(grep "^${md#/dev/} " /proc/mdstat)"
    state="$(cat "/sys/block/${md#/dev/}/md/array_state")"
    [ "$state" = clean ] || [ "$state" = active ] ||
        fail "array_state of $md after repairAll: expected 'clean' or 'active', found '$state'"
    check "quick list of $md after repairAll" '{"active":1,"abnormals":[]}' \
        "$(jq -c --arg md "$md" '.result[] | select(.dev == $md) | {active, abnormals}' <<<"$quick")"
    adm_call 0 VXRaid::acquit "$md"
    check "acquit active, raid devices of $md after repairAll" "1 $(md_field "$md" "Raid Devices")" \
        "$(jq -r '"\(.out.active) \(.out.attributes.raid_devices)"' <<<"$answer")"
done

finish
