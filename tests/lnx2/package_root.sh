#!/usr/bin/env bash
# LNX2Package against the real dpkg and apt, in a throw-away root: the host's
# /usr read-only, a fresh package database and apt configuration, a local
# file: repository of tiny packages broken the ways dpkg breaks them, then
# nasbroltadm's package calls and what they did to the database.
#   package_root.sh NASBROLTADM
# Three stages of this one script: the host makes a temporary directory and
# private mount, pid and network namespaces; in them "--ns" builds the root
# and chroots into it; there "--root" runs the test. The host's packages,
# apt configuration and clock are never reached: the mounts exist only in
# the namespace, and the root runs without CAP_SYS_TIME and without /dev/rtc.
set -u

self="$(readlink -f -- "$0")"
marker=/var/lib/dpkg/nbt-throwaway-root

# The mounts went with the namespace; should one be visible here after all,
# the directory stays rather than being emptied through it.
host_cleanup() {
    if awk -v b="$base" 'index($5, b) == 1 { found = 1 } END { exit !found }' \
        /proc/self/mountinfo; then
        echo "FAIL: mounts left under $base; not removed" >&2
        exit 1
    fi
    rm -rf --one-file-system "$base"
}

host_stage() {
    local adm rc
    adm="$(readlink -f -- "${1:-}")"
    if [ ! -f "$adm" ] || [ ! -x "$adm" ]; then
        echo "FAIL: usage: package_root.sh NASBROLTADM" >&2
        exit 2
    fi
    if [ "$(id -u)" -ne 0 ]; then
        echo "FAIL: needs root (mounts, chroot)" >&2
        exit 1
    fi
    if ! command -v jq >/dev/null; then
        echo "FAIL: jq is missing (scripts/setup.sh installs it)" >&2
        exit 1
    fi
    base="$(mktemp -d "${TMPDIR:-/tmp}/nbt-pkg.XXXXXX")" || exit 1
    trap host_cleanup EXIT
    trap 'exit 1' INT TERM HUP
    unshare --mount --pid --net --fork --kill-child --propagation private \
        bash "$self" --ns "$adm" "$base"
    rc=$?
    exit "$rc"
}

# Pid 1 of the new pid namespace: everything it mounts vanishes with it.
ns_stage() {
    local adm="$1" base="$2"
    local root="$base/root" token d
    set -e
    trap 'echo "FAIL: building the root failed at line $LINENO" >&2' ERR
    mkdir "$root"
    mount -t tmpfs -o mode=755,size=256m nbt-root "$root"
    mkdir -p "$root"/{usr,etc,proc,dev,tmp,root,nbt/flags,repo} \
        "$root"/var/lib/dpkg/{info,updates,triggers} \
        "$root"/var/lib/apt/lists/partial "$root"/var/cache/apt/archives/partial \
        "$root"/var/log/apt \
        "$root"/etc/apt/{apt.conf.d,preferences.d,sources.list.d,trusted.gpg.d} \
        "$root"/etc/dpkg/dpkg.cfg.d
    chmod 1777 "$root/tmp"
    mount --bind /usr "$root/usr"
    mount -o remount,bind,ro "$root/usr"
    for d in bin sbin lib lib64; do
        ln -s "usr/$d" "$root/$d"
    done
    mount -t proc proc "$root/proc"

    # Only the harmless devices: no rtc, no disks, no host terminals.
    mount -t tmpfs -o mode=755,size=64k nbt-dev "$root/dev"
    mknod -m 666 "$root/dev/null" c 1 3
    mknod -m 666 "$root/dev/zero" c 1 5
    mknod -m 666 "$root/dev/full" c 1 7
    mknod -m 666 "$root/dev/random" c 1 8
    mknod -m 666 "$root/dev/urandom" c 1 9
    mknod -m 666 "$root/dev/tty" c 5 0
    ln -s /proc/self/fd "$root/dev/fd"
    ln -s /proc/self/fd/0 "$root/dev/stdin"
    ln -s /proc/self/fd/1 "$root/dev/stdout"
    ln -s /proc/self/fd/2 "$root/dev/stderr"
    # apt logs dpkg's terminal through a pty of its own instance.
    mkdir "$root/dev/pts"
    if mount -t devpts -o newinstance,ptmxmode=0666,mode=620 devpts "$root/dev/pts"; then
        ln -s pts/ptmx "$root/dev/ptmx"
    fi

    cat >"$root/etc/passwd" <<'EOF'
root:x:0:0:root:/root:/bin/bash
_apt:x:42:65534::/nonexistent:/usr/sbin/nologin
nobody:x:65534:65534:nobody:/nonexistent:/usr/sbin/nologin
EOF
    cat >"$root/etc/group" <<'EOF'
root:x:0:
nogroup:x:65534:
EOF
    printf 'passwd: files\ngroup: files\nshadow: files\nhosts: files\n' \
        >"$root/etc/nsswitch.conf"
    cp /etc/ld.so.cache "$root/etc/"
    cp -a /etc/alternatives "$root/etc/"
    echo 'deb [trusted=yes] file:/repo ./' >"$root/etc/apt/sources.list"
    : >"$root/var/lib/dpkg/status"
    token="$(od -An -N8 -tx8 /dev/urandom | tr -d ' ')"
    echo "$token" >"$root$marker"

    touch "$root/nbt/nasbroltadm"
    mount --bind "$adm" "$root/nbt/nasbroltadm"
    mount -o remount,bind,ro "$root/nbt/nasbroltadm"
    cp "$self" "$root/nbt/package_root.sh"
    trap - ERR
    set +e

    # Without CAP_SYS_TIME nothing in the root can set the clock, not even
    # a real ntpdate or hwclock started by mistake.
    chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root \
        NBT_MARKER="$token" \
        setpriv --bounding-set -sys_time,-sys_admin,-sys_chroot,-sys_module,-sys_boot \
        bash /nbt/package_root.sh --root
}

