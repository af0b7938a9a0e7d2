#!/usr/bin/env bash
# Configures and builds one flavour of nasbrolt.
#   scripts/build.sh [normal|asan|tsan|fuzz]   (default: normal)
# normal -> build/, asan -> build-asan/ (AddressSanitizer + UBSan),
# tsan -> build-tsan/ (ThreadSanitizer), fuzz -> build-fuzz/ (clang, libFuzzer
# targets only).
set -euo pipefail
cd "$(dirname "$0")/.."

flavour="${1:-normal}"
jobs="$(nproc)"
case "$flavour" in
    normal) dir=build; flags=() ;;
    asan)   dir=build-asan; flags=(-DNASBROLT_SANITIZE=ON) ;;
    tsan)   dir=build-tsan; flags=(-DNASBROLT_TSAN=ON) ;;
    fuzz)   dir=build-fuzz
            flags=(-DNASBROLT_FUZZ=ON -DNASBROLT_TESTS=OFF
                   -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++) ;;
    *) echo "usage: $0 [normal|asan|tsan|fuzz]" >&2; exit 2 ;;
esac

cmake -S . -B "$dir" -G Ninja "${flags[@]}" >/dev/null
cmake --build "$dir" -j "$jobs"
