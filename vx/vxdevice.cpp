#include "vx/vxdevice.h"

#include <QStringList>

namespace {

bool segmentChar(QChar c)
{
    const ushort u = c.unicode();
    if ((u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || (u >= '0' && u <= '9'))
        return true;
    return u == '.' || u == '_' || u == '+' || u == ':' || u == '@' || u == '-';
}

bool segmentValid(const QString& segment)
{
    if (segment.isEmpty() || segment == QLatin1String(".") || segment == QLatin1String("..") ||
        segment.startsWith(QLatin1Char('-')))
        return false;
    for (const QChar c : segment) {
        if (!segmentChar(c))
            return false;
    }
    return true;
}

} // namespace

bool isDevicePath(const QString& dev)
{
    // "/dev/sda mklabel msdos" or "/dev/sda -x" would reach a root parted.
    if (!dev.startsWith(QLatin1String("/dev/")) || dev.size() > 255)
        return false;
    const QStringList segments = dev.mid(5).split(QLatin1Char('/'));
    for (const QString& segment : segments) {
        if (!segmentValid(segment))
            return false;
    }
    return true;
}
