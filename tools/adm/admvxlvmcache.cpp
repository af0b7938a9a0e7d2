// The SSD cache of the volume groups: VXLvm and its VXLvmPrivate helpers.

#include "tools/adm/admtable.h"

#include "vx/vxlvm.h"
#include "vx/vxlvm_p.h"

QList<AdmEntry> admVXLvmCacheEntries()
{
    using T = AdmType;
    using R = AdmResult;
    const QList<AdmParam> vg{{"vg", T::String}};
    const QList<AdmParam> vgLv{{"vg", T::String}, {"lv", T::String}};
    const QList<AdmParam> vgDisk{{"vg", T::String}, {"disk", T::String}};
    // KiB beyond the int range (a 2 TiB cache) pass as a number.
    const QList<AdmParam> vgLvDiskSize{
        {"vg", T::String}, {"lv", T::String}, {"disk", T::String}, {"sizeK", T::Double}};
    return {
        // Cache disks of a group.
        {"VXLvm::vgCacheAppend",
         vgDisk,
         {"msg"},
         R::Code,
         [](AdmCall& c) {
             QString msg;
             const int code = VXLvm::vgCacheAppend(msg, c.str(0), c.str(1));
             return admWithOut(c, "msg", msg, code);
         }},
        {"VXLvm::vgCacheRemove",
         vgDisk,
         {},
         R::Code,
         [](AdmCall& c) { return VXLvm::vgCacheRemove(c.str(0), c.str(1)); }},
        {"VXLvm::vgCacheActive",
         vgDisk,
         {},
         R::Bool,
         [](AdmCall& c) { return VXLvm::vgCacheActive(c.str(0), c.str(1)); }},
        {"VXLvm::vgCacheRepair",
         vg,
         {},
         R::Bool,
         [](AdmCall& c) { return VXLvm::vgCacheRepair(c.str(0)); }},
        {"VXLvm::vgCacheAllist",
         vg,
         {},
         R::Value,
         [](AdmCall& c) { return QJsonArray::fromStringList(VXLvm::vgCacheAllist(c.str(0))); }},
        {"VXLvm::vgCacheAlload", {}, {}, R::Value, [](AdmCall&) { return VXLvm::vgCacheAlload(); }},
        {"VXLvm::vgCacheAlload",
         vg,
         {},
         R::Value,
         [](AdmCall& c) { return VXLvm::vgCacheAlload(c.str(0)); }},

        // A volume's cache.
        {"VXLvm::lvCacheAppend",
         {{"vg", T::String},
          {"lv", T::String},
          {"disk", T::String},
          {"sizeMb", T::Int},
          {"mode", T::String}},
         {"msg"},
         R::Code,
         [](AdmCall& c) {
             QString msg;
             const int code =
                 VXLvm::lvCacheAppend(msg, c.str(0), c.str(1), c.str(2), c.integer(3), c.str(4));
             return admWithOut(c, "msg", msg, code);
         }},
        {"VXLvm::lvCacheRemove",
         vgLv,
         {"msg"},
         R::Code,
         [](AdmCall& c) {
             QString msg;
             const int code = VXLvm::lvCacheRemove(msg, c.str(0), c.str(1));
             return admWithOut(c, "msg", msg, code);
         }},
        {"VXLvm::lvCacheExists",
         vgLv,
         {},
         R::Bool,
         [](AdmCall& c) { return VXLvm::lvCacheExists(c.str(0), c.str(1)); }},
        {"VXLvm::lvCacheLVPool",
         vgLv,
         {},
         R::Value,
         [](AdmCall& c) { return VXLvm::lvCacheLVPool(c.str(0), c.str(1)); }},
        {"VXLvm::lvCacheDev",
         vgLv,
         {"dev"},
         R::Bool,
         [](AdmCall& c) {
             QString dev;
             const bool found = VXLvm::lvCacheDev(dev, c.str(0), c.str(1));
             c.out("dev", dev);
             return found;
         }},
        {"VXLvm::lvCacheDetail",
         vgLv,
         {"obj"},
         R::Bool,
         [](AdmCall& c) {
             QJsonObject obj;
             const bool found = VXLvm::lvCacheDetail(obj, c.str(0), c.str(1));
             c.out("obj", obj);
             return found;
         }},

        // The helpers.
        {"VXLvmPrivate::availCacheSizeMb",
         vgDisk,
         {},
         R::Value,
         [](AdmCall& c) { return VXLvmPrivate::availCacheSizeMb(c.str(0), c.str(1)); }},
        {"VXLvmPrivate::CreateCacheDataLV",
         {{"name", T::String}, {"vg", T::String}, {"disk", T::String}, {"sizeK", T::Double}},
         {},
         R::Bool,
         [](AdmCall& c) {
             return VXLvmPrivate::CreateCacheDataLV(c.str(0), c.str(1), c.str(2),
                                                    qint64(c.number(3)));
         }},
        {"VXLvmPrivate::ExtendLVonPV",
         vgLvDiskSize,
         {},
         R::Bool,
         [](AdmCall& c) {
             return VXLvmPrivate::ExtendLVonPV(c.str(0), c.str(1), c.str(2), qint64(c.number(3)));
         }},
        {"VXLvmPrivate::CreateCachePool",
         {{"vg", T::String}, {"meta", T::String}, {"data", T::String}},
         {},
         R::Bool,
         [](AdmCall& c) { return VXLvmPrivate::CreateCachePool(c.str(0), c.str(1), c.str(2)); }},
        {"VXLvmPrivate::CombineLVWithCache",
         {{"vg", T::String}, {"lv", T::String}, {"pool", T::String}, {"mode", T::String}},
         {},
         R::Bool,
         [](AdmCall& c) {
             return VXLvmPrivate::CombineLVWithCache(c.str(0), c.str(1), c.str(2), c.str(3));
         }},
        {"VXLvmPrivate::vgAlterToCache",
         vgDisk,
         {},
         R::Bool,
         [](AdmCall& c) { return VXLvmPrivate::vgAlterToCache(c.str(0), c.str(1)); }},
    };
}
