#!/usr/bin/env bash
# Runs a bash script as root in a throw-away qemu guest that boots Debian's
# stock kernel, for what this machine's kernel cannot do (md, device-mapper,
# LUKS). The guest's root is the host's / shared read-only over 9p under a
# tmpfs overlay, so it runs the host's tools and freshly built binaries;
# what it writes outside the share is lost at power-off.
#
#   tests/vm/guest.sh [options] SCRIPT [ARG ...]     (SCRIPT - reads stdin)
#     -d N        blank sparse disks (default 0), serials NBDISK0..N-1,
#                 found in the guest as /dev/disk/by-id/*NBDISKi (usb: *NBDISKi-0:0)
#     -s SIZE     size of each disk, as truncate takes it (default 512M)
#     -b BUS      virtio|scsi|sata|nvme|usb (default virtio; sata: 6 disks at most);
#                 a comma list (virtio,usb) puts -d disks on each bus, the
#                 serials counting on from one bus to the next
#     -c N        vCPUs (default 2)
#     -m MB       memory (default 1024)
#     -t SEC      hard limit for the whole guest, boot included (default 300)
#     -S          systemd as PID 1 (sysinit.target only); about 20 s slower
#     -U          no udevd (no /dev/disk/by-*; about 1 s faster)
#     -e NAME=VAL environment for the script (repeatable)
#     -o DIR      where the files the script writes to $NBGUEST_ARTIFACTS go
#     -k          keep the run's directory (console.log, disks) and say where
#     -v          copy the guest console to stderr while it runs
#
# The script's stdout and stderr come back on ours once the guest is off, and
# its exit status is ours. 124: the guest hit the -t limit; 125: the guest
# failed without an exit status (console log on stderr); 2: usage error.
# In the guest: cwd is the caller's cwd, NBGUEST=1, NBGUEST_BUS (as -b gave
# it), NBGUEST_DISKS (all buses), NBGUEST_SERIALS and NBGUEST_ARTIFACTS are set.
#
# The kernel package is the one linux-image-amd64 depends on, downloaded (not
# installed) into NASBROLT_GUEST_CACHE (default /var/cache/nasbrolt-guest) on
# first use. NASBROLT_GUEST_ACCEL=kvm|tcg overrides the accelerator choice.
# Host packages: see scripts/setup.sh.
set -euo pipefail
{ # parsed whole before it runs: editing this file cannot break a running guest

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
cache="${NASBROLT_GUEST_CACHE:-/var/cache/nasbrolt-guest}"
accel="${NASBROLT_GUEST_ACCEL:-auto}"
disks=0
size=512M
bus=virtio
cpus=2
mem=1024
limit=300
init=bash
udev=1
artifacts=""
keep=0
verbose=0
envs=()

log() { echo "guest: $*" >&2; }
usage() {
    sed -n '2,/^set -euo/p' "$0" | sed '$d; s/^# \{0,1\}//' >&2
    exit 2
}

while getopts "d:s:b:c:m:t:SUe:o:kv" opt; do
    case "$opt" in
        d) disks="$OPTARG" ;;
        s) size="$OPTARG" ;;
        b) bus="$OPTARG" ;;
        c) cpus="$OPTARG" ;;
        m) mem="$OPTARG" ;;
        t) limit="$OPTARG" ;;
        S) init=systemd ;;
        U) udev=0 ;;
        e) envs+=("$OPTARG") ;;
        o) artifacts="$OPTARG" ;;
        k) keep=1 ;;
        v) verbose=1 ;;
        *) usage ;;
    esac
done
shift $((OPTIND - 1))
[ $# -ge 1 ] || usage
script="$1"
shift
IFS=, read -r -a buses <<<"$bus"
[ "${#buses[@]}" -ge 1 ] || usage
declare -A given=()
for b in "${buses[@]}"; do
    case "$b" in virtio | scsi | sata | nvme | usb) ;; *) log "unknown bus $b"; exit 2 ;; esac
    [ -z "${given[$b]-}" ] || { log "bus $b given twice"; exit 2; }
    given[$b]=1
done
[[ "$disks" =~ ^[0-9]+$ && "$cpus" =~ ^[1-9][0-9]*$ && "$mem" =~ ^[1-9][0-9]*$ &&
    "$limit" =~ ^[1-9][0-9]*$ ]] || usage
