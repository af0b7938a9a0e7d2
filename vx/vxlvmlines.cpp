#include "vx/vxlvmlines.h"

#include <QChar>

namespace {

bool isAsciiAlnum(uint c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

} // namespace

bool isLvmName(const QString& name)
{
    if (name.isEmpty() || name.size() > 127 || name.startsWith(QLatin1Char('-')) ||
        name == QLatin1String(".") || name == QLatin1String(".."))
        return false;
    for (const QChar c : name) {
        if (!isAsciiAlnum(c.unicode()) && !QLatin1String("+_.-").contains(c))
            return false;
    }
    return true;
}

bool isLvmPassword(const QString& pwd)
{
    if (pwd.startsWith(QLatin1Char('-')))
        return false;
    // Counted in characters, not UTF-16 units.
    int count = 0;
    for (int i = 0; i < pwd.size(); ++i, ++count) {
        uint c = pwd.at(i).unicode();
        if (QChar::isHighSurrogate(c) && i + 1 < pwd.size() && pwd.at(i + 1).isLowSurrogate()) {
            c = QChar::surrogateToUcs4(pwd.at(i), pwd.at(i + 1));
            ++i;
        }
        if (c < 128) {
            if (!isAsciiAlnum(c) && !QLatin1String("!@%^+=:,._/-").contains(QLatin1Char(char(c))))
                return false;
        } else if (QChar::isSurrogate(c) || !QChar::isPrint(c)) {
            return false;
        }
    }
    return count <= 512;
}

int lvmFreeMb(qint64 freeBytes)
{
    const double mb = ((double(freeBytes) + 1048576) - 1) / 1024 / 1024;
    if (mb >= 2147483647.0)
        return 2147483647;
    return mb <= -2147483648.0 ? -2147483647 - 1 : int(mb);
}

bool thinPoolOwnSize(int sizeMb, int freeMb)
{
    return sizeMb < freeMb * 0.96;
}

int thinSizeFromPool(qint64 poolBytes, int fallbackMb)
{
    if (poolBytes <= 0)
        return fallbackMb;
    // Rounded up to whole MiB without the overflow of adding first.
    const qint64 mb = (poolBytes >> 20) + ((poolBytes & 0xfffff) != 0 ? 1 : 0);
    return mb > 2147483647 ? 2147483647 : int(mb);
}
