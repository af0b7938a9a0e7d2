#!/bin/bash
# In the guest, the real daemon in a sandbox root whose proc is the real
# one: nasbroltctl reads and sets md's resync speed limits, which must be
# what /proc/sys/dev/raid holds; 0 0 restores the kernel's defaults.
#   raid-speed.sh NASBROLTADM NASBROLT NASBROLTCTL      (NBTEST_DIR: this directory)
set -uo pipefail
# shellcheck source=tests/guest/lib.sh
. "$NBTEST_DIR/lib.sh"
adm_bin="$1" daemon="$2" ctl="$3"
out="$NBGUEST_ARTIFACTS"
limits=/proc/sys/dev/raid
modprobe md_mod

base="$(mktemp -d)"
mkdir -p "$base/root" "$base/tmp"
ln -s /proc "$base/root/proc"
export NASBROLT_ROOT="$base/root" TMPDIR="$base/tmp" NASBROLT_TOOLS="$NBTEST_DIR/tools"

kernel() { echo "$(cat $limits/speed_limit_max) $(cat $limits/speed_limit_min)"; }
check "kernel defaults" "200000 1000" "$(kernel)"

"$daemon" >"$out/nasbrolt.out" 2>&1 </dev/null &
pid=$!
wait_until 20 test -S "$TMPDIR/QUILLO_BROLT_TELMAR_ORVO" ||
    { fail "no daemon socket after 20 s: $(cat "$out/nasbrolt.out")"; kill "$pid"; finish; }

# ctl STATUS COMMAND [PARAM...]: nasbroltctl -r, exit status checked; the
# answer's "err" and "results" in $answer.
ctl() {
    local expected="$1" status
    shift
    answer="$("$ctl" -r "$@" 2>"$out/ctl.err")"
    status=$?
    check "exit status of nasbroltctl $*" "$expected" "$status"
    [ "$status" = "$expected" ] || cat "$out/ctl.err" >&2
    answer="$(jq -c '{err, results}' <<<"$answer")"
}

ctl 0 raid_limit_speeds
check "raid_limit_speeds" '{"err":0,"results":{"max":200000,"min":1000}}' "$answer"

ctl 0 raid_limit_speeds_change max:=150000 min:=5000
check "raid_limit_speeds_change" '{"err":0,"results":null}' "$answer"
check "/proc/sys/dev/raid after the change" "150000 5000" "$(kernel)"
ctl 0 raid_limit_speeds
check "raid_limit_speeds after the change" '{"err":0,"results":{"max":150000,"min":5000}}' "$answer"
# The library itself, without the daemon, reads the same.
adm_call 0 VXRaid::limitSpeeds
check "VXRaid::limitSpeeds" '{"max":150000,"min":5000}' "$answer"

# Out of range: a maximum below 1 is the default, a minimum beyond int is
# clamped, and the kernel takes it.
ctl 0 raid_limit_speeds_change max:=-5 min:=2000000000000
check "/proc/sys/dev/raid after -5 2000000000000" "200000 2147483647" "$(kernel)"

ctl 0 raid_limit_speeds_change max:=0 min:=0
check "/proc/sys/dev/raid after 0 0" "200000 1000" "$(kernel)"
ctl 0 raid_limit_speeds
check "raid_limit_speeds after 0 0" '{"err":0,"results":{"max":200000,"min":1000}}' "$answer"

# A child that has ended stays a zombie until it is waited for.
ended() { ! grep -qs '^State:[[:space:]]*[RSD]' "/proc/$pid/status"; }
kill -TERM "$pid"
if wait_until 10 ended; then
    wait "$pid"
    check "exit status of nasbrolt after SIGTERM" 0 "$?"
else
    fail "nasbrolt ($pid) still runs 10 s after SIGTERM"
    kill -KILL "$pid"
fi
finish
