#!/usr/bin/env bash
# scripts/run.sh in a throw-away sandbox: the daemon it starts restarts no
# service and rebuilds no initial RAM disk on this machine, its stubs note
# those calls in tools.log instead, and "run.sh stop" ends it.
#   sandbox_run.sh BUILD_DIR
# Exit 77: skipped (no build, or not root).
set -uo pipefail
checkout="$(cd "$(dirname "$0")/../.." && pwd)"
build="$(realpath -m -- "${1:?usage: $0 BUILD_DIR}")"
if [ ! -x "$build/nasbrolt" ] || [ ! -x "$build/nasbroltctl" ]; then
    echo "SKIP: $build/nasbrolt or nasbroltctl is missing; build them first"
    exit 77
fi
if [ "$(id -u)" -ne 0 ]; then
    echo "SKIP: needs root, as scripts/run.sh does"
    exit 77
fi

failures=0
fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}

sandbox="$(mktemp -d)"
pidfile="$sandbox/nasbrolt.pid"

# Only the daemon of this sandbox's pid file, and only while it is still ours.
daemon_alive() {
    local exe
    exe="$(readlink "/proc/$1/exe" 2>/dev/null)" || return 1
    [ "$exe" = "$build/nasbrolt" ] || [ "$exe" = "$build/nasbrolt (deleted)" ]
}

# The pid is kept once read: a faulty "run.sh stop" may drop the file and
# leave the daemon.
pid=""
cleanup() {
    [ -n "$pid" ] || pid="$(cat "$pidfile" 2>/dev/null)"
    if [ -n "$pid" ] && daemon_alive "$pid"; then
        kill -TERM "$pid"
        for _ in $(seq 100); do
            daemon_alive "$pid" || break
            sleep 0.1
        done
        daemon_alive "$pid" && kill -KILL "$pid"
    fi
    rm -rf "$sandbox"
}
trap cleanup EXIT
trap 'exit 1' INT TERM HUP

# What a restarted rsyslog or a rewritten configuration would change.
machine_state() {
    local files
    mapfile -t files < <(find /etc/rsyslog.conf /etc/rsyslog.d -type f 2>/dev/null | sort)
    if [ "${#files[@]}" -gt 0 ]; then
        stat -c '%n %y' "${files[@]}"
        sha256sum "${files[@]}"
    fi
    echo "is-active: $(systemctl is-active rsyslog 2>&1) rc=$?"
    echo "show: $(systemctl show -p ActiveEnterTimestamp rsyslog 2>&1) rc=$?"
    echo "rsyslogd: $(pgrep -x rsyslogd | sort -n | tr '\n' ' ')"
}

ctl() {
    TMPDIR="$sandbox/tmp" timeout 15 "$build/nasbroltctl" "$@"
}

run() {
    NASBROLT_SANDBOX="$sandbox" NASBROLT_RUN_NOBUILD=1 NASBROLT_BUILD="$build" \
        timeout "$1" bash "$checkout/scripts/run.sh" "${@:2}"
}

before="$(machine_state)"

if ! run 60 >"$sandbox/run.out" 2>&1; then
    cat "$sandbox/run.out" >&2
    fail "scripts/run.sh did not start the daemon"
    exit 1
fi
pid="$(cat "$pidfile" 2>/dev/null)"
daemon_alive "${pid:-0}" || fail "no daemon behind $pidfile after run.sh"

ctl system_working >/dev/null || fail "system_working: exit $?"
ctl raid_writeconfig >/dev/null || fail "raid_writeconfig: exit $?"
# The stub ends at once, so the refresh may be over already (9992: none running).
answer="$(ctl raid_writeconfig_waitfor timeout:=10000 2>&1)"
grep -Eq '"err": (0|9992)$' <<<"$answer" || fail "raid_writeconfig_waitfor: $answer"

# The daemon's sudo calls reach the sandbox's sudo; read-only verbs, so that
# a stub that let them through would still change nothing.
tools="$sandbox/tools"
"$tools/sudo" systemctl is-active rsyslog >"$sandbox/sudo.out" 2>&1 || fail "sudo systemctl: exit $?"
"$tools/sudo" -n -u root /usr/sbin/update-initramfs -h >>"$sandbox/sudo.out" 2>&1 ||
    fail "sudo -n -u root update-initramfs: exit $?"
"$tools/sudo" /bin/bash -c "/usr/bin/snapper -c ORVO_BASE_OS list" >>"$sandbox/sudo.out" 2>&1 ||
    fail "sudo bash -c snapper: exit $?"
[ -s "$sandbox/sudo.out" ] && fail "the stubs printed: $(cat "$sandbox/sudo.out")"
# shellcheck disable=SC2016 # expanded by the real sudo's bash
passed="$("$tools/sudo" /bin/bash -c 'echo "$((6 * 7))"' 2>&1)"
[ "$passed" = 42 ] || fail "sudo with another program: expected '42' from the real sudo, found '$passed'"

stopped="$(run 30 stop 2>&1)" || fail "run.sh stop: exit $?: $stopped"
daemon_alive "${pid:-0}" && fail "the daemon ($pid) still runs after run.sh stop"
[ -e "$pidfile" ] && fail "run.sh stop left $pidfile"

after="$(machine_state)"
[ "$before" = "$after" ] || fail "the machine changed:
$(diff <(echo "$before") <(echo "$after"))"

stamp='[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}'
for line in 'systemctl restart rsyslog' 'update-initramfs -u' 'systemctl is-active rsyslog' \
    'update-initramfs -h' '/usr/bin/snapper -c ORVO_BASE_OS list'; do
    grep -Eqx "$stamp $line" "$sandbox/tools.log" 2>/dev/null || fail "tools.log lacks '$line'"
done
grep -q 'echo' "$sandbox/tools.log" && fail "tools.log holds the call let through to sudo"
# The stub's exit status is what the daemon goes on with.
grep -q 'rsyslog restart failed' "$sandbox/root/var/log/nasbrolt.log" &&
    fail "the daemon saw its rsyslog restart fail"

if [ "$failures" -ne 0 ]; then
    echo "--- tools.log" >&2
    cat "$sandbox/tools.log" >&2
    echo "--- nasbrolt.log" >&2
    cat "$sandbox/root/var/log/nasbrolt.log" >&2
    echo "$failures check(s) failed" >&2
    exit 1
fi
echo "all checks passed"
