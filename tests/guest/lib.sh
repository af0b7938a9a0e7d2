# Checks shared by the guest tests (sourced, on the host and in the guest).
# A failed check says what it expected and what it found, and the script
# goes on so that one run shows every fault; finish sets the exit status.

failures=0

fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}

# check WHAT EXPECTED FOUND
check() {
    [ "$2" == "$3" ] || fail "$1: expected '$2', found '$3'"
}

# check_match WHAT GLOB FOUND
check_match() {
    # shellcheck disable=SC2053
    [[ "$3" == $2 ]] || fail "$1: expected something like '$2', found '$3'"
}

# A step the rest depends on: stop here.
require() {
    local what="$1"
    shift
    "$@" || {
        fail "$what: '$*' exited $?"
        finish
    }
}

finish() {
    if [ "$failures" -ne 0 ]; then
        echo "$failures check(s) failed" >&2
        exit 1
    fi
    echo "all checks passed"
    exit 0
}

# serial_link SERIAL: the /dev/disk/by-id link of the disk with that serial
# in $link (usb appends "-0:0"). usb disks may still be on their way: wait
# up to 10 s.
serial_link() {
    local try
    for ((try = 0; try < 20; try++)); do
        for link in /dev/disk/by-id/*"$1" /dev/disk/by-id/*"$1"-0:0; do
            [ -e "$link" ] && return 0
        done
        sleep 0.5
        udevadm settle -t 10
    done
    return 1
}

# The disk with serial $1, as a /dev path.
disk_by_serial() {
    local link
    serial_link "$1" && readlink -f "$link"
}

# find_disks N: the disks of $NBGUEST_SERIALS in the array disks, in that
# order (the serials in the array serials); stops the script when one is
# missing. One readlink for all: under emulation a process start costs
# half a second.
find_disks() {
    local s link links=()
    read -r -a serials <<<"$NBGUEST_SERIALS"
    for s in "${serials[@]}"; do
        serial_link "$s" || { fail "no disk with serial $s in /dev/disk/by-id"; finish; }
        links+=("$link")
    done
    disks=()
    [ "${#links[@]}" -eq 0 ] || mapfile -t disks < <(readlink -f "${links[@]}")
    check "disks" "$1" "${#disks[@]}"
}

# The partitions of disk $1, one path a line.
partitions_of() {
    lsblk -lnpo NAME,TYPE "$1" | awk '$2 == "part" { print $1 }'
}

# ---- nasbroltadm and md arrays (the RAID tests)

# adm_call STATUS ARG...: nasbroltadm -r ARG... ($adm_bin), its exit status
# checked; what it printed is left in $answer, its log lines in $adm_err.
adm_call() {
    local expected="$1" status file="${TMPDIR:-/tmp}/nbtest-adm.$BASHPID.err"
    shift
    answer="$("$adm_bin" -r "$@" 2>"$file")"
    status=$?
    adm_err="$(<"$file")"
    check "exit status of nasbroltadm $*" "$expected" "$status"
    if [ "$status" != "$expected" ]; then
        echo "  printed: $answer" >&2
        tail -20 <<<"$adm_err" | sed 's/^/  stderr: /' >&2
    fi
}

# in_background FUNCTION ARG...: runs a function of checks side by side with
# others; join_background waits for them all, then shows what each printed,
# in the order they were started, and counts their failures.
bg_pids=()
in_background() {
    local log="${TMPDIR:-/tmp}/nbtest-bg.$BASHPID.${#bg_pids[@]}"
    (
        failures=0
        "$@"
        exit $((failures > 99 ? 99 : failures))
    ) >"$log.out" 2>"$log.err" &
    bg_pids+=("$!")
}

join_background() {
    local i status log
    for i in "${!bg_pids[@]}"; do
        wait "${bg_pids[$i]}"
        status=$?
        log="${TMPDIR:-/tmp}/nbtest-bg.$BASHPID.$i"
        [ ! -s "$log.out" ] || printf '%s\n' "$(<"$log.out")"
        [ ! -s "$log.err" ] || printf '%s\n' "$(<"$log.err")" >&2
        failures=$((failures + status))
    done
    bg_pids=()
}

# step NAME: the seconds since the previous step go to $out/times.txt
# under that step's name; NAME is noted in $TMPDIR/commands.log (the log of
# a tools substitute), copied to $out as it grows.
step_name="" step_start=0
step() {
    local now=${EPOCHREALTIME/./} cs
    if [ -n "$step_name" ]; then
        cs=$(((now - step_start) / 10000))
        printf '%-48s %3d.%02d s\n' "$step_name" $((cs / 100)) $((cs % 100)) >>"$out/times.txt"
    fi
    echo "$(cut -d' ' -f1 /proc/uptime) step: $1" >>"$TMPDIR/commands.log"
    cp "$TMPDIR/commands.log" "$out/"
    step_name="$1" step_start=$now
}

# json_list WORD...: the words as a JSON list of strings (no quotes in them).
json_list() {
    local IFS=, all
    [ $# -gt 0 ] || { echo '[]'; return; }
    all="$*"
    printf '["%s"]' "${all//,/\",\"}"
}

# wait_until SECONDS COMMAND...: polls COMMAND every 0.2 s until it succeeds;
# status 1 when it never did.
wait_until() {
    local deadline=$((SECONDS + $1))
    shift
    until "$@"; do
        [ "$SECONDS" -lt "$deadline" ] || return 1
        sleep 0.2
    done
}

# md resyncs at the speed limits: under emulation the defaults take minutes
# for what the tests build.
md_fast_sync() {
    modprobe -a md_mod raid0 raid1 raid10 raid456
    echo 2000000 >/proc/sys/dev/raid/speed_limit_max
    echo 1000000 >/proc/sys/dev/raid/speed_limit_min
}

# The arrays in /proc/mdstat, one name a line.
md_names() {
    awk '$1 ~ /^md/ && $2 == ":" { print $1 }' /proc/mdstat
}

# mdadm -D FIELD of array $1 ("Raid Level", "State" ...), trimmed.
md_field() {
    md_field_of "$(mdadm -D "$1" 2>/dev/null)" "$2"
}

# The same from the text mdadm -D printed ($1), without a process.
md_field_of() {
    local line key value
    while IFS= read -r line; do
        [[ "$line" == *" : "* ]] || continue
        key="${line%% : *}" value="${line#* : }"
        key="${key#"${key%%[! ]*}"}"
        [ "$key" = "$2" ] || continue
        value="${value#"${value%%[! ]*}"}"
        echo "${value%"${value##*[! ]}"}"
        return
    done <<<"$1"
}

# The device rows of mdadm -D $1 as "PATH STATE...", sorted by path.
md_rows() {
    md_rows_of "$(mdadm -D "$1" 2>/dev/null)"
}

md_rows_of() {
    awk '/^ *Number/ { t = 1; next }
        t && /\/dev\// { p = $NF; $NF = ""; $1 = $2 = $3 = ""; if ($4 ~ /^[0-9-]+$/) $4 = "";
            s = $0; gsub(/^ +| +$/, "", s); gsub(/  +/, " ", s); print p, s }' <<<"$1" | sort
}

# The array over $1 (a partition or an array), or over that one in turn.
array_of() {
    local md
    md="$(awk -v p=" ${1#/dev/}[" '$2 == ":" && index($0, p) { print $1; exit }' /proc/mdstat)"
    [ -n "$md" ] || return 1
    array_of "/dev/$md" 2>/dev/null || echo "/dev/$md"
}

# array_is PART KIND: the array over PART is active and its level starts
# with KIND.
array_is() {
    local md
    md="$(array_of "$1")" || return 1
    grep -q "^${md#/dev/} : active $2" /proc/mdstat
}

# adm_create WHAT LEVEL DISKS SPARES (JSON lists): VXRaid::create with
# chunk 64, checked; the array's path in $md. An array that shows up after
# a failed answer is still taken (up to 60 s), so that one run shows what
# else fails; empty $md when there is none.
adm_create() {
    local what="$1" first
    adm_call 0 VXRaid::create "$2" "$3" "$4" 64
    md=""
    [[ "$answer" =~ \"md\":\"([^\"]*)\" ]] && md="${BASH_REMATCH[1]}"
    check_match "$what: create" '{"error":"","md":"/dev/md[0-9]*","result":0}' "$answer"
    udevadm settle -t 30
    [ -b "$md" ] && return 0
    first="$(partitions_of "$(jq -r '.[0]' <<<"$3")" | head -1)"
    # A two-tier array is there once the raid0 over its sub-arrays is.
    local kind=raid
    [ "$2" -lt 50 ] || kind=raid0
    if [ -n "$first" ] && wait_until 60 array_is "$first" "$kind"; then
        md="$(array_of "$first")"
        echo "$what: the array came late as $md"
    else
        md=""
        fail "$what: no array after create: $(cat /proc/mdstat)"
    fi
}

# The array that holds UUID $1 (as mdadm prints it), as /dev/mdN; empty when none.
md_by_uuid() {
    local md
    for md in $(md_names); do
        [ "$(md_field "/dev/$md" UUID)" != "$1" ] || { echo "/dev/$md"; return 0; }
    done
}

# check_clean_disk DISK: no partition, no partition table, no signature, no
# md superblock left on the disk.
check_clean_disk() {
    udevadm settle -t 30
    check "partitions left on $1" "" "$(partitions_of "$1" | tr '\n' ' ')"
    check "signature left on $1 (blkid -p)" "" "$(blkid -p -o export "$1" 2>/dev/null | grep -E '^(PTTYPE|TYPE)=')"
    mdadm -E "$1" >/dev/null 2>&1 && fail "mdadm -E still finds a superblock on $1"
    [ ! -e "${1}1" ] || fail "${1}1 still exists"
}
