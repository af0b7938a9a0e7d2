#include "lnx2/lnx2process.h"

#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QProcess>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <mutex>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <vector>

namespace {

// Children a caller is waiting for, so that a shutdown can name them.
class RunningChildren
{
public:
    void add(qint64 pid, const LNX2ProcRequest& request)
    {
        std::lock_guard<std::mutex> guard(lock);
        children.insert(pid,
                        QStringLiteral("pid %1: %2")
                            .arg(pid)
                            .arg((QStringList(request.program) + request.arguments).join(' ')));
    }
    void remove(qint64 pid)
    {
        std::lock_guard<std::mutex> guard(lock);
        children.remove(pid);
    }
    QStringList list()
    {
        std::lock_guard<std::mutex> guard(lock);
        return children.values();
    }

private:
    std::mutex lock;
    QMap<qint64, QString> children;
};

// Never destroyed: a thread abandoned at shutdown may still return through it.
RunningChildren& runningChildren()
{
    static auto* children = new RunningChildren;
    return *children;
}

QProcessEnvironment buildEnvironment(const LNX2ProcRequest& request)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (auto it = request.env.cbegin(); it != request.env.cend(); ++it) {
        if (request.envRule == LNX2EnvRule::Append && env.contains(it.key()))
            env.insert(it.key(), procAppendValue(env.value(it.key()), it.value()));
        else
            env.insert(it.key(), it.value());
    }
    return env;
}

int remainingFinishMs(const LNX2ProcRequest& request)
{
    if (request.finishMs < 0)
        return -1;
    if (request.budgetSince < 0)
        return request.finishMs;
    const qint64 left = request.finishMs - (procClockMs() - request.budgetSince);
    // Never hand Qt a negative wait: it would mean "forever".
    return left > 0 ? int(left) : 0;
}

LNX2ProcResult runCaptured(const LNX2ProcRequest& request)
{
    LNX2ProcResult result;
    QProcess process;
    if (!request.env.isEmpty())
        process.setProcessEnvironment(buildEnvironment(request));
    process.start(procSubstitute(request.program), request.arguments, QIODevice::ReadWrite);
    result.started = process.waitForStarted(request.startMs);
    if (!result.started)
        return result;
    if (request.closedInput)
        process.closeWriteChannel();
    const qint64 pid = process.processId();
    runningChildren().add(pid, request);
    result.finished = process.waitForFinished(remainingFinishMs(request));
    runningChildren().remove(pid);
    if (result.finished) {
        result.normalExit = process.exitStatus() == QProcess::NormalExit;
        result.exitCode = process.exitCode();
    } else {
        process.kill();
        process.waitForFinished(1000);
    }
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    return result;
}

LNX2ProcResult runDetached(const LNX2ProcRequest& request)
{
    QProcess process;
    process.setProgram(procSubstitute(request.program));
    process.setArguments(request.arguments);
    if (!request.env.isEmpty())
        process.setProcessEnvironment(buildEnvironment(request));
    LNX2ProcResult result;
    result.started = process.startDetached(&result.pid);
    result.finished = result.normalExit = result.started;
    result.exitCode = result.started ? 0 : -2;
    return result;
}

LNX2ProcResult runExecute(const LNX2ProcRequest& request)
{
    LNX2ProcResult result;
    if (!request.env.isEmpty()) {
        // execute() cannot take an environment; an unlimited capture is the same wait.
        LNX2ProcRequest unlimited = request;
        unlimited.mode = LNX2ProcMode::Capture;
        unlimited.startMs = unlimited.finishMs = -1;
        unlimited.budgetSince = -1;
        result = runCaptured(unlimited);
        if (!result.started)
            result.exitCode = -2;
        else if (!result.normalExit)
            result.exitCode = -1;
        return result;
    }
    result.exitCode = QProcess::execute(procSubstitute(request.program), request.arguments);
    result.started = result.exitCode != -2;
    result.finished = result.started;
    result.normalExit = result.exitCode != -1 && result.started;
    return result;
}

std::vector<QByteArray> spawnEnvironment(const LNX2ProcRequest& request)
{
    const QStringList pairs = request.env.isEmpty()
                                  ? QProcessEnvironment::systemEnvironment().toStringList()
                                  : buildEnvironment(request).toStringList();
    std::vector<QByteArray> env;
    env.reserve(size_t(pairs.size()));
    for (const QString& pair : pairs)
        env.push_back(pair.toLocal8Bit());
    return env;
}