# ---- in the root -------------------------------------------------------

failures=0
pass() { echo "PASS: $*"; }
fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}
# check WHAT EXPECTED FOUND
check() {
    if [ "$2" == "$3" ]; then
        pass "$1"
    else
        fail "$1: expected '$2', found '$3'"
    fi
}
die() {
    echo "FAIL: $*"
    exit 1
}

# The states of the test packages, one "STATE NAME VERSION" a line.
nbt_states() {
    dpkg-query -W -f='${db:Status-Abbrev} ${Package} ${Version}\n' 'nbt-*' 2>/dev/null |
        awk '$1 != "un" && $1 != "pn" { print $1, $2, $3 }' | sort -k2
}

# adm CLASS::FUNCTION ARG...: $out is the compact JSON, $rc the exit status;
# the library's log lines go to /nbt/adm.log.
adm() {
    echo "## nasbroltadm $*" >>/nbt/adm.log
    out="$(/nbt/nasbroltadm -r "$@" 2>>/nbt/adm.log)"
    rc=$?
    echo "## rc=$rc $out" >>/nbt/adm.log
}

# A package NAME VERSION: a file under /opt/nbt, a conffile under /etc/nbt,
# and maintainer scripts that fail, or wait, while a flag file says so.
make_deb() {
    local name="$1" version="$2" dir="/nbt/build/$1_$2"
    mkdir -p "$dir/DEBIAN" "$dir/opt/nbt/$name" "$dir/etc/nbt"
    echo "$name $version" >"$dir/opt/nbt/$name/data"
    echo "setting=$name" >"$dir/etc/nbt/$name.conf"
    echo "/etc/nbt/$name.conf" >"$dir/DEBIAN/conffiles"
    cat >"$dir/DEBIAN/control" <<EOF
Package: $name
Version: $version
Architecture: all
Maintainer: nbt <nbt@example.invalid>
Priority: optional
Section: misc
Description: nasbrolt package test $name
EOF
    cat >"$dir/DEBIAN/postinst" <<EOF
#!/bin/sh
n=0
while [ -e /nbt/flags/$name.wait ] && [ \$n -lt 300 ]; do sleep 0.1; n=\$((n + 1)); done
if [ -e /nbt/flags/$name.fail ]; then echo "$name: configuring fails" >&2; exit 1; fi
exit 0
EOF
    cat >"$dir/DEBIAN/preinst" <<EOF
#!/bin/sh
if [ -e /nbt/flags/$name.prefail ]; then rm /nbt/flags/$name.prefail; exit 1; fi
exit 0
EOF
    cat >"$dir/DEBIAN/postrm" <<EOF
#!/bin/sh
if [ "\$1" = abort-install ] && [ -e /nbt/flags/$name.abortfail ]; then
    rm /nbt/flags/$name.abortfail
    exit 1
fi
if [ -e /nbt/flags/$name.rmfail ]; then echo "$name: removal script fails" >&2; exit 1; fi
exit 0
EOF
    chmod 755 "$dir/DEBIAN/preinst" "$dir/DEBIAN/postinst" "$dir/DEBIAN/postrm"
    dpkg-deb --root-owner-group -Zgzip --build "$dir" "/repo/${name}_${version}_all.deb" \
        >/dev/null
}