if [[ ",$bus," == *,sata,* ]] && [ "$disks" -gt 6 ]; then
    log "sata: 6 disks at most"
    exit 2
fi
for e in "${envs[@]}"; do
    [[ "$e" =~ ^[A-Za-z_][A-Za-z0-9_]*= ]] || { log "-e wants NAME=VALUE, not $e"; exit 2; }
done
[ "$script" = - ] || [ -r "$script" ] || { log "cannot read $script"; exit 2; }

for tool in qemu-system-x86_64 depmod dpkg-deb apt-get xz setpriv flock; do
    command -v "$tool" >/dev/null || { log "$tool is missing (scripts/setup.sh installs it)"; exit 125; }
done
[[ "$(LC_ALL=C ldd /bin/busybox 2>&1)" == *"not a dynamic"* ]] ||
    { log "a static /bin/busybox is missing (busybox-static)"; exit 125; }

# ---- kernel and initramfs, cached; one set-up at a time
kernel_package() {
    { apt-cache depends linux-image-amd64 2>/dev/null || true; } |
        awk '$1 == "Depends:" && $2 ~ /^linux-image-/ { print $2; exit }'
}

# Finds the xz stream in the bzImage and unpacks the ELF vmlinux from it: its
# PVH entry boots without the in-guest decompression (2.5 s under emulation).
extract_vmlinux() {
    local bz="$1" out="$2" off
    off="$(LC_ALL=C grep -m1 -obUaP '\xfd7zXZ\x00' "$bz" | head -1 | cut -d: -f1 || true)"
    [ -n "$off" ] || return 0
    # xz stops at the end of its stream; tail may die of SIGPIPE then.
    (set +o pipefail; tail -c +$((off + 1)) "$bz" | xz -dc --single-stream >"$out.tmp" 2>/dev/null) || true
    if [ "$(head -c 4 "$out.tmp")" = $'\x7fELF' ]; then mv "$out.tmp" "$out"; else rm -f "$out.tmp"; fi
}

