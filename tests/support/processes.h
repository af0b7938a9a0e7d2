#pragma once

#include "lnx2/lnx2process.h"

#include <QByteArray>
#include <QString>

#include <functional>

// Helpers for tests that start real programs (the daemon, rsyslogd, smbd).

bool waitUntil(const std::function<bool()>& condition, int limitMs, int stepMs = 20);
QByteArray readFile(const QString& path);
// Ended, or a zombie that nobody reaps (this sandbox's first process does not).
bool processGone(qint64 pid);

// A process the test started, ended by its PID: SIGTERM, then SIGKILL.
struct StartedProcess
{
    StartedProcess() = default;
    StartedProcess(const StartedProcess&) = delete;
    StartedProcess& operator=(const StartedProcess&) = delete;
    ~StartedProcess() { stop(); }
    // True when SIGTERM alone ended it in time.
    bool stop();

    qint64 pid = 0;
};

// Writes the substitute programs for NASBROLT_TOOLS into dir: "sudo" logs to
// sudo.log, answers "df" with a calm root file system (so housekeeping leaves
// the machine alone) and runs the rest through the substitutes beside it or
// as itself; "systemctl" only logs to systemctl.log, so that no test ever
// restarts the machine's rsyslog.
bool writeSubstituteTools(const QString& dir);

// Runs program inside a sandbox laid out as base/root (NASBROLT_ROOT),
// base/tmp (TMPDIR, the socket) and base/tools (NASBROLT_TOOLS).
LNX2ProcRequest sandboxRequest(const QString& base, const QString& program,
                               const QStringList& args);
// Starts the built daemon detached in that sandbox; its pid, 0 when it did not start.
qint64 startSandboxDaemon(const QString& base);
// Whether the daemon of that sandbox accepts connections within limitMs.
bool sandboxListening(const QString& base, int limitMs);
