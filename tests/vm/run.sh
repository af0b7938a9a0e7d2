#!/bin/bash
# Runs the caller's script in the guest, as root, with its output, exit
# status and artifacts in the share, then powers the guest off.
. /nbguest/config
export PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
export HOME=/root LANG=C.UTF-8 TERM=dumb
export NBGUEST=1 NBGUEST_BUS NBGUEST_DISKS NBGUEST_SERIALS NBGUEST_ARTIFACTS=/nbguest/artifacts
. /nbguest/env

if [ "$NBGUEST_UDEV" = 1 ]; then
    # Block devices only: enough for /dev/disk/by-*, lsblk and blkid, and
    # seconds cheaper than a full coldplug.
    udevadm trigger --action=add --subsystem-match=block --subsystem-match=misc
    udevadm settle -t 30
    # usb-storage finds its disks asynchronously.
    if [[ ",$NBGUEST_BUS," == *,usb,* ]]; then
        sleep 1
        udevadm settle -t 30
    fi
fi
echo "nbguest: script starts at $(cut -d' ' -f1 /proc/uptime)s"

cd "$NBGUEST_CWD" 2>/dev/null || cd /root
mapfile -d '' args </nbguest/args
bash /nbguest/script "${args[@]}" >/nbguest/stdout 2>/nbguest/stderr </dev/null
rc=$?
echo "$rc" >/nbguest/rc
echo "nbguest: script rc=$rc at $(cut -d' ' -f1 /proc/uptime)s"

if [ "$NBGUEST_UDEV" = 1 ] && [ "$NBGUEST_INIT" != systemd ]; then
    udevadm control --exit 2>/dev/null
fi
sync
# Power off at once; qemu exits with the guest.
echo o >/proc/sysrq-trigger
sleep 60