# A flat repository: Packages from the control fields, a Release over it.
make_repo() {
    local deb
    for deb in /repo/*.deb; do
        dpkg-deb -f "$deb"
        echo "Filename: ./${deb##*/}"
        echo "Size: $(stat -c %s "$deb")"
        echo "SHA256: $(sha256sum "$deb" | cut -d' ' -f1)"
        echo
    done >/repo/Packages
    {
        echo "Date: $(date -Ru)"
        echo "SHA256:"
        echo " $(sha256sum /repo/Packages | cut -d' ' -f1) $(stat -c %s /repo/Packages) Packages"
    } >/repo/Release
}

quiet() {
    "$@" >>/nbt/setup.log 2>&1
}

root_stage() {
    # Nothing touches a package database before this proves to be the
    # throw-away one.
    if [ -z "${NBT_MARKER:-}" ] || [ "$(cat "$marker" 2>/dev/null)" != "$NBT_MARKER" ]; then
        die "not in the throw-away root (no $marker of this run)"
    fi
    [ ! -s /var/lib/dpkg/status ] || die "the package database is not fresh"
    if touch /usr/.nbt-probe 2>/dev/null; then
        rm -f /usr/.nbt-probe
        die "/usr is writable"
    fi
    export DEBIAN_FRONTEND=noninteractive

    # ntpdate and hwclock only log; dpkg, apt, rm, mv and ps are real.
    mkdir -p /nbt/tools
    for t in ntpdate hwclock; do
        printf '#!/bin/sh\necho "%s $*" >>/nbt/tools.log\n' "$t" >"/nbt/tools/$t"
        chmod 755 "/nbt/tools/$t"
    done
    export NASBROLT_TOOLS=/nbt/tools

    for p in nbt-ok nbt-held nbt-gone nbt-postrm nbt-stuck nbt-rc nbt-half nbt-unpacked \
        nbt-reinst; do
        make_deb "$p" 1.0
    done
    make_deb nbt-ok 1.1
    make_repo

    # Installed by apt, then broken the ways dpkg leaves packages: held,
    # files deleted, removal script failing (once left half-purged),
    # removed with its conffile kept, configuring failed, only unpacked,
    # and needing a reinstall (preinst and its cleanup failed, once each).
    quiet apt-get update || die "apt update of the file: repository"
    quiet apt install -y nbt-ok=1.0 nbt-held nbt-gone nbt-postrm nbt-stuck nbt-rc ||
        die "apt install of the test packages"
    touch /nbt/flags/nbt-half.fail
    quiet apt install -y nbt-half && die "nbt-half configured although its postinst fails"
    touch /nbt/flags/nbt-reinst.prefail /nbt/flags/nbt-reinst.abortfail
    quiet dpkg -i /repo/nbt-reinst_1.0_all.deb
    quiet dpkg --unpack /repo/nbt-unpacked_1.0_all.deb
    quiet dpkg -r nbt-rc
    touch /nbt/flags/nbt-postrm.rmfail /nbt/flags/nbt-stuck.rmfail
    quiet dpkg -P nbt-stuck
    echo "nbt-held hold" | dpkg --set-selections
    rm /opt/nbt/nbt-gone/data /etc/nbt/nbt-gone.conf
    local broken
    broken="$(printf '%s\n' 'ii nbt-gone 1.0' 'iF nbt-half 1.0' 'hi nbt-held 1.0' \
        'ii nbt-ok 1.0' 'ii nbt-postrm 1.0' 'rc nbt-rc 1.0' 'iHR nbt-reinst 1.0' \
        'pH nbt-stuck 1.0' 'iU nbt-unpacked 1.0')"
    [ "$(nbt_states)" == "$broken" ] || die "set-up states: $(nbt_states | tr '\n' ,)"
    echo "--- dpkg -l --no-pager, broken"
    dpkg -l --no-pager
    echo "---"

    # Reading: every entry as dpkg has it; broken is neither ii nor hi.
    adm LNX2Package::isBusy
    check "isBusy, idle" false "$(jq -c .result <<<"$out")"
    adm LNX2Package::packages
    check "packages" "$broken" "$(jq -r '.result[] | select(.package | startswith("nbt-")) |
        "\(.status) \(.package) \(.version)"' <<<"$out" | sort -k2)"
    adm LNX2Package::brokens
    check "brokens" "iF nbt-half,rc nbt-rc,iHR nbt-reinst,pH nbt-stuck,iU nbt-unpacked" \
        "$(jq -r '[.result[] | "\(.status) \(.package)"] | sort_by(split(" ")[1]) | join(",")' \
            <<<"$out")"
    adm LNX2Package::status nbt-half
    check "status nbt-half" "0 iF 1.0" "$rc $(jq -r '"\(.state) \(.version)"' <<<"$out")"
    adm LNX2Package::installed nbt-ok
    check "installed nbt-ok" "0 1.0" "$rc $(jq -r .version <<<"$out")"
    adm LNX2Package::installed nbt-held
    check "installed nbt-held (held)" 1 "$rc"
    adm LNX2Package::installeds
    check "installeds" "nbt-gone nbt-ok nbt-postrm" \
        "$(jq -r '[.result[] | select(startswith("nbt-"))] | sort | join(" ")' <<<"$out")"
    adm LNX2Package::packageVersions
    check "packageVersions" "nbt-gone=1.0 nbt-ok=1.0 nbt-postrm=1.0" \
        "$(jq -r '[.result[] | select(startswith("nbt-"))] | sort | join(" ")' <<<"$out")"
    adm LNX2Package::upgradables
    check "upgradables" "0 nbt-ok 1.1 1.0" \
        "$rc $(jq -r '.list[] | "\(.package) \(.version) \(.current)"' <<<"$out")"

    # Names that are no package names run nothing; split into words, the
    # last two would purge or upgrade real packages.
    local before probe
    before="$(dpkg -l --no-pager)"
    for probe in "purge -x" "purge a /srv b" "purge nbt-ok nbt-rc" "reinstall A" \
        "reinstall nbt-gone nbt-ok"; do
        adm "LNX2Package::${probe%% *}" "${probe#* }"
        check "$probe: refused" 1 "$rc"
    done
    check "bad names changed nothing" "$before" "$(dpkg -l --no-pager)"

    # A real dpkg at work (a postinst waiting for its flag): busy, and the
    # repair gives up at once without touching anything.
    touch /nbt/flags/nbt-half.wait
    dpkg --configure nbt-half >>/nbt/setup.log 2>&1 &
    local dpkg_pid=$! n
    for ((n = 0; n < 100; n++)); do
        pgrep -f 'nbt-half\.postinst' >/dev/null && break
        sleep 0.1
    done
    adm LNX2Package::isBusy
    check "isBusy, dpkg running" true "$(jq -c .result <<<"$out")"
    adm LNX2Package::repairAll false
    check "repairAll false while busy" 1 "$rc"
    check "repair while busy left the clock alone" "" "$(cat /nbt/tools.log 2>/dev/null)"
    rm /nbt/flags/nbt-half.wait
    wait "$dpkg_pid"
    check "states after the busy repair" "$broken" "$(nbt_states)"

    # purge: the removal script fails, so it goes and the purge is retried.
    adm LNX2Package::purge nbt-postrm
    check "purge nbt-postrm" '0 {"result":true}' "$rc $out"
    check "nbt-postrm gone" ",," \
        "$(nbt_states | grep -w nbt-postrm),$(ls /opt/nbt/nbt-postrm /etc/nbt/nbt-postrm.conf 2>/dev/null),$(
            find /var/lib/dpkg/info -name 'nbt-postrm.*')"

    # The repair purges everything broken but the held package (nbt-stuck's
    # removal script fails too), reinstalls what cannot be purged, sets the
    # clock and rebuilds the lists from the sources it put back.
    local sources
    sources="$(cat /etc/apt/sources.list)"
    adm LNX2Package::repairAll false
    check "repairAll false" '0 {"result":true}' "$rc $out"
    check "states after the repair" "$(printf '%s\n' 'ii nbt-gone 1.0' 'hi nbt-held 1.0' \
        'ii nbt-ok 1.0' 'ii nbt-reinst 1.0')" "$(nbt_states)"
    adm LNX2Package::ntpServer
    check "clock set" "ntpdate $(jq -r .result <<<"$out"),hwclock -w" \
        "$(paste -sd, /nbt/tools.log)"
    check "sources.list back" "$sources" "$(cat /etc/apt/sources.list)"
    check "no sources.list.kvo left" "" "$(ls /etc/apt/sources.list.kvo 2>/dev/null)"
    adm LNX2Package::brokens
    check "brokens after the repair" '0 []' "$rc $(jq -c .result <<<"$out")"

    # reinstall brings back a deleted file and a deleted conffile.
    adm LNX2Package::reinstall nbt-gone
    check "reinstall nbt-gone" '0 {"result":true}' "$rc $out"
    check "nbt-gone restored" "nbt-gone 1.0,setting=nbt-gone" \
        "$(cat /opt/nbt/nbt-gone/data /etc/nbt/nbt-gone.conf 2>/dev/null | paste -sd,)"

    local audit
    audit="$(dpkg --audit 2>&1)"
    check "dpkg --audit" "0 " "$? $audit"

    if [ "$failures" -ne 0 ]; then
        echo "--- nasbroltadm calls (tail)"
        tail -n 80 /nbt/adm.log
        echo "---"
        echo "$failures check(s) failed"
        exit 1
    fi
    echo "all checks passed"
}

case "${1:-}" in
--ns) ns_stage "$2" "$3" ;;
--root) root_stage ;;
*) host_stage "$@" ;;
esac
