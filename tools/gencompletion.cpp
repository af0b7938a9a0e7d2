// nasbrolt-gencompletion: writes the bash completion of nasbroltctl and
// nasbroltadm from a template, with the daemon's command names taken from the
// routers' meta-objects and the function names from nasbroltadm's table, so
// that the completion never lags behind either.
//
//     nasbrolt-gencompletion TEMPLATE OUTPUT

#include "gx2/gx2localserver.h"
#include "routers/lvmrouter.h"
#include "routers/raidrouter.h"
#include "routers/smbauditrouter.h"
#include "routers/sysinfomodule.h"
#include "routers/workrouter.h"
#include "tools/adm/admtable.h"

#include <QFile>
#include <QMetaMethod>
#include <QSaveFile>

#include <cstdio>

namespace {

// Every method the dispatcher would call for a "cmd": it looks names up with
// indexOfMethod, which sees every access level and the base classes too.
QStringList commandNames(const QMetaObject& meta)
{
    static const QList<QByteArray> kDispatchTypes = {"GX2RpcPacket*", "GX2RpcPacket"};
    QStringList names;
    for (int i = 0; i < meta.methodCount(); ++i) {
        const QMetaMethod method = meta.method(i);
        if (method.parameterTypes() == kDispatchTypes)
            names << QString::fromLatin1(method.name());
    }
    return names;
}

QStringList sortedUnique(QStringList words)
{
    words.sort();
    words.removeDuplicates();
    return words;
}

// One word a line, indented to sit inside a bash array.
QString bashWords(const QStringList& words)
{
    QString text;
    for (const QString& word : words)
        text += QStringLiteral("\n    ") + word;
    return text + QLatin1Char('\n');
}

bool fail(const QString& message)
{
    fprintf(stderr, "nasbrolt-gencompletion: %s\n", qPrintable(message));
    return false;
}

bool generate(const QString& templatePath, const QString& outputPath)
{
    // The server is the root of the router tree; the others are its children.
    const QMetaObject* const routers[] = {
        &GX2LocalServer::staticMetaObject, &WorkRouter::staticMetaObject,
        &SysInfoModule::staticMetaObject,  &RaidRouter::staticMetaObject,
        &LvmRouter::staticMetaObject,      &SmbAuditRouter::staticMetaObject,
    };
    QStringList commands;
    for (const QMetaObject* meta : routers)
        commands += commandNames(*meta);
    QStringList functions;
    for (const AdmEntry& entry : admEntries())
        functions << entry.name;
    commands = sortedUnique(commands);
    functions = sortedUnique(functions);
    if (commands.isEmpty() || functions.isEmpty())
        return fail(QStringLiteral("no commands or no functions found"));

    QFile in(templatePath);
    if (!in.open(QIODevice::ReadOnly))
        return fail(templatePath + QStringLiteral(": ") + in.errorString());
    QString text = QString::fromUtf8(in.readAll());
    const QString commandsKey = QStringLiteral("@NASBROLT_COMMANDS@");
    const QString functionsKey = QStringLiteral("@NASBROLT_ADM_FUNCTIONS@");
    if (!text.contains(commandsKey) || !text.contains(functionsKey))
        return fail(templatePath + QStringLiteral(": a placeholder is missing"));
    text.replace(commandsKey, bashWords(commands));
    text.replace(functionsKey, bashWords(functions));

    // Written whole or not at all: a half file would break every shell sourcing it.
    QSaveFile out(outputPath);
    if (!out.open(QIODevice::WriteOnly) || out.write(text.toUtf8()) < 0 || !out.commit())
        return fail(outputPath + QStringLiteral(": ") + out.errorString());
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        fprintf(stderr, "usage: nasbrolt-gencompletion TEMPLATE OUTPUT\n");
        return 2;
    }
    return generate(QString::fromLocal8Bit(argv[1]), QString::fromLocal8Bit(argv[2])) ? 0 : 1;
}
