#!/usr/bin/env bash
# nasbroltctl's terminal views in a real terminal: the real daemon in a
# sandbox, tmux panes of a fixed size running "top" and "--watch", read back
# with capture-pane.
#   ctltop_tmux.sh NASBROLT NASBROLTCTL
set -u
daemon_bin="$1"
ctl="$2"

base="$(mktemp -d)"
tmux=(tmux -L "nbtest$$" -f /dev/null)
daemon_pid=
sock="$base/tmp/QUILLO_BROLT_TELMAR_ORVO"

cleanup() {
    "${tmux[@]}" kill-server 2>/dev/null
    if [ -n "$daemon_pid" ]; then
        kill -TERM "$daemon_pid" 2>/dev/null
        for _ in $(seq 100); do
            kill -0 "$daemon_pid" 2>/dev/null || break
            sleep 0.1
        done
        kill -KILL "$daemon_pid" 2>/dev/null
        wait "$daemon_pid" 2>/dev/null
    fi
    rm -rf "$base"
}
trap cleanup EXIT
trap 'exit 1' INT TERM HUP

fail() {
    echo "FAIL: $*" >&2
    echo "--- pane:" >&2
    cat "$base/pane" >&2 2>/dev/null
    echo "--- daemon:" >&2
    tail -n 20 "$base/daemon.out" >&2 2>/dev/null
    exit 1
}

capture() { "${tmux[@]}" capture-pane -p -t nb > "$base/pane"; }
pane_value() { "${tmux[@]}" display-message -p -t nb "$1"; }
keys() { "${tmux[@]}" send-keys -t nb "$@"; }

# wait_for SECONDS PATTERN: until the pane shows an extended regex.
wait_for() {
    local deadline=$((SECONDS + $1))
    while :; do
        capture
        grep -qE -- "$2" "$base/pane" && return 0
        [ "$SECONDS" -ge "$deadline" ] && return 1
        sleep 0.2
    done
}

# The sandbox of the daemon: its fixed paths under root/, the socket in tmp/,
# a sudo that runs the real program and a systemctl that only logs. The
# lookout reads these kernel files through the root.
mkdir -p "$base/root/proc/net" "$base/root/sys/class" "$base/root/sys/devices/virtual" \
    "$base/tmp" "$base/tools"
ln -s /proc/meminfo "$base/root/proc/meminfo"
ln -s /proc/version "$base/root/proc/version"
ln -s /proc/net/dev "$base/root/proc/net/dev"
ln -s /sys/class/net "$base/root/sys/class/net"
ln -s /sys/devices/virtual/net "$base/root/sys/devices/virtual/net"
cat > "$base/tools/sudo" <<'EOF'
#!/bin/sh
# "sudo -H -u www-data df -k" runs df as this user.
while :; do
    case "$1" in
        -H) shift ;;
        -u) shift 2 ;;
        *) break ;;
    esac
done
exec "$@"
EOF
cat > "$base/tools/systemctl" <<'EOF'
#!/bin/sh
echo "$*" >> "$(dirname "$0")/systemctl.log"
EOF
chmod +x "$base/tools/sudo" "$base/tools/systemctl"

NASBROLT_ROOT="$base/root" TMPDIR="$base/tmp" NASBROLT_TOOLS="$base/tools" \
    "$daemon_bin" > "$base/daemon.out" 2>&1 < /dev/null &
daemon_pid=$!
for _ in $(seq 200); do
    [ -S "$sock" ] && break
    sleep 0.1
done
[ -S "$sock" ] || fail "the daemon did not create its socket"

# A plain shell in a 100x30 pane; -u: the frames are UTF-8 whatever the locale.
"${tmux[@]}" -u new-session -d -s nb -x 100 -y 30 \
    "env -i PATH=/usr/bin:/bin TERM=screen PS1='nbshell\$ ' bash --norc --noprofile" ||
    fail "tmux did not start"
wait_for 10 'nbshell\$' || fail "no shell prompt"
keys "stty -g > $base/stty.before" Enter

# top: the dashboard fills the screen, q gives the shell and the terminal back.
keys "$ctl --socket $sock top; echo \"top-rc=\$?\"" Enter
wait_for 20 '^CPU +[0-9.]+%' || fail "top showed no CPU line"
wait_for 5 '^Mem +' || fail "top showed no memory line"
# The kernel's name may not fit in 100 columns after a long host name.
grep -qE "^$(hostname)  (ok|warning|error)  .*up .*load [0-9]" "$base/pane" || fail "top's header"
grep -qE '^Mem +[0-9.]+ [KMGT]?B / [0-9.]+ [KMGT]?B +[0-9]+%' "$base/pane" || fail "memory figures"
grep -qE '^ +PID USER +%CPU +%MEM COMMAND' "$base/pane" || fail "no process table"
[ "$(wc -l < "$base/pane")" -le 30 ] || fail "more lines than the pane"
[ "$(pane_value '#{alternate_on}')" = 1 ] || fail "top is not on the alternate screen"
keys q
wait_for 10 '^top-rc=0$' || fail "q did not end top with status 0"
[ "$(pane_value '#{alternate_on}')" = 0 ] || fail "the alternate screen was not left"
[ "$(pane_value '#{cursor_flag}')" = 1 ] || fail "the cursor stays hidden"
keys "stty -g > $base/stty.after" Enter
for _ in $(seq 50); do
    [ -s "$base/stty.after" ] && break
    sleep 0.1
done
cmp -s "$base/stty.before" "$base/stty.after" || fail "top left the terminal in another mode"

# --watch: the header's time moves on between two frames, Ctrl-C ends it.
keys "$ctl --socket $sock --watch 1 naslog_recent; echo \"watch-rc=\$?\"" Enter
wait_for 10 '^Every 1\.0s: nasbroltctl naslog_recent +[^ ]+: ' || fail "no watch header"
wait_for 5 '"records"' || fail "no answer under the watch header"
first="$(head -n 1 "$base/pane")"
deadline=$((SECONDS + 10))
while capture; [ "$(head -n 1 "$base/pane")" = "$first" ]; do
    [ "$SECONDS" -ge "$deadline" ] && fail "the watch header did not change"
    sleep 0.2
done
keys C-c
wait_for 10 '^watch-rc=0$' || fail "Ctrl-C did not end --watch with status 0"
[ "$(pane_value '#{alternate_on}')" = 0 ] || fail "--watch did not leave the alternate screen"

# Without a terminal: answers one after another, a blank line between, no escapes.
timeout --preserve-status -s TERM 3.5 "$ctl" --socket "$sock" --watch 1 naslog_recent \
    > "$base/plain" 2> "$base/plain.err"
rc=$?
[ "$rc" = 0 ] || fail "--watch into a file ended with $rc: $(cat "$base/plain.err")"
[ "$(grep -c '^{' "$base/plain")" -ge 2 ] || fail "fewer than two answers: $(cat "$base/plain")"
grep -q '^$' "$base/plain" || fail "no blank line between answers"
! grep -q $'\033' "$base/plain" || fail "escape sequences in plain output"

# The same signal twice in a row (timeout(1) signals the process and then its
# group) still ends it cleanly.
"$ctl" --socket "$sock" --watch 1 naslog_recent > "$base/twice" 2>&1 &
watcher=$!
for _ in $(seq 100); do
    [ -s "$base/twice" ] && break
    sleep 0.1
done
kill -TERM "$watcher"
kill -TERM "$watcher" 2>/dev/null
wait "$watcher"
rc=$?
[ "$rc" = 0 ] || fail "--watch ended with $rc after two SIGTERMs"
echo "ok"
