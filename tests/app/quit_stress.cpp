// Starts the real daemon again and again and sends SIGTERM at a random
// moment of its first half second: during start-up, while it listens, while
// its threads open their databases. Every run must end by itself, at once,
// with exit status 0 (under AddressSanitizer: no crash, no leak).
//
//   quit_stress [--runs N] [--max-delay-ms M] [--seed S]

#include "tests/support/processes.h"

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>
#include <QThread>

#include <csignal>
#include <cstdio>
#include <random>
#include <sys/wait.h>

namespace {

struct Options
{
    int runs = 200;
    int maxDelayMs = 500;
    unsigned seed = 20261125;
};

Options parse(const QStringList& args)
{
    Options o;
    for (int i = 1; i + 1 < args.size(); i += 2) {
        const int v = args[i + 1].toInt();
        if (args[i] == QLatin1String("--runs"))
            o.runs = qMax(1, v);
        else if (args[i] == QLatin1String("--max-delay-ms"))
            o.maxDelayMs = qMax(0, v);
        else if (args[i] == QLatin1String("--seed"))
            o.seed = unsigned(v);
    }
    return o;
}

// Generous: a sanitized daemon that waits for a thread is slow, not hung.
constexpr int kQuitLimitMs = 60000;

enum class Outcome { Clean, Failed, Hung };

Outcome runOnce(const QString& base, int delayMs, int* status)
{
    LNX2ProcRequest r = sandboxRequest(base, QStringLiteral(NASBROLT_BUILD_DIR "/nasbrolt"), {});
    // As a supervisor hands them over: a signal before the handler exists waits.
    r.blockQuitSignals = true;
    r.outputPath = base + QStringLiteral("/daemon.out");
    QFile::remove(r.outputPath);
    StartedProcess daemon;
    if (!daemon.start(r))
        return Outcome::Failed;
    QThread::msleep(ulong(delayMs));
    ::kill(pid_t(daemon.pid), SIGTERM);
    if (!daemon.ended(kQuitLimitMs, status)) {
        daemon.stop(1000);
        return Outcome::Hung;
    }
    return WIFEXITED(*status) && WEXITSTATUS(*status) == 0 ? Outcome::Clean : Outcome::Failed;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const Options o = parse(app.arguments());
    QTemporaryDir base;
    if (!base.isValid() || !QDir(base.path()).mkpath(QStringLiteral("root")) ||
        !QDir(base.path()).mkpath(QStringLiteral("tmp")) ||
        !QDir(base.path()).mkpath(QStringLiteral("tools")) ||
        !writeSubstituteTools(base.filePath(QStringLiteral("tools")))) {
        std::fprintf(stderr, "quit_stress: cannot prepare a sandbox\n");
        return 2;
    }
    std::mt19937 random(o.seed);
    std::uniform_int_distribution<int> delay(0, o.maxDelayMs);
    int clean = 0, failed = 0, hung = 0;
    for (int run = 1; run <= o.runs; ++run) {
        const int ms = delay(random);
        int status = 0;
        const Outcome outcome = runOnce(base.path(), ms, &status);
        if (outcome == Outcome::Clean) {
            ++clean;
            continue;
        }
        (outcome == Outcome::Hung ? hung : failed)++;
        std::printf("run %d, SIGTERM after %d ms: %s (wait status %d)\n%s\n", run, ms,
                    outcome == Outcome::Hung ? "did not end" : "did not exit with 0", status,
                    readFile(base.filePath(QStringLiteral("daemon.out"))).right(4000).constData());
        std::fflush(stdout);
    }
    std::printf("quit_stress: %d runs (seed %u, SIGTERM within %d ms): %d clean, %d failed, "
                "%d hung\n",
                o.runs, o.seed, o.maxDelayMs, clean, failed, hung);
    return failed == 0 && hung == 0 ? 0 : 1;
}
