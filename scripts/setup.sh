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
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
