#include "vx/vxcommon.h"
#include "vx/vxdevice.h"
#include "vx/vxdisk.h"
#include "vx/vxdisk_p.h"
#include "vx/vxhealthparse.h"

#include "lnx2/lnx2utils.h"

#include <QJsonDocument>

// smartctl also ends with a non-zero code for a disk that merely logged
// errors in the past; such a disk gives no rows here.
int VXDisk::smartInfo(QJsonArray& rows, const QString& dev)
{
    if (!isDevicePath(dev))
        return -1;
    QString output;
    if (!runTool(QStringLiteral("/usr/bin/sudo smartctl -aj ") + dev, output))
        return -1;
    const QJsonDocument report = QJsonDocument::fromJson(output.toUtf8());
    if (!report.isObject())
        return -1;
    smartRowsOf(rows, report.object(), dev.startsWith(QLatin1String("/dev/nvme")));
    return 0;
}

bool VXDisk::smartHasErrors()
{
    QJsonObject disks;
    if (!VXDiskPrivate::all(&disks))
        return false;
    for (auto it = disks.begin(); it != disks.end(); ++it) {
        QJsonArray rows;
        smartInfo(rows, it.key());
        for (const QJsonValue& row : qAsConst(rows)) {
            if (row.toObject().value(QLatin1String("status")).toInt() == -1)
                return true;
        }
    }
    return false;
}

bool VXDisk::temperature(double& celsius, const QString& dev)
{
    if (!isDevicePath(dev))
        return false;
    // The short attribute listing: the lookout reads every disk each sample.
    QString output;
    if (!cmdExec(QStringLiteral("/usr/bin/sudo smartctl --attribute ") + dev, output, 9999))
        return false;
    return temperatureOf(celsius, output);
}

int VXDisk::temperatures(QJsonObject& perDisk, double& min, double& max)
{
    const QStringList disks = names();
    min = 99999.0;
    max = 0;
    int read = 0;
    for (const QString& dev : disks) {
        double celsius = 0;
        if (!temperature(celsius, dev))
            continue;
        perDisk.insert(dev, celsius);
        if (read == 0 || celsius > max)
            max = celsius;
        if (celsius < min)
            min = celsius;
        ++read;
    }
    if (read == 0)
        min = max = 0;
    return read;
}

double VXDisk::maxTemperature()
{
    QJsonObject perDisk;
    double min = 0;
    double max = 0;
    temperatures(perDisk, min, max);
    return max;
}

int VXDisk::totalSpeed(QJsonObject& speeds)
{
    // One quiet sample of the active processes only, short enough for the lookout.
    QString output;
    if (cmdExec(QStringLiteral("/usr/bin/sudo iotop -o -q -n 1"), output, 1500))
        totalSpeedOf(speeds, output);
    return 0;
}
