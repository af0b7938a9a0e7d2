#!/usr/bin/env bash
# The harness itself: a guest boots the stock kernel, runs a script with its
# arguments and environment, and hands back its output, exit status and
# artifacts; a guest over its limit, a guest that dies and a harness that is
# killed leave no qemu behind.
#   smoke.sh GUEST_SH
set -uo pipefail
. "$(dirname "$0")/lib.sh"
guest_sh="$1"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT

# Each harness ends with this script, and its qemu with it, should CTest
# kill this script at its timeout.
guest() {
    setpriv --pdeathsig KILL -- "$guest_sh" "$@"
}

# Every run gets a TMPDIR of its own: its qemu is the process whose command
# line names that directory.
qemu_of() {
    pgrep -f -- "-serial file:$1/" || true
}

cat >"$scratch/script.sh" <<'EOF'
echo "kernel $(uname -r)"
echo "args $#:$1|$2"
echo "env $SMOKE_VALUE"
echo "disk $(readlink -f /dev/disk/by-id/*NBDISK0)"
modprobe md_mod && echo "md $(head -1 /proc/mdstat | cut -d" " -f1)"
echo "to stderr" >&2
echo "artifact" >"$NBGUEST_ARTIFACTS/out.txt"
exit 3
EOF
mkdir "$scratch/run1"
TMPDIR="$scratch/run1" guest -d 1 -t 180 -e "SMOKE_VALUE=a b'c" -o "$scratch/artifacts" \
    "$scratch/script.sh" "one two" three >"$scratch/out" 2>"$scratch/err"
check "exit status of the script" 3 "$?"
out="$(cat "$scratch/out")"
check_match "guest kernel" "kernel *-amd64*" "$(sed -n 1p <<<"$out")"
[ "$(sed -n 1p <<<"$out")" != "kernel $(uname -r)" ] || fail "the guest ran the host's kernel"
check "arguments" "args 2:one two|three" "$(sed -n 2p <<<"$out")"
check "environment" "env a b'c" "$(sed -n 3p <<<"$out")"
check "disk by serial" "disk /dev/vda" "$(sed -n 4p <<<"$out")"
check "md in the guest kernel" "md Personalities" "$(sed -n 5p <<<"$out")"
grep -qx "to stderr" "$scratch/err" || fail "stderr: expected 'to stderr', found '$(cat "$scratch/err")'"
check "artifact" artifact "$(cat "$scratch/artifacts/out.txt" 2>&1)"
check "work directory removed" "" "$(ls "$scratch/run1")"

# A guest over its limit beside one that dies: neither waits for the other.
mkdir "$scratch/run2" "$scratch/run3"
TMPDIR="$scratch/run2" guest -t 4 - <<<"sleep 600" >/dev/null 2>"$scratch/err2" &
limited=$!
TMPDIR="$scratch/run3" guest -t 120 - <<<"echo o >/proc/sysrq-trigger; sleep 60" >/dev/null 2>"$scratch/err"
check "exit status of a guest that died" 125 "$?"
# What run.sh wrote to the console before the script: whether the kernel
# then powers down or panics (its init gone with the share) is a race.
grep -q "nbguest: script starts" "$scratch/err" || fail "no console log on stderr: $(tail -3 "$scratch/err")"
wait "$limited"
check "exit status over the limit" 124 "$?"
grep -q "did not finish within 4 s" "$scratch/err2" || fail "no timeout message: $(tail -3 "$scratch/err2")"
check "qemu left after the limit" "" "$(qemu_of "$scratch/run2")"

# As CTest ends a test at its timeout: SIGKILL to the harness alone.
mkdir "$scratch/run4"
TMPDIR="$scratch/run4" setpriv --pdeathsig KILL -- "$guest_sh" -t 120 - <<<"sleep 600" >/dev/null 2>&1 &
harness=$!
for _ in $(seq 100); do
    [ -z "$(qemu_of "$scratch/run4")" ] || break
    sleep 0.2
done
[ -n "$(qemu_of "$scratch/run4")" ] || fail "the killed run never started qemu"
kill -KILL "$harness"
wait "$harness" 2>/dev/null
for _ in $(seq 25); do
    [ -n "$(qemu_of "$scratch/run4")" ] || break
    sleep 0.2
done
check "qemu left after the harness was killed" "" "$(qemu_of "$scratch/run4")"
# Never leave it running, even when the check failed.
for pid in $(qemu_of "$scratch/run4"); do kill -KILL "$pid"; done

finish
