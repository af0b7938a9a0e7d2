#!/bin/bash
# Second stage of the guest, PID 1 in the overlay root: loads the disk
# driver, then either starts udevd and runs run.sh itself (fast), or hands
# over to systemd with a target that only pulls in sysinit.target and a
# service running run.sh (for code that needs systemctl or systemd-run).
. /nbguest/config
export PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
hostname nbguest
echo "127.0.1.1 nbguest" >>/etc/hosts
mkdir -p /run/lock /run/lvm /run/cryptsetup /run/mdadm /var/lock

# NBGUEST_BUS may list several buses, comma-separated.
modules=()
for bus in ${NBGUEST_BUS//,/ }; do
    case "$bus" in
        virtio) modules+=(virtio_blk) ;;
        scsi) modules+=(virtio_scsi sd_mod) ;;
        sata) modules+=(ahci sd_mod) ;;
        nvme) modules+=(nvme) ;;
        usb) modules+=(xhci_pci usb_storage uas sd_mod) ;;
    esac
done
modprobe -a "${modules[@]}" loop

if [ "$NBGUEST_INIT" = systemd ]; then
    units=/etc/systemd/system
    mkdir -p "$units"
    printf '%s\n' '[Unit]' 'Requires=sysinit.target nbguest.service' 'Wants=dbus.socket' \
        'After=sysinit.target nbguest.service' 'AllowIsolate=yes' >"$units/nbguest.target"
    printf '%s\n' '[Unit]' 'After=sysinit.target systemd-udevd.service dbus.socket' \
        '[Service]' 'Type=oneshot' 'ExecStart=/bin/bash /nbguest/run.sh' \
        'StandardOutput=journal+console' >"$units/nbguest.service"
    # The stock coldplug of every device costs about 15 s under emulation;
    # run.sh triggers the block devices only.
    ln -sf /dev/null "$units/systemd-udev-trigger.service"
    exec /lib/systemd/systemd --unit=nbguest.target --log-level=warning --show-status=false
fi

mountpoint -q /sys/kernel/config || mount -t configfs configfs /sys/kernel/config 2>/dev/null
if [ "$NBGUEST_UDEV" = 1 ]; then
    /lib/systemd/systemd-udevd --daemon --resolve-names=never
fi
exec /bin/bash /nbguest/run.sh
