#!/bin/bash
# The generated bash completion, driven the way bash drives it on Tab, with
# the expected words read from the sources rather than typed here.
# usage: bash --norc --noprofile completion_test.sh build/nasbrolt-completion.bash
# shellcheck disable=SC1090,SC2154 # the lists come from the generated file
set -u
src=$(cd "$(dirname "$0")/../.." && pwd)
source "$1" || exit 1
export LC_ALL=C
failures=0
fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}

# The lines readline makes of LINE from the completion of its command, one a
# line, sorted. Readline replaces the text after the last word break.
complete_line() {
    local line=$1 cmd=${1%% *} rest spec fn reply
    COMP_LINE=$line COMP_POINT=${#line} COMP_WORDS=() rest=$line
    # As bash splits: at blanks, runs of break characters being words of their own.
    while [[ $rest =~ ^[[:space:]]*([:=]+|[^[:space:]:=]+) ]]; do
        COMP_WORDS+=("${BASH_REMATCH[1]}")
        rest=${rest:${#BASH_REMATCH[0]}}
    done
    [[ $line == *[[:space:]] ]] && COMP_WORDS+=("")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    spec=$(complete -p "${cmd##*/}") || return
    fn=${spec#*-F } fn=${fn%% *} COMPREPLY=()
    "$fn" "${cmd##*/}" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]:-}"
    local word=${line##*[[:space:]=]}
    [[ $COMP_WORDBREAKS == *:* ]] && word=${word##*:}
    for reply in "${COMPREPLY[@]}"; do
        echo "${line%"$word"}$reply"
    done | sort
}
check() { # LINE EXPECTED-LINES
    local got
    got=$(complete_line "$1")
    [[ $got == "$2" ]] || fail "'$1' gave [$got], expected [$2]"
}
# The dispatch-signature slots the headers declare, starting with $1.
header_commands() {
    grep -hoE "^\s+void ${1:-}[A-Za-z0-9_]*\(GX2RpcPacket\* *\w*, *GX2RpcPacket \w*\)" \
        "$src"/routers/*.h "$src"/gx2/gx2localserver.h | sed -E 's/^\s+void (\w+)\(.*/\1/' | sort
}
# Every option word of a program's "Options:" usage block in FILE.
usage_options() {
    sed -n '/^Options:/,/^Options /p' "$1" | grep -oE '(^|[ ,])--?[a-z]+' | tr -d ' ,' | sort -u
}

list=$(printf '%s\n' "${_nasbroltctl_commands[@]}")
[[ -n $list ]] || fail "no commands generated"
sort -uc <<<"$list" || fail "commands not sorted or not unique"
for name in system_working lvm_creating; do
    grep -qx "$name" <<<"$list" || fail "$name missing"
done
[[ $list == "$(header_commands)" ]] || fail "commands differ from the router headers"

check "nasbroltctl smbaudit_lo" "$(header_commands smbaudit_log_ | sed 's/^/nasbroltctl /')"
check "build/nasbroltctl sys" "$(header_commands sys | sed 's|^|build/nasbroltctl |')"
check "/usr/bin/nasbroltctl -r --w" "/usr/bin/nasbroltctl -r --watch"
check "nasbroltctl co" "nasbroltctl codes"
# The words the usage lines name in place of COMMAND: nasbroltctl's own.
while read -r word; do
    check "nasbroltctl $word" "nasbroltctl $word"
done < <(sed -n '/Usage: nasbroltctl/,/^$/p' "$src/tools/nasbroltctl.cpp" |
    grep -oE 'nasbroltctl( \[OPTIONS\])? [a-z]+' | sed 's/.* //')
check "nasbroltctl --watch 0.5 system_w" "nasbroltctl --watch 0.5 system_working"
check "nasbroltctl --watch=1 to" ""
check "nasbroltctl -rt lvm" ""
check "nasbroltctl -t 500 lvm_creating lvm" ""
check "nasbroltctl -- -" ""
check "nasbroltctl -" "$(usage_options "$src/tools/nasbroltctl.cpp" | sed 's/^/nasbroltctl /')"
dir=$(mktemp -d) && trap 'rm -rf "$dir"' EXIT && touch "$dir/brolt.sock"
check "nasbroltctl --socket=$dir/br" "nasbroltctl --socket=$dir/brolt.sock"
check "nasbroltctl --socket $dir/br" "nasbroltctl --socket $dir/brolt.sock"

check "nasbroltadm VXRaid::cr" "nasbroltadm VXRaid::create"
check "nasbroltadm -r LNX2Package::re" \
    $'nasbroltadm -r LNX2Package::reinstall\nnasbroltadm -r LNX2Package::repairAll'
check "nasbroltadm LNX2Package::rep" "nasbroltadm LNX2Package::repairAll"
complete_line "nasbroltadm VXRaid::" | grep -qx "nasbroltadm VXRaid::create" ||
    fail "VXRaid:: does not offer VXRaid::create"
check "nasbroltadm --list VX" ""
check "nasbroltadm -" "$(usage_options "$src/tools/adm/admtable.cpp" | sed 's/^/nasbroltadm /')"
COMP_WORDBREAKS=${COMP_WORDBREAKS//:/}
check "nasbroltadm VXRaid::cr" "nasbroltadm VXRaid::create"

((failures == 0)) && echo "all completion checks passed"
exit $((failures > 0))