# Called under the lock: a .fetch directory left over is from a run that died.
fetch_kernel() {
    local pkg="$1" dest="$2" tmp kver
    log "fetching $pkg (downloaded, not installed) into $cache"
    rm -rf "$cache"/.fetch.*
    tmp="$(mktemp -d "$cache/.fetch.XXXXXX")"
    # apt drops to _apt for downloads; let it write here.
    chmod 755 "$tmp"
    chown _apt "$tmp" 2>/dev/null || true
    (cd "$tmp" && apt-get download -q "$pkg" >&2) &&
        dpkg-deb -x "$tmp"/*.deb "$tmp/root" &&
        kver="$(ls "$tmp/root/lib/modules")" &&
        depmod -b "$tmp/root" "$kver" || { rm -rf "$tmp"; return 1; }
    extract_vmlinux "$tmp/root/boot/vmlinuz-$kver" "$tmp/root/vmlinux"
    # kver marks a complete unpacking.
    echo "$kver" >"$tmp/root/kver"
    rm -rf "$dest"
    mv "$tmp/root" "$dest"
    rm -rf "$tmp"
}

initramfs_modules=(virtio_pci 9pnet_virtio 9p overlay)

build_initramfs() {
    local kroot="$1" kver="$2" out="$3" t ko
    t="$(mktemp -d)"
    mkdir -p "$t"/{bin,modules,proc,sys,dev,lower,rw,newroot}
    cp /bin/busybox "$t/bin/busybox"
    cp "$here/init" "$t/init"
    chmod 755 "$t/init"
    : >"$t/modules.list"
    modprobe -d "$kroot" -S "$kver" --show-depends -a "${initramfs_modules[@]}" |
        awk '$1 == "insmod" { print $2 }' | while read -r ko; do
            grep -qx "$(basename "$ko" .ko)" "$t/modules.list" && continue
            cp "$ko" "$t/modules/"
            basename "$ko" .ko >>"$t/modules.list"
        done
    (cd "$t" && find . | /bin/busybox cpio -o -H newc 2>/dev/null | gzip -1) >"$out.tmp"
    mv "$out.tmp" "$out"
    rm -rf "$t"
}

mkdir -p "$cache" 2>/dev/null && [ -w "$cache" ] ||
    { log "cannot write the kernel cache $cache (run as root or set NASBROLT_GUEST_CACHE)"; exit 125; }
exec 9>"$cache/lock"
flock 9
pkg="$(kernel_package)"
if [ -z "$pkg" ]; then
    log "apt-cache knows no linux-image-amd64; running apt-get update"
    apt-get update -qq >&2 || true
    pkg="$(kernel_package)"
fi
[ -n "$pkg" ] || { log "cannot resolve the kernel package of linux-image-amd64"; exit 125; }
kroot="$cache/$pkg"
if [ ! -f "$kroot/kver" ]; then
    fetch_kernel "$pkg" "$kroot" || { log "cannot fetch $pkg"; exit 125; }
fi
kver="$(cat "$kroot/kver")"
kernel="$kroot/boot/vmlinuz-$kver"
[ -s "$kroot/vmlinux" ] && kernel="$kroot/vmlinux"
initrd="$kroot/initramfs-$(cat "$here/init" <(echo "${initramfs_modules[*]}") | sha256sum | cut -c1-16).cpio.gz"
[ -f "$initrd" ] || build_initramfs "$kroot" "$kver" "$initrd"

# KVM only when it really runs a stock kernel: a PVM host (kvm_pvm) offers
# /dev/kvm but boots only kernels built for it, and a stock one hangs there.
kvm_works() {
    [ -r /dev/kvm ] && [ -w /dev/kvm ] && [ ! -d /sys/module/kvm_pvm ] || return 1
    local mark="$cache/kvm-works"
    if [ ! -f "$mark" ]; then
        # The kernel must get as far as its banner; it then panics for want
        # of an init and qemu exits.
        timeout 20 qemu-system-x86_64 -accel kvm -cpu host,-arch-capabilities -m 256 \
            -display none -no-reboot -nodefaults -serial "file:$cache/kvm-probe.log" \
            -kernel "$kernel" -append "console=ttyS0 panic=-1 init=/nonexistent" \
            </dev/null >/dev/null 2>&1 || true
        if grep -q "Linux version" "$cache/kvm-probe.log" 2>/dev/null; then
            echo 1 >"$mark"
        else
            echo 0 >"$mark"
        fi
        rm -f "$cache/kvm-probe.log"
    fi
    [ "$(cat "$mark")" = 1 ]
}
if [ "$accel" = auto ]; then
    if kvm_works; then accel=kvm; else accel=tcg; fi
fi
exec 9>&-
case "$accel" in
    kvm) accelargs=(-accel kvm -cpu host,-arch-capabilities) ;;
    tcg) accelargs=(-accel tcg,thread=multi -cpu max) ;;
    *) log "NASBROLT_GUEST_ACCEL must be kvm, tcg or auto"; exit 2 ;;
esac

# ---- the run's own directory: disks, console log and the share
# A run killed outright (SIGKILL, as CTest's timeout does) leaves its
# directory behind: the next run removes those whose owner is gone.
for pidfile in "${TMPDIR:-/tmp}"/nbguest.*/owner; do
    [ -f "$pidfile" ] || continue
    kill -0 "$(cat "$pidfile")" 2>/dev/null || rm -rf "$(dirname "$pidfile")"
done
work="$(mktemp -d "${TMPDIR:-/tmp}/nbguest.XXXXXX")"
echo $$ >"$work/owner"
qemu_pid=""
tail_pid=""
cleanup() {
    set +e
    if [ -n "$qemu_pid" ]; then
        kill -KILL "$qemu_pid" 2>/dev/null
        wait "$qemu_pid" 2>/dev/null
    fi
    [ -z "$tail_pid" ] || kill "$tail_pid" 2>/dev/null
    if [ "$keep" = 1 ]; then
        rm -f "$work/owner"
        log "kept $work"
    else
        rm -rf "$work"
    fi
}
trap cleanup EXIT
trap 'exit 143' TERM
trap 'exit 130' INT
trap 'exit 129' HUP

share="$work/share"
mkdir -p "$share/artifacts"
if [ "$script" = - ]; then cat >"$share/script"; else cp "$script" "$share/script"; fi
cp "$here/stage2.sh" "$here/run.sh" "$share/"
: >"$share/args"
[ $# -eq 0 ] || printf '%s\0' "$@" >"$share/args"
total=$((disks * ${#buses[@]}))
serials=""
for ((i = 0; i < total; i++)); do serials+="${serials:+ }NBDISK$i"; done
{
    printf 'NBGUEST_%s=%q\n' BUS "$bus" DISKS "$total" SERIALS "$serials" INIT "$init" \
        UDEV "$udev" CWD "$PWD"
} >"$share/config"
: >"$share/env"
for e in "${envs[@]}"; do printf 'export %s=%q\n' "${e%%=*}" "${e#*=}" >>"$share/env"; done

# i counts the disks of all buses (drive and serial), j those of one bus
# (its ports).
devices=()
i=0
for b in "${buses[@]}"; do
    case "$b" in
        scsi) devices+=(-device virtio-scsi-pci,id=scsi0) ;;
        sata) devices+=(-device ahci,id=ahci0) ;;
        usb) devices+=(-device qemu-xhci,id=xhci) ;;
    esac
    for ((j = 0; j < disks; j++, i++)); do
        truncate -s "$size" "$work/disk$i.img"
        devices+=(-drive "file=$work/disk$i.img,format=raw,if=none,id=d$i,cache=unsafe,discard=unmap")
        case "$b" in
            virtio) devices+=(-device "virtio-blk-pci,drive=d$i,serial=NBDISK$i") ;;
            scsi) devices+=(-device "scsi-hd,drive=d$i,bus=scsi0.0,channel=0,scsi-id=$j,lun=0,serial=NBDISK$i") ;;
            sata) devices+=(-device "ide-hd,drive=d$i,bus=ahci0.$j,serial=NBDISK$i,model=NBDISK-SATA") ;;
            nvme) devices+=(-device "nvme,drive=d$i,serial=NBDISK$i") ;;
            usb) devices+=(-device "usb-storage,bus=xhci.0,drive=d$i,serial=NBDISK$i,removable=off") ;;
        esac
    done
