#!/usr/bin/env bash
# Builds nasbrolt and runs it in a sandbox inside the checkout:
#   scripts/run.sh          build, start (or keep running) and show it answering
#   scripts/run.sh stop     stop the sandboxed daemon
#   scripts/run.sh status   say whether it runs
# The daemon is the real one and runs the machine's real tools through sudo;
# only its fixed paths (/etc, /var/log, /orvo, /sys ...) live under
# sandbox/root, and its socket under sandbox/tmp.
set -euo pipefail
cd "$(dirname "$0")/.."
top="$PWD"
sandbox="$top/sandbox"
pidfile="$sandbox/nasbrolt.pid"
export NASBROLT_ROOT="$sandbox/root"
export TMPDIR="$sandbox/tmp"
ctl="$top/build/nasbroltctl"

running_pid() {
    local pid
    pid="$(cat "$pidfile" 2>/dev/null)" || return 1
    [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null && \
        [ "$(readlink "/proc/$pid/exe" 2>/dev/null)" = "$top/build/nasbrolt" ] && echo "$pid"
}

stop() {
    local pid
    if ! pid="$(running_pid)"; then
        echo "nasbrolt is not running in $sandbox"
        return 0
    fi
    kill -TERM "$pid"
    # It waits up to 5 s for its threads before it gives up on them.
    for _ in $(seq 100); do
        kill -0 "$pid" 2>/dev/null || break
        sleep 0.1
    done
    rm -f "$pidfile"
    echo "nasbrolt ($pid) stopped"
}

case "${1:-start}" in
    stop) stop; exit 0 ;;
    status)
        if pid="$(running_pid)"; then echo "nasbrolt runs as $pid"; else echo "nasbrolt is not running"; fi
        exit 0 ;;
    start) ;;
    *) echo "usage: $0 [start|stop|status]" >&2; exit 2 ;;
esac

bash scripts/setup.sh
bash scripts/build.sh

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
# Its own session, so closing this terminal does not end it.
setsid "$top/build/nasbrolt" >"$sandbox/nasbrolt.out" 2>&1 < /dev/null &
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
cat <<EOT

Send more commands with the sandbox's socket directory:
    TMPDIR=$TMPDIR $ctl COMMAND [key=value ...]
    TMPDIR=$TMPDIR $ctl --help
The live dashboard in this terminal (q quits):
    TMPDIR=$TMPDIR $ctl top
Stop it with:
    bash scripts/run.sh stop
EOT
