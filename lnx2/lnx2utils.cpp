#include "lnx2/lnx2utils.h"

#include "lnx2/lnx2process.h"

namespace {

// Start and finish each get the limit; the finish wait only what is left of
// it since budgetSince.
LNX2ProcRequest lineRequest(const QString& command, int timeout, qint64 budgetSince)
{
    QStringList words = procSplitCommand(command);
    LNX2ProcRequest request;
    request.program = words.isEmpty() ? QString() : words.takeFirst();
    request.arguments = words;
    request.startMs = timeout;
    request.finishMs = timeout;
    request.budgetSince = budgetSince;
    return request;
}

QString resultText(const LNX2ProcResult& result)
{
    if (!result.started)
        return QString();
    return cmdText(result.ok() ? result.out : result.err);
}

bool runCapturing(const LNX2ProcRequest& request, QString* output)
{
    const LNX2ProcResult result = procRun(request);
    if (output)
        *output = resultText(result);
    return result.ok();
}

bool runLine(const QHash<QString, QString>& env, const QString& command, QString* output,
             int timeout)
{
    LNX2ProcRequest request = lineRequest(command, timeout, procClockMs());
    request.env = env;
    request.envRule = LNX2EnvRule::Append;
    return runCapturing(request, output);
}

bool runBash(const QString& script, QString* output, int timeout)
{
    LNX2ProcRequest request;
    request.program = QStringLiteral("/usr/bin/sudo");
    request.arguments = QStringList{QStringLiteral("/bin/bash"), QStringLiteral("-c"), script};
    request.startMs = timeout;
    request.finishMs = timeout;
    request.budgetSince = procClockMs();
    return runCapturing(request, output);
}

bool systemctl(const QString& verb, const QString& unit, QString* output, int timeout)
{
    const QString command =
        QStringLiteral("/usr/bin/sudo systemctl ") + verb + QLatin1Char(' ') + unit;
    return runLine({}, command, output, timeout);
}

} // namespace

bool cmdExec(const QHash<QString, QString>& env, const QString& command, QString& output,
             int timeout)
{
    return runLine(env, command, &output, timeout);
}

bool cmdExec(const QHash<QString, QString>& env, const QString& command, int timeout)
{
    return runLine(env, command, nullptr, timeout);
}

bool cmdExec(const QString& command, QString& output, int timeout)
{
    return runLine({}, command, &output, timeout);
}

bool cmdExec(const QString& command, int timeout)
{
    return runLine({}, command, nullptr, timeout);
}

bool cmdsExec(const QStringList& commands, QJsonArray& errors, int timeout)
{
    const qint64 since = procClockMs();
    bool anySucceeded = false;
    for (const QString& raw : commands) {
        const QString command = raw.trimmed();
        if (command.isEmpty())
            continue;
        const LNX2ProcResult result = procRun(lineRequest(command, timeout, since));
        if (!result.ok()) {
            errors.append(result.started ? cmdText(result.err) : QString());
            break;
        }
        anySucceeded = true;
    }
    // Kept as it is: one success is enough, even when a later command failed.
    return anySucceeded;
}

bool cmdsExec(const QStringList& commands, int timeout)
{
    QJsonArray errors;
    return cmdsExec(commands, errors, timeout);
}

bool execBash(const QString& script, QString& output, int timeout)
{
    return runBash(script, &output, timeout);
}

bool execBash(const QString& script, int timeout)
{
    return runBash(script, nullptr, timeout);
}

int exeCommand(const QString& command, int timeout, QByteArray* output)
{
    LNX2ProcRequest request = lineRequest(command, timeout, procClockMs());
    if (timeout < 0) {
        request.mode = LNX2ProcMode::Detached;
        procRun(request);
        return 0;
    }
    if (timeout == 0) {
        request.mode = LNX2ProcMode::Execute;
        const int code = procRun(request).exitCode;
        if (output)
            *output = QByteArray();
        return code;
    }
    const LNX2ProcResult result = procRun(request);
    if (!result.started || !result.finished)
        return kExeNotFinished;
    // A process killed by a signal reports whatever code it has, maybe 0.
    if (output)
        *output = (!result.normalExit || result.exitCode != 0) ? result.err : result.out;
    return result.exitCode;
}

bool serviceStart(const QString& unit, int timeout)
{
    return systemctl(QStringLiteral("start"), unit, nullptr, timeout);
}

bool serviceStop(const QString& unit, int timeout)
{
    return systemctl(QStringLiteral("stop"), unit, nullptr, timeout);
}

bool serviceRestart(const QString& unit, int timeout)
{
    return systemctl(QStringLiteral("restart"), unit, nullptr, timeout);
}

bool serviceReload(const QString& unit, int timeout)
{
    return systemctl(QStringLiteral("reload"), unit, nullptr, timeout);
}

bool serviceEnable(const QString& unit, int timeout)
{
    return systemctl(QStringLiteral("enable"), unit, nullptr, timeout);
}

bool serviceDisable(const QString& unit, int timeout)
{
    return systemctl(QStringLiteral("disable"), unit, nullptr, timeout);
}

bool serviceActived(const QString& unit, int timeout)
{
    // "systemctl status" exits 3 for a unit that is not running; the text
    // used is then standard error, like any failed command's.
    QString text;
    systemctl(QStringLiteral("status"), unit, &text, timeout);
    const QStringList lines = text.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString& raw : lines) {
        const QString line = raw.trimmed();
        if (!line.startsWith(QLatin1String("Active:")))
            continue;
        const QString state = line.mid(8).trimmed();
        return state.section(QLatin1Char(' '), 0, 0) == QLatin1String("active");
    }
    return false;
}

QString toShellArgEscaped(const QString& text)
{
    QString quoted = text;
    quoted.replace(QLatin1Char('\''), QStringLiteral("'\\''"));
    return QLatin1Char('\'') + quoted + QLatin1Char('\'');
}

QString cmdText(const QByteArray& bytes)
{
    const int zero = bytes.indexOf('\0');
    return QString::fromUtf8(zero < 0 ? bytes : bytes.left(zero));
}

QStringList cmdOutputs(const QByteArray& output)
{
    QByteArray bytes = output;
    bytes.replace('\r', QByteArray());
    bytes.replace('\t', ' ');
    return cmdText(bytes).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

QHash<QString, QString> cmdArguments(const QStringList& args)
{
    QHash<QString, QString> options;
    QString pending;
    bool hasPending = false;
    for (const QString& arg : args) {
        if (arg.startsWith(QLatin1Char('-'))) {
            if (hasPending)
                options.insert(pending, QString());
            pending = arg;
            hasPending = true;
        } else if (hasPending) {
            options.insert(pending, arg);
            hasPending = false;
        }
    }
    if (hasPending)
        options.insert(pending, QString());
    return options;
}
