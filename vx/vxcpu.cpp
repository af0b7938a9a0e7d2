#include "vx/vxcpu.h"

#include "lnx2/lnx2process.h"
#include "lnx2/lnx2utils.h"
#include "vx/vxsysparse.h"

namespace {
constexpr int kToolMs = 2000;
} // namespace

void VXCpu::cpuProcessing(QJsonObject& cpu, QJsonObject& process)
{
    QString top;
    if (!cmdExec(QStringLiteral("/usr/bin/sudo /usr/bin/top -Sbn1"), top, kToolMs) ||
        top.split(QLatin1Char('\n'), Qt::SkipEmptyParts).size() < 7)
        return;

    const QJsonObject load = topCpuOf(top);
    for (auto it = load.begin(); it != load.end(); ++it)
        cpu.insert(it.key(), it.value());
    const double celsius = temperature();
    cpu.insert("temperature", celsius);
    cpu.insert("fahrenheit", fahrenheitOf(celsius));

    const QJsonObject tasks = topTasksOf(top);
    for (auto it = tasks.begin(); it != tasks.end(); ++it)
        process.insert(it.key(), it.value());

    QString ps;
    if (!cmdExec(QStringLiteral("/usr/bin/sudo ps aux --noheading"), ps, kToolMs))
        ps.clear();
    process.insert("processes", psProcessesOf(ps));
}

double VXCpu::temperature()
{
    // sensors exits 1 when one chip fails to read yet prints the others, so
    // its standard output counts whatever the exit status.
    const LNX2ProcResult result =
        procRunLine(QStringLiteral("/usr/bin/sudo sensors -j"), kToolMs, kToolMs);
    if (!result.started || !result.finished)
        return 0;
    return coreTemperatureOf(QString::fromUtf8(result.out));
}
