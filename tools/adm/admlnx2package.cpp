// The package maintenance: LNX2Package.

#include "tools/adm/admtable.h"

#include "lnx2/lnx2package.h"

namespace {

QJsonValue entriesValue(const QList<QJsonObject>& entries)
{
    QJsonArray array;
    for (const QJsonObject& entry : entries)
        array.append(entry);
    return array;
}

QList<QJsonObject> entriesOf(const QJsonArray& array)
{
    QList<QJsonObject> entries;
    for (const QJsonValue& value : array)
        entries << value.toObject();
    return entries;
}

} // namespace

QList<AdmEntry> admLNX2PackageEntries()
{
    using T = AdmType;
    using R = AdmResult;
    const QList<AdmParam> name{{"name", T::String}};
    const QList<AdmParam> list{{"list", T::Array}};
    const LNX2Package p;
    return {
        {"LNX2Package::isBusy", {}, {}, R::Value, [p](AdmCall&) { return p.isBusy(); }},
        {"LNX2Package::packages",
         {},
         {},
         R::Value,
         [p](AdmCall&) { return entriesValue(p.packages()); }},
        {"LNX2Package::installeds",
         {},
         {},
         R::Value,
         [p](AdmCall&) { return admList(p.installeds()); }},
        {"LNX2Package::packageVersions",
         {},
         {},
         R::Value,
         [p](AdmCall&) { return admList(p.packageVersions()); }},
        {"LNX2Package::installed",
         name,
         {"version"},
         R::Bool,
         [p](AdmCall& c) {
             QString version;
             const bool found = p.installed(c.str(0), &version);
             return admWithOut(c, "version", version, found);
         }},
        {"LNX2Package::status",
         name,
         {"state", "version"},
         R::Bool,
         [p](AdmCall& c) {
             QString state;
             QString version;
             const bool found = p.status(c.str(0), state, version);
             c.out("state", state);
             return admWithOut(c, "version", version, found);
         }},
        {"LNX2Package::brokens",
         {},
         {},
         R::Value,
         [p](AdmCall&) { return entriesValue(p.brokens()); }},
        // Both forms take no input: one call runs both, the lines as the
        // result and the entries as "list".
        {"LNX2Package::upgradables",
         {},
         {"list"},
         R::Value,
         [p](AdmCall& c) {
             QJsonArray upgrades;
             p.upgradables(upgrades);
             c.out("list", upgrades);
             return admList(p.upgradables());
         }},
        {"LNX2Package::upgradable",
         name,
         {"version", "current"},
         R::Bool,
         [p](AdmCall& c) {
             QString version;
             QString current;
             const bool found = p.upgradable(version, current, c.str(0));
             c.out("version", version);
             return admWithOut(c, "current", current, found);
         }},
        {"LNX2Package::purge", name, {}, R::Bool, [p](AdmCall& c) { return p.purge(c.str(0)); }},
        {"LNX2Package::purge",
         list,
         {},
         R::Value,
         [p](AdmCall& c) { return p.purge(entriesOf(c.array(0))); }},
        {"LNX2Package::reinstall",
         name,
         {},
         R::Bool,
         [p](AdmCall& c) { return p.reinstall(c.str(0)); }},
        {"LNX2Package::reinstall",
         list,
         {},
         R::Value,
         [p](AdmCall& c) { return p.reinstall(entriesOf(c.array(0))); }},
        {"LNX2Package::stepAutoRemove",
         {},
         {},
         R::Bool,
         [p](AdmCall&) { return p.stepAutoRemove(); }},
        {"LNX2Package::stepPurges", {}, {}, R::Value, [p](AdmCall&) { return p.stepPurges(); }},
        {"LNX2Package::stepRepair", {}, {}, R::Bool, [p](AdmCall&) { return p.stepRepair(); }},
        {"LNX2Package::repairAll",
         {{"wait", T::Bool}},
         {},
         R::Bool,
         [p](AdmCall& c) { return p.repairAll(c.boolean(0)); }},
        {"LNX2Package::ntpServer",
         {},
         {},
         R::Value,
         [](AdmCall&) { return LNX2Package::ntpServer(); }},
    };
}