done

qemu=(qemu-system-x86_64 "${accelargs[@]}" -machine q35 -m "$mem" -smp "$cpus"
    -nodefaults -no-user-config -display none -no-reboot -nic none
    -serial "file:$work/console.log"
    -kernel "$kernel" -initrd "$initrd"
    -append "console=ttyS0 quiet loglevel=4 panic=-1 oops=panic nbguest.modules=$kroot/lib/modules/$kver"
    -fsdev "local,id=hostroot,path=/,security_model=none,readonly=on,multidevs=remap"
    -device virtio-9p-pci,fsdev=hostroot,mount_tag=hostroot
    -fsdev "local,id=share,path=$share,security_model=none,multidevs=remap"
    -device virtio-9p-pci,fsdev=share,mount_tag=share
    "${devices[@]}")
# qboot starts the kernel half a second sooner than SeaBIOS.
[ ! -f /usr/share/qemu/qboot.rom ] || qemu+=(-bios /usr/share/qemu/qboot.rom)

# ---- boot and wait, within the limit
if [ "$verbose" = 1 ]; then
    touch "$work/console.log"
    setpriv --pdeathsig KILL -- tail -f "$work/console.log" >&2 &
    tail_pid=$!
fi
# qemu dies with this script even when it is killed outright (as CTest does
# at its timeout), so no guest outlives its test.
setpriv --pdeathsig KILL -- "${qemu[@]}" </dev/null >"$work/qemu.out" 2>&1 &
qemu_pid=$!
deadline=$((SECONDS + limit))
timed_out=0
while kill -0 "$qemu_pid" 2>/dev/null; do
    if [ "$SECONDS" -ge "$deadline" ]; then
        timed_out=1
        kill -KILL "$qemu_pid"
        break
    fi
    sleep 0.2
done
qemu_rc=0
wait "$qemu_pid" || qemu_rc=$?
qemu_pid=""

cat "$share/stdout" 2>/dev/null || true
cat "$share/stderr" >&2 2>/dev/null || true
if [ -n "$artifacts" ] && [ -n "$(ls -A "$share/artifacts")" ]; then
    mkdir -p "$artifacts"
    cp -a "$share/artifacts/." "$artifacts/"
fi
if [ "$timed_out" = 0 ] && [ -s "$share/rc" ]; then
    exit "$(cat "$share/rc")"
fi
if [ "$timed_out" = 1 ]; then
    log "the guest did not finish within $limit s; qemu output and console log follow"
else
    log "the guest ended without an exit status (qemu status $qemu_rc); qemu output and console log follow"
fi
cat "$work/qemu.out" "$work/console.log" >&2 2>/dev/null || true
[ "$timed_out" = 1 ] && exit 124
exit 125
}
