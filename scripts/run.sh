#!/usr/bin/env bash
# Builds nasbrolt and runs it in a sandbox inside the checkout:
#   scripts/run.sh          build, start (or keep running) and show it answering
#   scripts/run.sh stop     stop the sandboxed daemon
#   scripts/run.sh status   say whether it runs
# The daemon is the real one and runs the machine's real storage tools
# through sudo; only its fixed paths (/etc, /var/log, /orvo, /sys ...) live
# under sandbox/root, and its socket under sandbox/tmp. The programs that
# act on the machine's services, boot or snapshots (systemctl,
# update-initramfs, snapper, reboot ...) are replaced by the stubs in
# sandbox/tools, which only note the call in sandbox/tools.log.
# Environment:
#   NASBROLT_SANDBOX=DIR     the sandbox directory (default <checkout>/sandbox)
#   NASBROLT_RUN_NOBUILD=1   run the existing build as it is: no package
#                            check, no build
#   NASBROLT_BUILD=DIR       with NASBROLT_RUN_NOBUILD: the build directory
#                            to run instead of <checkout>/build
set -euo pipefail
# Relative overrides mean the caller's directory, so resolve them before cd.
sandbox="$(realpath -m -- "${NASBROLT_SANDBOX:-$(dirname "$0")/../sandbox}")"
build="$(realpath -m -- "${NASBROLT_BUILD:-$(dirname "$0")/../build}")"
cd "$(dirname "$0")/.."
pidfile="$sandbox/nasbrolt.pid"
tools="$sandbox/tools"
toolslog="$sandbox/tools.log"
export NASBROLT_ROOT="$sandbox/root"
export TMPDIR="$sandbox/tmp"
export NASBROLT_TOOLS="$tools"
ctl="$build/nasbroltctl"

# Programs that act on the machine's services, boot, power or snapshots
# rather than on storage. Nothing in the daemon runs reboot, poweroff,
# shutdown or halt today; their stubs are there so that nothing ever does
# from a sandbox.
substituted="systemctl update-initramfs snapper reboot poweroff shutdown halt"

running_pid() {
    local pid exe
    pid="$(cat "$pidfile" 2>/dev/null)" || return 1
    [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null || return 1
    exe="$(readlink "/proc/$pid/exe" 2>/dev/null)" || return 1
    # A rebuild replaces the binary under a running daemon.
    [ "$exe" = "$build/nasbrolt" ] || [ "$exe" = "$build/nasbrolt (deleted)" ] || return 1
    echo "$pid"
}

stop() {
    local pid
    if ! pid="$(running_pid)"; then
        echo "nasbrolt is not running in $sandbox"
        return 0
    fi
    kill -TERM "$pid"
    # It waits up to 5 s for its threads before it gives up on them.
    # An ended daemon may stay a zombie for a while; it has no exe link.
    for _ in $(seq 100); do
        readlink "/proc/$pid/exe" >/dev/null 2>&1 || break
        sleep 0.1
    done
    if readlink "/proc/$pid/exe" >/dev/null 2>&1; then
        echo "nasbrolt ($pid) did not end within 10 s of SIGTERM; killing it"
        kill -KILL "$pid" 2>/dev/null || true
    fi
    rm -f "$pidfile"
    echo "nasbrolt ($pid) stopped"
}

# The stubs: one line each in tools.log, exit 0, no output. None of the
# daemon's callers needs any: an empty "snapper list" names no snapshot to
# delete, and the rest only look at the exit status. A stub takes its name
# and the log's place from its own path, so the sandbox may be anywhere.
write_tools() {
    local name
    rm -rf "$tools"
    mkdir -p "$tools"
    for name in $substituted; do
        cat >"$tools/$name" <<'STUB'
#!/bin/sh
# Sandbox stand-in written by scripts/run.sh: notes the call, makes none.
printf '%s %s\n' "$(date '+%F %T')" "${0##*/}${*:+ $*}" >>"${0%/*}/../tools.log"
STUB
    done
    # sudo hands a stubbed program (also "/bin/bash -c SCRIPT" whose script
    # starts with one) to the stub and everything else to the real sudo.
    cat >"$tools/sudo" <<'STUB'
#!/bin/bash
# Sandbox stand-in for sudo, written by scripts/run.sh.
tools="${0%/*}"
stubbed() {
    local name="${1##*/}"
    [ -n "$name" ] && [ "$name" != sudo ] && [ -x "$tools/$name" ]
}
args=("$@")
i=0
# sudo's own options; those that take a value have it in the next word.
while [ "$i" -lt "${#args[@]}" ]; do
    case "${args[i]}" in
        --) i=$((i + 1)); break ;;
        -u | -g | -p | -C | -D | -r | -t | -U | -T) i=$((i + 2)) ;;
        -*) i=$((i + 1)) ;;
        *) break ;;
    esac
