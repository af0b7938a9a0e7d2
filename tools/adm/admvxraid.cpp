// The md arrays: VXRaid, and the parts of VXRaidPrivate worth calling by hand.

#include "tools/adm/admtable.h"

#include "vx/vxraid.h"
#include "vx/vxraid_p.h"

QList<AdmEntry> admVXRaidEntries()
{
    using T = AdmType;
    using R = AdmResult;
    const QList<AdmParam> md{{"md", T::String}};
    return {
        // Status.
        {"VXRaid::acquit",
         md,
         {"out", "error"},
         R::Code,
         [](AdmCall& c) {
             QJsonObject out;
             QString error;
             const int code = VXRaid().acquit(out, c.str(0), &error);
             c.out("out", out);
             return admWithOut(c, "error", error, code);
         }},
        {"VXRaid::status",
         md,
         {"out"},
         R::Code,
         [](AdmCall& c) {
             QJsonObject out;
             const int code = VXRaid().status(out, c.str(0));
             c.out("out", out);
             return code;
         }},
        {"VXRaid::percents",
         md,
         {"out", "error"},
         R::Code,
         [](AdmCall& c) {
             QJsonObject out;
             QString error;
             const int code = VXRaid().percents(out, c.str(0), &error);
             c.out("out", out);
             return admWithOut(c, "error", error, code);
         }},
        {"VXRaid::names", {}, {}, R::Value, [](AdmCall&) { return admList(VXRaid().names()); }},
        {"VXRaid::exists", md, {}, R::Bool, [](AdmCall& c) { return VXRaid().exists(c.str(0)); }},
        {"VXRaid::allist", {}, {}, R::Value, [](AdmCall&) { return VXRaid().allist(); }},
        {"VXRaid::alload", {}, {}, R::Value, [](AdmCall&) { return VXRaid().alload(); }},
        {"VXRaid::isAllSsd",
         md,
         {},
         R::Bool,
         [](AdmCall& c) { return VXRaid().isAllSsd(c.str(0)); }},

        // Creation and reshaping.
        {"VXRaid::create",
         {{"level", T::Int},
          {"disks", T::StringList},
          {"spares", T::StringList},
          {"chunk", T::Int}},
         {"error", "md"},
         R::Code,
         [](AdmCall& c) {
             QString error, made;
             const int code =
                 VXRaid().create(error, c.integer(0), c.list(1), c.list(2), c.integer(3), made);
             c.out("md", made);
             return admWithOut(c, "error", error, code);
         }},
        {"VXRaid::extend",
         {{"md", T::String}, {"disks", T::StringList}},
         {"error"},
         R::Code,
         [](AdmCall& c) {
             QString error;
             const int code = VXRaid().extend(c.str(0), c.list(1), error);
             return admWithOut(c, "error", error, code);
         }},
        {"VXRaid::grow",
         {{"md", T::String}, {"level", T::Int}, {"disks", T::StringList}},
         {"error"},
         R::Code,
         [](AdmCall& c) {
             QString error;
             const int code = VXRaid().grow(c.str(0), c.integer(1), c.list(2), error);
             return admWithOut(c, "error", error, code);
         }},
        {"VXRaid::push",
         {{"md", T::String}, {"disks", T::StringList}},
         {"error"},
         R::Code,
         [](AdmCall& c) {
             QString error;
             const int code = VXRaid().push(error, c.str(0), c.list(1));
             return admWithOut(c, "error", error, code);
         }},
        {"VXRaid::pull",
         {{"md", T::String}, {"member", T::String}},
         {"error"},
         R::Code,
         [](AdmCall& c) {
             QString error;
             const int code = VXRaid().pull(error, c.str(0), c.str(1));
             return admWithOut(c, "error", error, code);
         }},
        {"VXRaid::remove",
         md,
         {"error"},
         R::Code,
         [](AdmCall& c) {
             QString error;
             const int code = VXRaid().remove(error, c.str(0));
             return admWithOut(c, "error", error, code);
         }},
        // Answers at once; nasbroltadm still waits for the dismantling thread.
        {"VXRaid::removes",
         md,
         {"error"},
         R::Code,
         [](AdmCall& c) {
             QString error;
             const int code = VXRaid().removes(error, c.str(0));
             return admWithOut(c, "error", error, code);
         }},
        {"VXRaid::repair", md, {}, R::Code, [](AdmCall& c) { return VXRaid().repair(c.str(0)); }},
        {"VXRaid::repairAll", {}, {}, R::Code, [](AdmCall&) { return VXRaid().repairAll(); }},
        {"VXRaid::rename",
         {{"oldMd", T::String}, {"newMd", T::String}},
         {},
         R::Code,
         [](AdmCall& c) { return VXRaid().rename(c.str(0), c.str(1)); }},
        {"VXRaid::active", md, {}, R::Bool, [](AdmCall& c) { return VXRaid().active(c.str(0)); }},

        // The daemon's side: the initial RAM disk and the speed limits.
        {"VXRaid::writeConfig",
         {},
         {},
         R::None,
         [](AdmCall&) {
             VXRaid().writeConfig();
             return admVoid();
         }},
        {"VXRaid::waitForWriteConfig",
         {{"msecs", T::Int}},
         {},
         R::Bool,
         [](AdmCall& c) { return VXRaid().waitForWriteConfig(c.integer(0)); }},
        {"VXRaid::limitSpeeds",
         {},
         {"max", "min"},
         R::None,
         [](AdmCall& c) {
             int max = 0, min = 0;
             VXRaid().limitSpeeds(max, min);
             c.out("max", max);
             c.out("min", min);
             return admVoid();
         }},
        {"VXRaid::setLimitSpeeds",
         {{"max", T::Int}, {"min", T::Int}},
         {},
         R::Bool,
         [](AdmCall& c) { return VXRaid().setLimitSpeeds(c.integer(0), c.integer(1)); }},

        // The working code: the parser with or without an inventory, the
        // quick list, and the member preparation.
        {"VXRaidPrivate::acquit",
         md,
         {"out"},
         R::Code,
         [](AdmCall& c) {
             QJsonObject out;
             const int code = VXRaidPrivate().acquit(out, c.str(0));
             c.out("out", out);
             return code;
         }},
        {"VXRaidPrivate::acquit",
         {{"md", T::String}, {"inventory", T::Object}},
         {"out"},
         R::Code,
         [](AdmCall& c) {
             QJsonObject out;
             const QJsonObject inventory = c.object(1);
             const int code = VXRaidPrivate().acquit(out, c.str(0), &inventory);
             c.out("out", out);
             return code;
         }},
        {"VXRaidPrivate::isRemodeling",
         md,
         {},
         R::Bool,
         [](AdmCall& c) { return VXRaidPrivate().isRemodeling(c.str(0)); }},
        {"VXRaidPrivate::mdevices",
         {},
         {},
         R::Value,
         [](AdmCall&) { return VXRaidPrivate().mdevices(); }},
        {"VXRaidPrivate::names",
         {},
         {},
         R::Value,
         [](AdmCall&) { return admList(VXRaidPrivate().names()); }},
        {"VXRaidPrivate::loadDevs",
         {{"record", T::Object}, {"key", T::String}},
         {"devs"},
         R::None,
         [](AdmCall& c) {
             QList<VXRaidDev> devs;
             VXRaidPrivate::loadDevs(devs, c.object(0), c.str(1));
             QJsonArray rows;
             for (const auto& [part, dev, number] : devs)
                 rows.append(QJsonArray{part, dev, number});
             c.out("devs", rows);
             return admVoid();
         }},
        {"VXRaidPrivate::canonical",
         md,
         {},
         R::Value,
         [](AdmCall& c) { return VXRaidPrivate::canonical(c.str(0)); }},
        {"VXRaidPrivate::known",
         md,
         {},
         R::Bool,
         [](AdmCall& c) { return VXRaidPrivate().known(c.str(0)); }},
        {"VXRaidPrivate::createPart",
         {{"disk", T::String}, {"waitMs", T::Int}},
         {"part"},
         R::Bool,
         [](AdmCall& c) {
             QString part;
             const bool made = VXRaidPrivate().createPart(part, c.str(0), c.integer(1));
             c.out("part", part);
             return made;
         }},
        {"VXRaidPrivate::setDefaultLayout",
         {},
         {},
         R::Bool,
         [](AdmCall&) { return VXRaidPrivate().setDefaultLayout(); }},
    };
}
