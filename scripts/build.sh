#!/usr/bin/env bash
# Configures and builds one flavour of nasbrolt.
#   scripts/build.sh [normal|asan|fuzz]   (default: normal)
# normal -> build/, asan -> build-asan/ (AddressSanitizer + UBSan),
# fuzz -> build-fuzz/ (clang, libFuzzer targets only).
set -euo pipefail
cd "$(dirname "$0")/.."

flavour="${1:-normal}"
jobs="$(nproc)"
case "$flavour" in
    normal) dir=build; flags=() ;;
    asan)   dir=build-asan; flags=(-DNASBROLT_SANITIZE=ON) ;;
    fuzz)   dir=build-fuzz
            flags=(-DNASBROLT_FUZZ=ON -DNASBROLT_TESTS=OFF
                   -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++) ;;
    *) echo "usage: $0 [normal|asan|fuzz]" >&2; exit 2 ;;
esac

cmake -S . -B "$dir" -G Ninja "${flags[@]}" >/dev/null
cmake --build "$dir" -j "$jobs"
