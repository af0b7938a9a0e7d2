#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for a while.
#   scripts/fuzz.sh [seconds-per-target]   (default 300)
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-300}"
if ! command -v clang++ >/dev/null; then
    echo "fuzz: clang++ not found, skipping the fuzz targets"
    exit 0
fi
bash scripts/build.sh fuzz

for target in build-fuzz/tests/fuzz/fuzz_*; do
    [ -f "$target" ] && [ -x "$target" ] || continue
    name="$(basename "$target")"
    corpus="build-fuzz/corpus/$name"
    mkdir -p "$corpus"
    seeds="tests/fuzz/seeds/${name#fuzz_}"
    # Environment a target needs, NAME=value a line, in tests/fuzz/<target>.env.
    envs=()
    if [ -f "tests/fuzz/$name.env" ]; then
        mapfile -t envs < <(grep -v '^#' "tests/fuzz/$name.env" | sed '/^$/d')
    fi
    echo "fuzz: $name for ${seconds}s"
    env "${envs[@]}" "$target" -max_total_time="$seconds" -print_final_stats=1 "$corpus" \
        $( [ -d "$seeds" ] && echo "$seeds" ) 2>&1 | tail -n 12
done
