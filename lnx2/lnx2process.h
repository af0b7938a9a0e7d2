#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringList>

// The one door for child processes. Every program the daemon starts goes
// through procRun and a process-wide backend: the default backend starts real
// processes (honouring NASBROLT_TOOLS), tests install a scripted one.

enum class LNX2ProcMode {
    Capture,  // start, wait within the limits, capture both outputs
    Detached, // start and forget; only "started" is reported
    Execute,  // block without limit; exitCode is -2 (not started) or -1 (crashed) on failure
    Spawn,    // start a direct child and return its pid; the caller reaps it with procWait
};

enum class LNX2EnvRule {
    Append, // an existing variable gets ":" + value appended (PATH-like), a new one is set
    Set,    // the variable is set to value
};

struct LNX2ProcRequest
{
    LNX2ProcMode mode = LNX2ProcMode::Capture;
    QString program;
    QStringList arguments;
    QHash<QString, QString> env; // additions to the inherited environment
    LNX2EnvRule envRule = LNX2EnvRule::Append;
    int startMs = -1;  // limit for the start; negative = no limit
    int finishMs = -1; // limit for the end; negative = no limit
    // Monotonic time (procClockMs) at which the finish budget began. Negative:
    // the finish limit counts from the moment the process started. Callers
    // whose limit covers start and end together set it to their own start.
    qint64 budgetSince = -1;
    // Spawn only: stdout and stderr appended to this file (empty: inherited),
    // and SIGTERM, SIGINT and SIGHUP blocked in the child until it unblocks them.
    QString outputPath;
    bool blockQuitSignals = false;
    // Capture only: standard input closed at once, so that a tool asking a
    // question reads end-of-file instead of waiting for its limit.
    bool closedInput = false;
};

struct LNX2ProcResult
{
    bool started = false;
    bool finished = false;   // ended within its limit
    bool normalExit = false; // not killed by a signal
    int exitCode = -1;
    qint64 pid = 0; // Detached and Spawn: the started process's id
    QByteArray out;
    QByteArray err;

    bool ok() const { return started && finished && normalExit && exitCode == 0; }
};

class LNX2ProcBackend
{
public:
    virtual ~LNX2ProcBackend() = default;
    virtual LNX2ProcResult run(const LNX2ProcRequest& request) = 0;
};

// The backend in force. setProcBackend(nullptr) restores the default; the
// previous backend is returned so that a scope can put it back.
LNX2ProcBackend* procBackend();
LNX2ProcBackend* setProcBackend(LNX2ProcBackend* backend);

LNX2ProcResult procRun(const LNX2ProcRequest& request);
LNX2ProcResult procRun(const QString& program, const QStringList& arguments, int startMs,
                       int finishMs);
// A whole command line, split by procSplitCommand; no shell is involved.
LNX2ProcResult procRunLine(const QString& commandLine, int startMs, int finishMs);
bool procStartDetached(const QString& program, const QStringList& arguments, qint64* pid = nullptr);
int procExecute(const QString& program, const QStringList& arguments);
// Reaps a child started with Spawn. True when it ended within limitMs
// (negative: no limit); status is the raw wait status.
bool procWait(qint64 pid, int limitMs, int* status = nullptr);

// The children being waited for right now, as "pid N: program args", so
// that a shutdown can say what it left behind.
QStringList procRunning();

// Qt 5's rule: blanks separate, double quotes group, three double quotes
// stand for one literal double quote.
QStringList procSplitCommand(const QString& commandLine);

// Monotonic milliseconds, the clock of LNX2ProcRequest::budgetSince.
qint64 procClockMs();

// The program actually started for a requested one: NASBROLT_TOOLS/<name>
// when that substitute exists and is executable, else the program itself.
QString procSubstitute(const QString& program);

// The value a variable gets under LNX2EnvRule::Append.
QString procAppendValue(const QString& existing, const QString& addition);
