#!/usr/bin/env bash
# Installs the Debian 12 packages that building and testing nasbrolt need.
# Idempotent: when everything is present it only checks and returns.
set -euo pipefail

packages=(
    build-essential cmake ninja-build pkg-config
    qtbase5-dev libsqlite3-dev libcurl4-openssl-dev libblkid-dev libapt-pkg-dev
    libgtest-dev libgmock-dev
    clang libclang-rt-14-dev
    sudo
    rsyslog samba samba-vfs-modules smbclient
    # the qemu guest of tests/vm (its kernel is downloaded, not installed)
    qemu-system-x86 busybox-static xz-utils kmod udev systemd dbus
    # the disk tools the product runs, real in the guest tests; jq checks JSON there
    mdadm lvm2 thin-provisioning-tools cryptsetup-bin parted fdisk psmisc
    e2fsprogs xfsprogs btrfs-progs ntfs-3g smartmontools hdparm iotop jq
    # the dashboard's sources; tmux drives the terminal view in its test
    procps lm-sensors dmidecode tmux
)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done

if [ "${#missing[@]}" -eq 0 ]; then
    exit 0
fi

if [ "$(id -u)" -ne 0 ]; then
    echo "setup: missing packages: ${missing[*]}; run this script as root to install them" >&2
    exit 1
fi

echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
# mdadm and lvm2 would start their monitors on the build machine; a
# policy-rc.d that denies every start keeps the install free of services
# (an existing one, as in containers, already does that and stays).
policy=/usr/sbin/policy-rc.d
if [ ! -e "$policy" ]; then
    printf '#!/bin/sh\nexit 101\n' >"$policy"
    chmod 755 "$policy"
    trap 'rm -f "$policy"' EXIT
fi
apt-get update -qq
apt-get install -y -qq --no-install-recommends \
    -o Dpkg::Options::=--force-confdef -o Dpkg::Options::=--force-confold \
    "${missing[@]}" >/dev/null
