#include "vx/vxnetwork.h"

#include "gx2/gx2file.h"
#include "gx2/gx2syspath.h"
#include "lnx2/lnx2process.h"
#include "vx/vxsysparse.h"

#include <QDir>
#include <QWriteLocker>

namespace {

QStringList entriesOf(const QString& dir)
{
    // Interfaces are symbolic links into /sys/devices; System keeps a link
    // whose target is missing.
    return QDir(sysPath(dir))
        .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

} // namespace

void VXNetwork::speeds(QJsonObject& nics, qint64& readall, qint64& writeall)
{
    // The timer and the previous sample change together, so one write lock
    // covers the whole call.
    QWriteLocker locker(&lock);
    readall = 0;
    writeall = 0;
    if (clock.isValid() && clock.elapsed() <= 500) {
        // Half a second is too short for a rate: hand back the last sample.
        // The timer keeps running, so calls every 400 ms still get new ones.
        for (const QJsonValue& nic : previous) {
            readall += static_cast<qint64>(nic.toObject().value("read_speed").toDouble());
            writeall += static_cast<qint64>(nic.toObject().value("write_speed").toDouble());
        }
        nics = previous;
        return;
    }
    qint64 elapsed = 0;
    if (clock.isValid())
        elapsed = clock.restart();
    else
        clock.start();
    const QString netDev =
        QString::fromUtf8(GX2File::readAll(sysPath(QStringLiteral("/proc/net/dev"))));
    previous = netSpeedsOf(netDev, physicalNics(), previous, elapsed, readall, writeall);
    nics = previous;
}

QStringList VXNetwork::physicalNics()
{
    QStringList nics = entriesOf(QStringLiteral("/sys/class/net"));
    for (const QString& virtualNic : entriesOf(QStringLiteral("/sys/devices/virtual/net")))
        nics.removeAll(virtualNic);
    return nics;
}

QString VXNetwork::hostname()
{
    const LNX2ProcResult result = procRunLine(QStringLiteral("/bin/hostname"), 10000, 10000);
    return result.ok() ? QString::fromUtf8(result.out).trimmed() : QString();
}
