// The disks and file systems: VXDisk, VXDiskPrivate, VXFileSystem.

#include "tools/adm/admtable.h"

#include "vx/vxdisk.h"
#include "vx/vxdisk_p.h"
#include "vx/vxfilesystem.h"

QList<AdmEntry> admVXDiskEntries()
{
    using T = AdmType;
    using R = AdmResult;
    const QList<AdmParam> dev{{"dev", T::String}};
    const QList<AdmParam> fsDevSize{{"fs", T::String}, {"dev", T::String}, {"blockSize", T::Int}};
    return {
        // Inventory and usage.
        {"VXDisk::allist", {}, {}, R::Value, [](AdmCall&) { return VXDisk().allist(); }},
        {"VXDisk::allist2", {}, {}, R::Value, [](AdmCall&) { return VXDisk().allist2(); }},
        {"VXDisk::alload",
         {{"withSystem", T::Bool},
          {"withUsb", T::Bool},
          {"withUsed", T::Bool},
          {"withCdrom", T::Bool}},
         {},
         R::Value,
         [](AdmCall& c) {
             return VXDisk().alload(c.boolean(0), c.boolean(1), c.boolean(2), c.boolean(3));
         }},
        {"VXDisk::acquit", dev, {}, R::Value, [](AdmCall& c) { return VXDisk().acquit(c.str(0)); }},
        {"VXDisk::usedFor",
         dev,
         {},
         R::Value,
         [](AdmCall& c) { return VXDisk().usedFor(c.str(0)); }},
        {"VXDisk::usedForMounted",
         dev,
         {"mountpoint"},
         R::Bool,
         [](AdmCall& c) {
             QString mountpoint;
             const bool used = VXDisk().usedForMounted(c.str(0), &mountpoint);
             c.out("mountpoint", mountpoint);
             return used;
         }},
        {"VXDisk::usedForRaid",
         dev,
         {},
         R::Bool,
         [](AdmCall& c) { return VXDisk().usedForRaid(c.str(0)); }},
        {"VXDisk::usedForLvm",
         dev,
         {},
         R::Bool,
         [](AdmCall& c) { return VXDisk().usedForLvm(c.str(0)); }},
        {"VXDisk::usedForZfs",
         dev,
         {},
         R::Bool,
         [](AdmCall& c) { return VXDisk().usedForZfs(c.str(0)); }},
        {"VXDisk::allRaidMembers",
         {},
         {},
         R::Value,
         [](AdmCall&) { return admList(VXDisk().allRaidMembers()); }},
        {"VXDisk::allLvmMembers",
         {},
         {},
         R::Value,
         [](AdmCall&) { return admList(VXDisk().allLvmMembers()); }},
        {"VXDisk::allZfsMembers",
         {},
         {},
         R::Value,
         [](AdmCall&) { return admList(VXDisk().allZfsMembers()); }},
        {"VXDisk::allDevices",
         {},
         {},
         R::Value,
         [](AdmCall&) { return admList(VXDisk().allDevices()); }},
        {"VXDisk::physicalDevices",
         {},
         {},
         R::Value,
         [](AdmCall&) { return admList(VXDisk().physicalDevices()); }},
        {"VXDisk::allDevicesInfo",
         {},
         {},
         R::Value,
         [](AdmCall&) { return VXDisk().allDevicesInfo(); }},
        {"VXDisk::physicalDisks",
         {},
         {},
         R::Value,
         [](AdmCall&) { return VXDisk().physicalDisks(); }},
        {"VXDisk::devTypes",
         dev,
         {"raid", "lvm", "mounted", "system", "crypt", "cdrom"},
         R::Bool,
         [](AdmCall& c) {
             bool raid = false, lvm = false, mounted = false, system = false, crypt = false,
                  cdrom = false;
             const bool known =
                 VXDisk().devTypes(c.str(0), raid, lvm, mounted, system, crypt, cdrom);
             c.out("raid", raid);
             c.out("lvm", lvm);
             c.out("mounted", mounted);
             c.out("system", system);
             c.out("crypt", crypt);
             c.out("cdrom", cdrom);
             return known;
         }},
        {"VXDisk::devOf",
         {{"part", T::String}},
         {},
         R::Value,
         [](AdmCall& c) { return VXDisk().devOf(c.str(0)); }},
        {"VXDisk::partsOf",
         dev,
         {},
         R::Value,
         [](AdmCall& c) { return admList(VXDisk().partsOf(c.str(0))); }},
        {"VXDisk::partOf", dev, {}, R::Value, [](AdmCall& c) { return VXDisk().partOf(c.str(0)); }},
        {"VXDisk::partitions",
         dev,
         {},
         R::Value,
         [](AdmCall& c) { return admList(VXDisk().partitions(c.str(0))); }},
        {"VXDisk::partExists",
         dev,
         {},
         R::Bool,
         [](AdmCall& c) { return VXDisk().partExists(c.str(0)); }},
        {"VXDisk::names", {}, {}, R::Value, [](AdmCall&) { return admList(VXDisk().names()); }},
        {"VXDisk::isSsd", dev, {}, R::Bool, [](AdmCall& c) { return VXDisk().isSsd(c.str(0)); }},
        {"VXDisk::model",
         dev,
         {"vendor"},
         R::Value,
         [](AdmCall& c) {
             QString vendor;
             const QString model = VXDisk().model(c.str(0), &vendor);
             c.out("vendor", vendor);
             return model;
         }},
        {"VXDisk::serialNumber",
         dev,
         {"serial"},
         R::Bool,
         [](AdmCall& c) {
             QString serial;
             const bool found = VXDisk().serialNumber(serial, c.str(0));
             c.out("serial", serial);
             return found;
         }},
        {"VXDisk::fstype", dev, {}, R::Value, [](AdmCall& c) { return VXDisk().fstype(c.str(0)); }},

        // Health and speed.
        {"VXDisk::smartInfo",
         dev,
         {"rows"},
         R::Code,
         [](AdmCall& c) {
             QJsonArray rows;
             const int code = VXDisk().smartInfo(rows, c.str(0));
             c.out("rows", rows);
             return code;
         }},
        {"VXDisk::smartHasErrors",
         {},
         {},
         R::Bool,
         [](AdmCall&) { return VXDisk().smartHasErrors(); }},
        {"VXDisk::temperature",
         dev,
         {"celsius"},
         R::Bool,
         [](AdmCall& c) {
             double celsius = 0;
             const bool read = VXDisk().temperature(celsius, c.str(0));
             c.out("celsius", celsius);
             return read;
         }},
        {"VXDisk::temperatures",
         {},
         {"perDisk", "min", "max"},
         R::Value,
         [](AdmCall& c) {
             QJsonObject perDisk;
             double min = 0, max = 0;
             const int count = VXDisk().temperatures(perDisk, min, max);
             c.out("perDisk", perDisk);
             c.out("min", min);
             c.out("max", max);
             return count;
         }},
        {"VXDisk::maxTemperature",
         {},
         {},
         R::Value,
         [](AdmCall&) { return VXDisk().maxTemperature(); }},
        {"VXDisk::totalSpeed",
         {},
         {"speeds"},
         R::Code,
         [](AdmCall& c) {
             QJsonObject speeds;
             const int code = VXDisk().totalSpeed(speeds);
             c.out("speeds", speeds);
             return code;
         }},

        // Partitions.
        {"VXDisk::createPart",
         dev,
         {},
         R::Bool,
         [](AdmCall& c) { return VXDisk().createPart(c.str(0)); }},
        {"VXDisk::removePart",
         dev,
         {},
         R::Bool,
         [](AdmCall& c) { return VXDisk().removePart(c.str(0)); }},
        {"VXDisk::wipefs",
         {{"dev", T::String}, {"background", T::Bool}},
         {},
         R::Bool,
         [](AdmCall& c) { return VXDisk().wipefs(c.str(0), c.boolean(1)); }},

        // The record builders.
        {"VXDiskPrivate::devTypes",
         {{"entry", T::Object}},
         {"raid", "lvm", "mounted", "system", "cdrom"},
         R::None,
         [](AdmCall& c) {
             bool raid = false, lvm = false, mounted = false, system = false, cdrom = false;
             VXDiskPrivate::devTypes(c.object(0), raid, lvm, mounted, system, cdrom);
             c.out("raid", raid);
             c.out("lvm", lvm);
             c.out("mounted", mounted);
             c.out("system", system);
             c.out("cdrom", cdrom);
             return admVoid();
         }},
        {"VXDiskPrivate::all",
         {},
         {"disks"},
         R::Bool,
         [](AdmCall& c) {
             QJsonObject disks;
             const bool ok = VXDiskPrivate::all(&disks);
             c.out("disks", disks);
             return ok;
         }},

        // File systems.
        {"VXFileSystem::create",
         fsDevSize,
         {},
         R::Bool,
         [](AdmCall& c) { return VXFileSystem().create(c.str(0), c.str(1), c.integer(2)); }},
        {"VXFileSystem::create",
         fsDevSize,
         {"error"},
         R::Bool,
         [](AdmCall& c) {
             QString error;
             const bool made = VXFileSystem().create(error, c.str(0), c.str(1), c.integer(2));
             c.out("error", error);
             return made;
         }},
        {"VXFileSystem::creating",
         {{"fs", T::String}, {"dev", T::String}, {"extra", T::String}, {"blockSize", T::Int}},
         {},
         R::Bool,
         [](AdmCall& c) {
             return VXFileSystem().creating(c.str(0), c.str(1), c.str(2), c.integer(3));
         }},
        {"VXFileSystem::mountOptions",
         {{"fs", T::String}},
         {},
         R::Value,
         [](AdmCall& c) { return VXFileSystem::mountOptions(c.str(0)); }},
        // Per object, so a fresh one always says "".
        {"VXFileSystem::lastError",
         {},
         {},
         R::Value,
         [](AdmCall&) { return VXFileSystem().lastError(); }},
    };
}
