#include "tests/support/processes.h"

#include <QElapsedTimer>
#include <QFile>
#include <QLocalSocket>
#include <QThread>

#include <csignal>

namespace {

const char kSudo[] = R"sh(#!/bin/sh
d="$(dirname "$0")"
echo "$*" >> "$d/sudo.log"
if [ "$1" = df ]; then
    echo "Filesystem     1K-blocks    Used Available Use% Mounted on"
    echo "/dev/vda1       10000000 5000000   5000000  50% /"
    exit 0
fi
if [ -x "$d/$(basename "$1")" ]; then
    p="$d/$(basename "$1")"; shift; exec "$p" "$@"
fi
exec "$@"
)sh";

const char kSystemctl[] = "#!/bin/sh\necho \"$*\" >> \"$(dirname \"$0\")/systemctl.log\"\n";

bool writeTool(const QString& path, const char* script)
{
    QFile tool(path);
    if (!tool.open(QIODevice::WriteOnly))
        return false;
    tool.write(script);
    return tool.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

} // namespace

bool waitUntil(const std::function<bool()>& condition, int limitMs, int stepMs)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > limitMs)
            return false;
        QThread::msleep(stepMs);
    }
    return true;
}

QByteArray readFile(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool processGone(qint64 pid)
{
    return ::kill(pid_t(pid), 0) != 0 ||
           readFile(QStringLiteral("/proc/%1/stat").arg(pid)).contains(") Z ");
}

bool StartedProcess::start(LNX2ProcRequest request)
{
    stop();
    request.mode = LNX2ProcMode::Spawn;
    const LNX2ProcResult started = procRun(request);
    pid = started.started ? started.pid : 0;
    return pid > 0;
}

bool StartedProcess::ended(int limitMs, int* status)
{
    if (pid <= 0)
        return true;
    if (!procWait(pid, limitMs, status))
        return false;
    pid = 0;
    return true;
}

bool StartedProcess::stop(int limitMs)
{
    if (pid <= 0)
        return true;
    ::kill(pid_t(pid), SIGTERM);
    if (ended(limitMs))
        return true;
    ::kill(pid_t(pid), SIGKILL);
    ended(-1);
    return false;
}

bool writeSubstituteTools(const QString& dir)
{
    return writeTool(dir + QStringLiteral("/sudo"), kSudo) &&
           writeTool(dir + QStringLiteral("/systemctl"), kSystemctl);
}

LNX2ProcRequest sandboxRequest(const QString& base, const QString& program, const QStringList& args)
{
    LNX2ProcRequest r;
    r.program = program;
    r.arguments = args;
    r.envRule = LNX2EnvRule::Set;
    r.env = {{QStringLiteral("NASBROLT_ROOT"), base + QStringLiteral("/root")},
             {QStringLiteral("TMPDIR"), base + QStringLiteral("/tmp")},
             {QStringLiteral("NASBROLT_TOOLS"), base + QStringLiteral("/tools")}};
    r.startMs = 5000;
    r.finishMs = 30000;
    return r;
}

bool startSandboxDaemon(StartedProcess& daemon, const QString& base)
{
    LNX2ProcRequest r = sandboxRequest(base, QStringLiteral(NASBROLT_BUILD_DIR "/nasbrolt"), {});
    r.outputPath = base + QStringLiteral("/daemon.out");
    return daemon.start(r);
}

bool sandboxListening(const QString& base, int limitMs)
{
    const QString socketPath = base + QStringLiteral("/tmp/QUILLO_BROLT_TELMAR_ORVO");
    return waitUntil(
        [&] {
            QLocalSocket probe;
            probe.connectToServer(socketPath);
            return probe.waitForConnected(100);
        },
        limitMs);
}