done
program="${args[i]:-}"
if stubbed "$program"; then
    exec "$tools/${program##*/}" "${args[@]:i+1}"
fi
if [[ ( "${program##*/}" == bash || "${program##*/}" == sh ) && "${args[i+1]:-}" == -c ]]; then
    script="${args[i+2]:-}"
    read -r first second _ <<<"$script"
    # The script may go through sudo again: "/usr/bin/sudo systemctl ...".
    [ "${first##*/}" = sudo ] && first="$second"
    if stubbed "$first"; then
        printf '%s %s\n' "$(date '+%F %T')" "$script" >>"$tools/../tools.log"
        exit 0
    fi
fi
exec /usr/bin/sudo "$@"
STUB
    chmod 755 "$tools"/*
}

case "${1:-start}" in
    stop) stop; exit 0 ;;
    status)
        if pid="$(running_pid)"; then echo "nasbrolt runs as $pid"; else echo "nasbrolt is not running"; fi
        exit 0 ;;
    start) ;;
    *) echo "usage: $0 [start|stop|status]" >&2; exit 2 ;;
esac

if [ -z "${NASBROLT_RUN_NOBUILD:-}" ]; then
    if [ -n "${NASBROLT_BUILD:-}" ]; then
        echo "run: NASBROLT_BUILD needs NASBROLT_RUN_NOBUILD=1 (a build goes to build/)" >&2
        exit 2
    fi
    bash scripts/setup.sh
    bash scripts/build.sh
fi
if [ ! -x "$build/nasbrolt" ]; then
    echo "run: no $build/nasbrolt" >&2
    exit 1
fi

mkdir -p "$NASBROLT_ROOT" "$TMPDIR"
# The dashboard reads these kernel files under the sandbox root: links to
# the real ones, read-only sources only (never /proc/sys or /sys/power,
# which the daemon writes).
for f in proc/meminfo proc/net/dev proc/version sys/class/net sys/devices/virtual/net; do
    if [ ! -e "$NASBROLT_ROOT/$f" ]; then
        mkdir -p "$(dirname "$NASBROLT_ROOT/$f")"
        ln -sfn "/$f" "$NASBROLT_ROOT/$f"
    fi
done
if pid="$(running_pid)"; then
    echo "nasbrolt already runs as $pid; restarting it with the new build"
    stop
fi
write_tools
# Its own session, so closing this terminal does not end it.
setsid "$build/nasbrolt" >"$sandbox/nasbrolt.out" 2>&1 < /dev/null &
echo $! > "$pidfile"

for _ in $(seq 100); do
    [ -S "$TMPDIR/QUILLO_BROLT_TELMAR_ORVO" ] && break
    sleep 0.1
done

echo
echo "nasbrolt runs as $(cat "$pidfile"), sandbox root $NASBROLT_ROOT"
echo
echo "\$ nasbroltctl system_working"
"$ctl" system_working
echo
echo "\$ nasbroltctl no_such_command"
"$ctl" no_such_command || true
echo
echo "Log ($NASBROLT_ROOT/var/log/nasbrolt.log):"
tail -n 5 "$NASBROLT_ROOT/var/log/nasbrolt.log" 2>/dev/null || echo "(no log yet)"
echo
echo "Calls kept from the machine ($toolslog):"
tail -n 5 "$toolslog" 2>/dev/null || echo "(none yet)"
cat <<EOT

Send more commands with the sandbox's socket directory:
    TMPDIR=$TMPDIR $ctl COMMAND [key=value ...]
    TMPDIR=$TMPDIR $ctl --help
The live dashboard in this terminal (q quits):
    TMPDIR=$TMPDIR $ctl top
Stop it with:
    bash scripts/run.sh stop
EOT
