// The volume groups and logical volumes: VXLvm and VXLvmPrivate.

#include "tools/adm/admtable.h"

#include "vx/vxlvm.h"
#include "vx/vxlvm_p.h"

#include <QDir>

QList<AdmEntry> admVXLvmEntries()
{
    using T = AdmType;
    using R = AdmResult;
    const QList<AdmParam> vg{{"vg", T::String}};
    const QList<AdmParam> vgLv{{"vg", T::String}, {"lv", T::String}};
    const QList<AdmParam> dev{{"dev", T::String}};
    const QList<AdmParam> vgDisks{{"vg", T::String}, {"disks", T::StringList}};
    return {
        // Volume groups.
        {"VXLvm::vgCreate",
         {{"vg", T::String}, {"disks", T::StringList}, {"peSizeMb", T::Int}},
         {"msg"},
         R::Code,
         [](AdmCall& c) {
             QString msg;
             const int code = VXLvm::vgCreate(msg, c.str(0), c.list(1), c.integer(2));
             return admWithOut(c, "msg", msg, code);
         }},
        {"VXLvm::vgExtend",
         vgDisks,
         {"msg"},
         R::Code,
         [](AdmCall& c) {
             QString msg;
             const int code = VXLvm::vgExtend(msg, c.str(0), c.list(1));
             return admWithOut(c, "msg", msg, code);
         }},
        {"VXLvm::vgRemove",
         vg,
         {"msg"},
         R::Bool,
         [](AdmCall& c) {
             QString msg;
             const bool removed = VXLvm::vgRemove(msg, c.str(0));
             return admWithOut(c, "msg", msg, removed);
         }},
        {"VXLvm::vgExists", vg, {}, R::Bool, [](AdmCall& c) { return VXLvm::vgExists(c.str(0)); }},
        {"VXLvm::vgFree", vg, {}, R::Value, [](AdmCall& c) { return VXLvm::vgFree(c.str(0)); }},
        {"VXLvm::vgNames", {}, {}, R::Value, [](AdmCall&) { return admList(VXLvm::vgNames()); }},
        {"VXLvm::lvNames",
         vg,
         {},
         R::Value,
         [](AdmCall& c) { return admList(VXLvm::lvNames(c.str(0))); }},

        // Logical volumes.
        {"VXLvm::lvExists",
         vgLv,
         {},
         R::Bool,
         [](AdmCall& c) { return VXLvm::lvExists(c.str(0), c.str(1)); }},
        {"VXLvm::lvCreate",
         {{"vg", T::String}, {"lv", T::String}, {"mbsize", T::Int}, {"type", T::String}},
         {},
         R::Bool,
         [](AdmCall& c) { return VXLvm::lvCreate(c.str(0), c.str(1), c.integer(2), c.str(3)); }},
        // Asks the running daemon.
        {"VXLvm::lvCreating",
         {{"vg", T::String},
          {"lv", T::String},
          {"mbsize", T::Int},
          {"type", T::String},
          {"fstype", T::String},
          {"block", T::Int},
          {"pwd", T::String},
          {"savepwd", T::Bool}},
         {},
         R::Bool,
         [](AdmCall& c) {
             return VXLvm::lvCreating(c.str(0), c.str(1), c.integer(2), c.str(3), c.str(4),
                                      c.integer(5), c.str(6), c.boolean(7));
         }},
        {"VXLvm::lvFormat",
         {{"vg", T::String},
          {"lv", T::String},
          {"fstype", T::String},
          {"block", T::Int},
          {"pwd", T::String}},
         {"msg"},
         R::Bool,
         [](AdmCall& c) {
             QString msg;
             const bool made =
                 VXLvm::lvFormat(msg, c.str(0), c.str(1), c.str(2), c.integer(3), c.str(4));
             return admWithOut(c, "msg", msg, made);
         }},
        {"VXLvm::lvFormating",
         vgLv,
         {},
         R::Bool,
         [](AdmCall& c) { return VXLvm::lvFormating(c.str(0), c.str(1)); }},
        {"VXLvm::lvMount",
         {{"dev", T::String}, {"mountPath", T::String}, {"pwd", T::String}},
         {"msg"},
         R::Code,
         [](AdmCall& c) {
             QString msg;
             const int code = VXLvm::lvMount(msg, c.str(0), c.str(1), c.str(2));
             return admWithOut(c, "msg", msg, code);
         }},
        {"VXLvm::lvUmount", dev, {}, R::Bool, [](AdmCall& c) { return VXLvm::lvUmount(c.str(0)); }},
        {"VXLvm::lvExtend",
         {{"dev", T::String}, {"newMb", T::Int}},
         {"msg"},
         R::Code,
         [](AdmCall& c) {
             QString msg;
             const int code = VXLvm::lvExtend(msg, c.str(0), c.integer(1));
             return admWithOut(c, "msg", msg, code);
         }},
        {"VXLvm::lvRemove",
         dev,
         {"msg"},
         R::Code,
         [](AdmCall& c) {
             QString msg;
             const int code = VXLvm::lvRemove(msg, c.str(0));
             return admWithOut(c, "msg", msg, code);
         }},
        {"VXLvm::lvRemove",
         vgLv,
         {"msg"},
         R::Code,
         [](AdmCall& c) {
             QString msg;
             const int code = VXLvm::lvRemove(msg, c.str(0), c.str(1));
             return admWithOut(c, "msg", msg, code);
         }},

        // Paths.
        {"VXLvm::toMountPath",
         vgLv,
         {},
         R::Value,
         [](AdmCall& c) { return VXLvm::toMountPath(c.str(0), c.str(1)); }},
        {"VXLvm::toMountPath",
         dev,
         {},
         R::Value,
         [](AdmCall& c) { return VXLvm::toMountPath(c.str(0)); }},
        {"VXLvm::toVolumePath",
         vgLv,
         {"dmPath"},
         R::Value,
         [](AdmCall& c) {
             QString dmPath;
             const QString path = VXLvm::toVolumePath(c.str(0), c.str(1), &dmPath);
             c.out("dmPath", dmPath);
             return path;
         }},
        {"VXLvm::toVgLv",
         dev,
         {"vg", "lv"},
         R::Value,
         [](AdmCall& c) {
             QString vg, lv;
             const QString path = VXLvm::toVgLv(vg, lv, c.str(0));
             c.out("vg", vg);
             c.out("lv", lv);
             return path;
         }},
        {"VXLvm::toFstype",
         dev,
         {},
         R::Value,
         [](AdmCall& c) { return VXLvm::toFstype(c.str(0)); }},

        // Encryption.
        {"VXLvm::lvSavePwd",
         {{"vg", T::String}, {"lv", T::String}, {"pwd", T::String}},
         {"msg"},
         R::Bool,
         [](AdmCall& c) {
             QString msg;
             const bool saved = VXLvm::lvSavePwd(msg, c.str(0), c.str(1), c.str(2));
             return admWithOut(c, "msg", msg, saved);
         }},
        {"VXLvm::lvLoadPwd",
         vgLv,
         {"msg", "pwd"},
         R::Code,
         [](AdmCall& c) {
             QString msg, pwd;
             const int code = VXLvm::lvLoadPwd(msg, pwd, c.str(0), c.str(1));
             c.out("pwd", pwd);
             return admWithOut(c, "msg", msg, code);
         }},
        {"VXLvm::lvIsCrypt",
         dev,
         {},
         R::Bool,
         [](AdmCall& c) { return VXLvm::lvIsCrypt(c.str(0)); }},
        {"VXLvm::toDeviceMapperPath",
         dev,
         {},
         R::Value,
         [](AdmCall& c) { return VXLvm::toDeviceMapperPath(c.str(0)); }},

        // Inventory.
        {"VXLvm::vgAlload", {}, {}, R::Value, [](AdmCall&) { return VXLvm::vgAlload(); }},
        {"VXLvm::groups", {}, {}, R::Value, [](AdmCall&) { return admList(VXLvm::groups()); }},
        {"VXLvm::allist", {}, {}, R::Value, [](AdmCall&) { return VXLvm::allist(); }},
        {"VXLvm::alload", {}, {}, R::Value, [](AdmCall&) { return VXLvm::alload(); }},
        {"VXLvm::whole", {}, {}, R::Value, [](AdmCall&) { return VXLvm::whole(); }},
        {"VXLvm::lvAllMounts", {}, {}, R::Value, [](AdmCall&) { return VXLvm::lvAllMounts(); }},
        {"VXLvm::lvDevMounts", {}, {}, R::Value, [](AdmCall&) { return VXLvm::lvDevMounts(); }},
        {"VXLvm::lvMountsByDev", {}, {}, R::Value, [](AdmCall&) { return VXLvm::lvMountsByDev(); }},
        {"VXLvm::lvFree",
         {{"path", T::String}},
         {},
         R::Value,
         [](AdmCall& c) { return VXLvm::lvFree(c.str(0)); }},
        {"VXLvm::blockDevice",
         dev,
         {},
         R::Value,
         [](AdmCall& c) { return VXLvm::blockDevice(c.str(0)); }},
        {"VXLvm::toUuid", dev, {}, R::Value, [](AdmCall& c) { return VXLvm::toUuid(c.str(0)); }},
        // False only says that fstab needed no change.
        {"VXLvm::fixlost", {}, {}, R::Value, [](AdmCall&) { return VXLvm::fixlost(); }},
        {"VXLvm::lvDetail",
         dev,
         {"obj"},
         R::Bool,
         [](AdmCall& c) {
             QJsonObject obj;
             const bool found = VXLvm::lvDetail(obj, c.str(0));
             c.out("obj", obj);
             return found;
         }},
        {"VXLvm::vgDetail",
         {{"vg", T::String}, {"withAvailables", T::Bool}},
         {},
         R::Value,
         [](AdmCall& c) { return VXLvm::vgDetail(c.str(0), c.boolean(1)); }},
        {"VXLvm::lvMounts", {}, {}, R::Value, [](AdmCall&) { return VXLvm::lvMounts(); }},
        {"VXLvm::lvMounted",
         {{"path", T::String}},
         {"size", "used", "avail"},
         R::Bool,
         [](AdmCall& c) {
             qint64 size = 0, used = 0, avail = 0;
             const bool mounted = VXLvm::lvMounted(size, used, avail, c.str(0));
             c.out("size", size);
             c.out("used", used);
             c.out("avail", avail);
             return mounted;
         }},
        // The form above, with its figures, is the one a call with one word
        // reaches; VXLvmPrivate::lvMounted answers the same for a device.
        {"VXLvm::lvMounted",
         dev,
         {},
         R::Bool,
         [](AdmCall& c) { return VXLvm::lvMounted(c.str(0)); }},

        // The helpers.
        {"VXLvmPrivate::mount",
         {{"dev", T::String}, {"mountPath", T::String}, {"withType", T::Bool}},
         {"msg"},
         R::Bool,
         [](AdmCall& c) {
             QString msg;
             const bool mounted = VXLvmPrivate::mount(msg, c.str(0), c.str(1), c.boolean(2));
             return admWithOut(c, "msg", msg, mounted);
         }},
        {"VXLvmPrivate::pathForMount",
         dev,
         {"out"},
         R::Bool,
         [](AdmCall& c) {
             QString out;
             const bool found = VXLvmPrivate::pathForMount(out, c.str(0));
             c.out("out", out);
             return found;
         }},
        {"VXLvmPrivate::lvMounted",
         dev,
         {},
         R::Bool,
         [](AdmCall& c) { return VXLvmPrivate::lvMounted(c.str(0)); }},
        {"VXLvmPrivate::GetPESizeMb",
         vg,
         {},
         R::Value,
         [](AdmCall& c) { return VXLvmPrivate::GetPESizeMb(c.str(0)); }},
        {"VXLvmPrivate::loadFromFstab",
         {},
         {},
         R::Value,
         [](AdmCall&) { return VXLvmPrivate::loadFromFstab(); }},
        {"VXLvmPrivate::fstabAppend",
         {{"source", T::String},
          {"target", T::String},
          {"fstype", T::String},
          {"options", T::String},
          {"freq", T::Int},
          {"passno", T::Int}},
         {},
         R::Bool,
         [](AdmCall& c) {
             return VXLvmPrivate::fstabAppend(c.str(0), c.str(1), c.str(2), c.str(3), c.integer(4),
                                              c.integer(5));
         }},
        {"VXLvmPrivate::fstabRemove",
         {{"target", T::String}},
         {},
         R::Bool,
         [](AdmCall& c) { return VXLvmPrivate::fstabRemove(c.str(0)); }},
        {"VXLvmPrivate::crypttabAppend",
         dev,
         {},
         R::Bool,
         [](AdmCall& c) { return VXLvmPrivate::crypttabAppend(c.str(0)); }},
        {"VXLvmPrivate::crypttabRemove",
         dev,
         {},
         R::Bool,
         [](AdmCall& c) { return VXLvmPrivate::crypttabRemove(c.str(0)); }},
        {"VXLvmPrivate::cryptFilePath",
         vgLv,
         {"dir"},
         R::Value,
         [](AdmCall& c) {
             QDir dir;
             const QString path = VXLvmPrivate::cryptFilePath(c.str(0), c.str(1), &dir);
             // No key directory for a refused name.
             c.out("dir", path.isEmpty() ? QString() : dir.absolutePath());
             return path;
         }},
        {"VXLvmPrivate::lvIsCrypt",
         dev,
         {},
         R::Bool,
         [](AdmCall& c) { return VXLvmPrivate::lvIsCrypt(c.str(0)); }},
        {"VXLvmPrivate::toDeviceMapperPath",
         dev,
         {},
         R::Value,
         [](AdmCall& c) { return VXLvmPrivate::toDeviceMapperPath(c.str(0)); }},
        {"VXLvmPrivate::allMounted",
         {},
         {},
         R::Value,
         [](AdmCall&) { return admList(VXLvmPrivate::allMounted()); }},
        {"VXLvmPrivate::toUuid",
         dev,
         {},
         R::Value,
         [](AdmCall& c) { return VXLvmPrivate::toUuid(c.str(0)); }},
    };
}
