#include "vx/systeminfo.h"

#include "lnx2/lnx2utils.h"
#include "vx/systeminfo_p.h"
#include "vx/vxnetwork.h"
#include "vx/vxsysparse.h"

#include <QJsonDocument>
#include <QSysInfo>

namespace {

QJsonObject modelTable()
{
    return QJsonDocument::fromJson(QByteArray(kSystemModelTable)).object();
}

} // namespace

QJsonObject SystemInfoPrivate::biosInfo() const
{
    QString out;
    if (!cmdExec(QStringLiteral("dmidecode --type 1"), out, 1000))
        out.clear();
    return dmiSystemOf(out, models());
}

bool SystemInfoPrivate::optionalByModel(QJsonObject& row, const QString& model)
{
    const QJsonObject table = modelTable();
    if (!table.contains(model))
        return false;
    row = table.value(model).toObject();
    return true;
}

QStringList SystemInfoPrivate::models()
{
    // The text's order, which QJsonObject does not keep.
    return {"KA200", "KB201P", "KB401P", "KB801P"};
}

SystemInfo::SystemInfo() : d(new SystemInfoPrivate)
{
    QString uname;
    if (!cmdExec(QStringLiteral("uname -a"), uname, 1000))
        uname.clear();
    d->info.insert("kernel", QJsonObject{{"type", QSysInfo::kernelType()},
                                         {"version", QSysInfo::kernelVersion()},
                                         {"name", uname.trimmed()}});
    d->info.insert("os", QJsonObject{{"type", QSysInfo::productType()},
                                     {"version", QSysInfo::productVersion()},
                                     {"edition", QSysInfo::prettyProductName()}});
    QJsonObject machine = d->biosInfo();
    machine.insert("uniqueid", QString::fromLatin1(QSysInfo::machineUniqueId()));
    d->info.insert("machine", machine);
    QJsonObject row;
    if (SystemInfoPrivate::optionalByModel(row, machine.value("model").toString()))
        d->info.insert("optional", row);
}

SystemInfo::~SystemInfo() = default;

QJsonObject SystemInfo::allInfo() const
{
    QJsonObject all = d->info;
    all.insert("hostname", VXNetwork::hostname());
    return all;
}
