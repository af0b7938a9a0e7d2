#include "vx/vxcommon.h"

#include "gx2/gx2file.h"
#include "gx2/gx2syspath.h"
#include "lnx2/lnx2process.h"
#include "lnx2/lnx2utils.h"

bool runTool(const QString& commandLine, QString& output, int finishMs)
{
    const LNX2ProcResult result = procRunLine(commandLine, 999, finishMs);
    output = result.ok() ? cmdText(result.out) : QString();
    return result.ok();
}

QString readSysFile(const QString& path)
{
    return QString::fromUtf8(GX2File::readAll(sysPath(path)));
}
