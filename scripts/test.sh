#!/usr/bin/env bash
# Builds nasbrolt and runs every test: the normal build, the build under
# AddressSanitizer + UndefinedBehaviorSanitizer, the threaded components under
# ThreadSanitizer, and a short fuzzing run. The normal build's tests include
# the guest tests, real md RAID and LVM in a qemu guest (tests/vm/guest.sh).
# Installs what it needs first (as root, on Debian 12).
set -uo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh || exit 1

status=0
run_flavour() {
    local flavour="$1" dir="$2"
    shift 2
    echo "=== $flavour build ==="
    if ! bash scripts/build.sh "$flavour"; then
        echo "=== $flavour build FAILED ==="
        status=1
        return
    fi
    echo "=== $flavour tests ==="
    if ! ctest --test-dir "$dir" --output-on-failure --timeout 300 -j "$(nproc)" "$@"; then
        status=1
    fi
}

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"

run_flavour normal build
# The guest tests (label "guest", tests/guest/) boot qemu guests; they run
# on the normal build only.
run_flavour asan build-asan -LE guest
# Qt's own libraries are not built for ThreadSanitizer; their internals are
# suppressed, the project's code is not.
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions=$PWD/tests/tsan.supp"
run_flavour tsan build-tsan -R "$(cat tests/tsan.tests)"

echo "=== fuzzing (short) ==="
if ! bash scripts/fuzz.sh 30; then
    status=1
fi

if [ "$status" -eq 0 ]; then
    echo "ALL TESTS PASSED"
else
    echo "SOME TESTS FAILED"
fi
exit "$status"