std::vector<char*> pointersTo(std::vector<QByteArray>& texts)
{
    std::vector<char*> pointers;
    for (QByteArray& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

// A direct child, for callers that must learn how it ended (tests, benchmarks).
LNX2ProcResult runSpawned(const LNX2ProcRequest& request)
{
    std::vector<QByteArray> args{QFile::encodeName(procSubstitute(request.program))};
    for (const QString& a : request.arguments)
        args.push_back(a.toLocal8Bit());
    std::vector<QByteArray> env = spawnEnvironment(request);
    std::vector<char*> argv = pointersTo(args);
    std::vector<char*> envp = pointersTo(env);

    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    const QByteArray output = QFile::encodeName(request.outputPath);
    if (!output.isEmpty()) {
        posix_spawn_file_actions_addopen(&files, 1, output.constData(),
                                         O_WRONLY | O_CREAT | O_APPEND, 0644);
        posix_spawn_file_actions_adddup2(&files, 1, 2);
    }
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    sigset_t mask;
    sigemptyset(&mask);
    if (request.blockQuitSignals) {
        for (int s : {SIGTERM, SIGINT, SIGHUP})
            sigaddset(&mask, s);
    }
    posix_spawnattr_setsigmask(&attr, &mask);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK);
    pid_t pid = 0;
    const int rc = posix_spawnp(&pid, argv[0], &files, &attr, argv.data(), envp.data());
    posix_spawnattr_destroy(&attr);
    posix_spawn_file_actions_destroy(&files);

    LNX2ProcResult result;
    result.started = rc == 0;
    result.pid = result.started ? pid : 0;
    result.exitCode = result.started ? 0 : -2;
    return result;
}

class QtProcBackend : public LNX2ProcBackend
{
public:
    LNX2ProcResult run(const LNX2ProcRequest& request) override
    {
        switch (request.mode) {
        case LNX2ProcMode::Detached:
            return runDetached(request);
        case LNX2ProcMode::Execute:
            return runExecute(request);
        case LNX2ProcMode::Spawn:
            return runSpawned(request);
        case LNX2ProcMode::Capture:
            break;
        }
        return runCaptured(request);
    }
};

// Never destroyed: a thread still running at exit must not meet a dead backend.
QtProcBackend& defaultBackend()
{
    static auto* backend = new QtProcBackend;
    return *backend;
}

std::atomic<LNX2ProcBackend*> currentBackend{nullptr};

} // namespace

LNX2ProcBackend* procBackend()
{
    LNX2ProcBackend* backend = currentBackend.load();
    return backend ? backend : &defaultBackend();
}

LNX2ProcBackend* setProcBackend(LNX2ProcBackend* backend)
{
    LNX2ProcBackend* previous = currentBackend.exchange(backend);
    return previous ? previous : &defaultBackend();
}

LNX2ProcResult procRun(const LNX2ProcRequest& request)
{
    return procBackend()->run(request);
}

LNX2ProcResult procRun(const QString& program, const QStringList& arguments, int startMs,
                       int finishMs)
{
    LNX2ProcRequest request;
    request.program = program;
    request.arguments = arguments;
    request.startMs = startMs;
    request.finishMs = finishMs;
    return procRun(request);
}

LNX2ProcResult procRunLine(const QString& commandLine, int startMs, int finishMs)
{
    QStringList words = procSplitCommand(commandLine);
    const QString program = words.isEmpty() ? QString() : words.takeFirst();
    return procRun(program, words, startMs, finishMs);
}

bool procStartDetached(const QString& program, const QStringList& arguments, qint64* pid)
{
    LNX2ProcRequest request;
    request.mode = LNX2ProcMode::Detached;
    request.program = program;
    request.arguments = arguments;
    const LNX2ProcResult result = procRun(request);
    if (pid)
        *pid = result.pid;
    return result.started;
}

int procExecute(const QString& program, const QStringList& arguments)
{
    LNX2ProcRequest request;
    request.mode = LNX2ProcMode::Execute;
    request.program = program;
    request.arguments = arguments;
    return procRun(request).exitCode;
}

bool procWait(qint64 pid, int limitMs, int* status)
{
    const qint64 until = procClockMs() + limitMs;
    for (;;) {
        int raw = 0;
        const pid_t got = ::waitpid(pid_t(pid), &raw, WNOHANG);
        if (got == pid_t(pid)) {
            if (status)
                *status = raw;
            return true;
        }
        if (got < 0 && errno != EINTR)
            return false;
        if (limitMs >= 0 && procClockMs() >= until)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

QStringList procRunning()
{
    return runningChildren().list();
}

QStringList procSplitCommand(const QString& commandLine)
{
    return QProcess::splitCommand(commandLine);
}

qint64 procClockMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

QString procSubstitute(const QString& program)
{
    const QString tools = qEnvironmentVariable("NASBROLT_TOOLS");
    if (tools.isEmpty() || program.isEmpty())
        return program;
    const QFileInfo substitute(tools + QLatin1Char('/') + QFileInfo(program).fileName());
    if (substitute.isFile() && substitute.isExecutable())
        return substitute.absoluteFilePath();
    return program;
}

QString procAppendValue(const QString& existing, const QString& addition)
{
    QStringList parts = existing.split(QLatin1Char(':'), Qt::SkipEmptyParts);
    parts.append(addition);
    return parts.join(QLatin1Char(':'));
}
