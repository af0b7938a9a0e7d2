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

// A child the test started (procRun in Spawn mode), ended by its PID and
// reaped on every way out of the test: SIGTERM, then SIGKILL.
struct StartedProcess
{
    StartedProcess() = default;
    StartedProcess(const StartedProcess&) = delete;
    StartedProcess& operator=(const StartedProcess&) = delete;
    ~StartedProcess() { stop(); }
    // Starts request as a direct child; false when it did not start.
    bool start(LNX2ProcRequest request);
    // True when SIGTERM alone ended it within limitMs.
    bool stop(int limitMs = 10000);
    // Waits up to limitMs for it to end by itself (after a signal the test
    // sent); true and its wait status when it did.
    bool ended(int limitMs, int* status = nullptr);

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
// Starts the built daemon in that sandbox (output to base/daemon.out).
bool startSandboxDaemon(StartedProcess& daemon, const QString& base);
// Whether the daemon of that sandbox accepts connections within limitMs.
bool sandboxListening(const QString& base, int limitMs);
