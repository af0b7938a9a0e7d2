#include "vx/vxmemory.h"

#include "gx2/gx2file.h"
#include "gx2/gx2syspath.h"
#include "vx/vxsysparse.h"

void VXMemory::alload(QJsonObject& memory)
{
    const QJsonObject figures =
        meminfoOf(QString::fromUtf8(GX2File::readAll(sysPath(QStringLiteral("/proc/meminfo")))));
    for (auto it = figures.begin(); it != figures.end(); ++it)
        memory.insert(it.key(), it.value());
}
