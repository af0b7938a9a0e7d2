#pragma once

#include <QByteArray>
#include <QHash>
#include <QJsonArray>
#include <QString>
#include <QStringList>

// Command runners of the daemon, all on top of procRun. Time limits are in
// milliseconds. Success means: started within the limit, ended within the
// remaining time, normal exit, exit code 0. Captured text is standard output
// on success, standard error on any failure, empty if the process never
// started. A command line is split into program and arguments (blanks
// separate, double quotes group, """ is a literal quote); no shell runs it.

// exeCommand's answer when the command did not start or end in time.
constexpr int kExeNotFinished = 62;

// env is added to the inherited environment: an existing variable gets
// ":" + value appended, a new one is set.
bool cmdExec(const QHash<QString, QString>& env, const QString& command, QString& output,
             int timeout);
bool cmdExec(const QHash<QString, QString>& env, const QString& command, int timeout);
bool cmdExec(const QString& command, QString& output, int timeout);
bool cmdExec(const QString& command, int timeout);

// Runs the commands in order and stops at the first failure, whose standard
// error is appended to errors. True when at least one command succeeded, so a
// caller that needs all of them must look at errors too. Every start wait gets
// the full timeout; the finish waits share one budget for the whole list.
bool cmdsExec(const QStringList& commands, QJsonArray& errors, int timeout);
bool cmdsExec(const QStringList& commands, int timeout);

// "/usr/bin/sudo /bin/bash -c <script>", the script being one argument.
bool execBash(const QString& script, QString& output, int timeout);
bool execBash(const QString& script, int timeout);

// timeout < 0: start detached, return 0. timeout == 0: block without limit and
// return the exit code (-2 not started, -1 crashed); output is emptied.
// timeout > 0: kExeNotFinished when it did not start or end in time, else the
// exit code, with the raw standard output (or standard error after a crash or
// a non-zero code) in output.
int exeCommand(const QString& command, int timeout, QByteArray* output = nullptr);

// "/usr/bin/sudo systemctl <verb> <unit>" through cmdExec.
bool serviceStart(const QString& unit, int timeout);
bool serviceStop(const QString& unit, int timeout);
bool serviceRestart(const QString& unit, int timeout);
bool serviceReload(const QString& unit, int timeout);
bool serviceEnable(const QString& unit, int timeout);
bool serviceDisable(const QString& unit, int timeout);
// Whether the first "Active:" line of "systemctl status" says "active".
bool serviceActived(const QString& unit, int timeout);

// text in single quotes for a POSIX shell: it's -> 'it'\''s'
QString toShellArgEscaped(const QString& text);
// Captured bytes as UTF-8 up to the first zero byte.
QString cmdText(const QByteArray& bytes);
// Non-empty lines, "\r" removed, "\t" made a blank, lines not trimmed.
QStringList cmdOutputs(const QByteArray& output);
// Option/value pairs: {"-a", "-b", "1", "x"} -> {"-a": "", "-b": "1"}.
QHash<QString, QString> cmdArguments(const QStringList& args);
