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

# The disk with serial $1, as udev names it (usb appends "-0:0"). usb
# disks may still be on their way: wait up to 10 s.
disk_by_serial() {
    local link try
    for try in $(seq 20); do
        for link in /dev/disk/by-id/*"$1" /dev/disk/by-id/*"$1"-0:0; do
            [ -e "$link" ] && { readlink -f "$link"; return 0; }
        done
        sleep 0.5
        udevadm settle -t 10
    done
    return 1
}

# The partitions of disk $1, one path a line.
partitions_of() {
    lsblk -lnpo NAME,TYPE "$1" | awk '$2 == "part" { print $1 }'
}
