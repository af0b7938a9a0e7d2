#!/usr/bin/env bash
# Formats every C++ file with the project's .clang-format.
#   scripts/format.sh          rewrite files in place
#   scripts/format.sh --check  list unformatted files, exit 1 if any
set -euo pipefail
cd "$(dirname "$0")/.."

mapfile -t files < <(git ls-files '*.cpp' '*.h')
[ "${#files[@]}" -gt 0 ] || exit 0
if [ "${1:-}" = "--check" ]; then
    bad=0
    for f in "${files[@]}"; do
        if ! clang-format --dry-run -Werror "$f" >/dev/null 2>&1; then
            echo "not formatted: $f"
            bad=1
        fi
    done
    exit "$bad"
fi
clang-format -i "${files[@]}"
