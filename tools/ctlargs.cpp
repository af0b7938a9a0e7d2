#include "tools/ctlargs.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>

namespace {

// Qt 5 parses only objects and arrays at the top, so a scalar is read as
// the single element of an array.
bool parseJsonValue(const QString& text, QJsonValue& out)
{
    QJsonParseError error{};
    const QByteArray wrapped = '[' + text.toUtf8() + ']';
    const QJsonDocument doc = QJsonDocument::fromJson(wrapped, &error);
    if (error.error != QJsonParseError::NoError || doc.array().size() != 1)
        return false;
    out = doc.array().at(0);
    return true;
}

// Options may come before or after the command, as with getopt; "--" ends them.
class CtlParser
{
public:
    CtlParser(QString& message, CtlArgs& out) : message(message), out(out) {}

    bool run(const QStringList& args);

private:
    bool longOption(const QStringList& args, int& i);
    bool shortOptions(const QStringList& args, int& i);
    bool positional(const QString& arg);
    bool keyParam(const QString& arg);
    bool objectParam(const QString& arg);
    bool setTimeout(const QString& text);
    bool setInterval(const QString& text);
    bool setSocket(const QString& text);

    bool fail(const QString& text)
    {
        message = text;
        return false;
    }

    QString& message;
    CtlArgs& out;
    bool optionsEnded = false;
    bool objectGiven = false;
    bool topIntervalGiven = false;
};

bool isTopCommand(const QString& command)
{
    return command == QLatin1String("top");
}

bool isCodesCommand(const QString& command)
{
    return command == QLatin1String("codes");
}

// What --watch takes as its SECONDS rather than as the command: command
// names never start with a digit, so a number is never a command.
bool looksLikeNumber(const QString& arg)
{
    const int at = arg.startsWith(QLatin1Char('-')) || arg.startsWith(QLatin1Char('+')) ? 1 : 0;
    return at < arg.size() && (arg.at(at).isDigit() || arg.at(at) == QLatin1Char('.'));
}

bool CtlParser::run(const QStringList& args)
{
    for (int i = 0; i < args.size() && out.action == CtlArgs::Action::Call; ++i) {
        const QString& arg = args.at(i);
        if (!optionsEnded && arg == QLatin1String("--")) {
            optionsEnded = true;
            continue;
        }
        bool ok = true;
        if (optionsEnded || arg.size() < 2 || !arg.startsWith(QLatin1Char('-')))
            ok = positional(arg);
        else if (arg.startsWith(QLatin1String("--")))
            ok = longOption(args, i);
        else
            ok = shortOptions(args, i);
        if (!ok)
            return false;
    }
    if (out.action != CtlArgs::Action::Call)
        return true;
    if (out.command.isEmpty())
        return fail(QStringLiteral("missing command"));
    if (isTopCommand(out.command)) {
        if (out.watch)
            return fail(
                QStringLiteral("top refreshes by itself: 'top SECONDS' instead of --watch"));
        out.action = CtlArgs::Action::Top;
    }
    if (isCodesCommand(out.command)) {
        if (out.watch)
            return fail(QStringLiteral("codes prints a fixed table: no --watch"));
        out.action = CtlArgs::Action::Codes;
    }
    return true;
}

bool CtlParser::longOption(const QStringList& args, int& i)
{
    const QString& arg = args.at(i);
    const int eq = arg.indexOf(QLatin1Char('='));
    const QString name = arg.mid(2, eq < 0 ? -1 : eq - 2);
    const bool flag = name == QLatin1String("help") || name == QLatin1String("version") ||
                      name == QLatin1String("raw");
    if (flag && eq >= 0)
        return fail(QStringLiteral("option '--%1' doesn't allow an argument").arg(name));
    if (name == QLatin1String("help"))
        out.action = CtlArgs::Action::Help;
    else if (name == QLatin1String("version"))
        out.action = CtlArgs::Action::Version;
    else if (name == QLatin1String("raw"))
        out.raw = true;
    if (flag)
        return true;
    if (name == QLatin1String("watch")) {
        // The interval is optional, so only "--watch=S" or a number next is one.
        out.watch = true;
        if (eq >= 0)
            return setInterval(arg.mid(eq + 1));
        if (i + 1 < args.size() && looksLikeNumber(args.at(i + 1)))
            return setInterval(args.at(++i));
        return true;
    }
    if (name != QLatin1String("timeout") && name != QLatin1String("socket"))
        return fail(QStringLiteral("unrecognized option '%1'").arg(arg));
    QString value;
    if (eq >= 0)
        value = arg.mid(eq + 1);
    else if (i + 1 < args.size())
        value = args.at(++i);
    else
        return fail(QStringLiteral("option '--%1' requires an argument").arg(name));
    return name == QLatin1String("timeout") ? setTimeout(value) : setSocket(value);
}

// Clustered like getopt: "-rt500" and "-r -t 500" mean the same.
bool CtlParser::shortOptions(const QStringList& args, int& i)
{
    const QString& arg = args.at(i);
    for (int c = 1; c < arg.size(); ++c) {
        const QChar ch = arg.at(c);
        if (ch == QLatin1Char('h')) {
            out.action = CtlArgs::Action::Help;
            return true;
        }
        if (ch == QLatin1Char('r')) {
            out.raw = true;
            continue;
        }
        if (ch != QLatin1Char('t'))
            return fail(QStringLiteral("invalid option -- '%1'").arg(ch));
        if (c + 1 < arg.size())
            return setTimeout(arg.mid(c + 1));
        if (i + 1 >= args.size())
            return fail(QStringLiteral("option requires an argument -- 't'"));
        return setTimeout(args.at(++i));
    }
    return true;
}

bool CtlParser::positional(const QString& arg)
{
    if (isTopCommand(out.command)) {
        if (topIntervalGiven)
            return fail(
                QStringLiteral("unexpected argument '%1': top takes only SECONDS").arg(arg));
        topIntervalGiven = true;
        return setInterval(arg);
    }
    if (isCodesCommand(out.command))
        return fail(QStringLiteral("unexpected argument '%1': codes takes none").arg(arg));
    if (!out.command.isEmpty())
        return arg.trimmed().startsWith(QLatin1Char('{')) ? objectParam(arg) : keyParam(arg);
    // Command names are slot names; anything else is a mistyped command line.
    static const QRegularExpression name(QStringLiteral("^[A-Za-z_][A-Za-z0-9_]*$"));
    if (!name.match(arg).hasMatch())
        return fail(QStringLiteral("'%1' is not a command name").arg(arg));
    out.command = arg;
    return true;
}

bool CtlParser::keyParam(const QString& arg)
{
    const int eq = arg.indexOf(QLatin1Char('='));
    if (eq < 0)
        return fail(QStringLiteral("unexpected argument '%1': parameters are key=value, "
                                   "key:=JSON or one JSON object")
                        .arg(arg));
    const bool json = eq > 0 && arg.at(eq - 1) == QLatin1Char(':');
    const QString key = arg.left(json ? eq - 1 : eq);
    if (key.isEmpty())
        return fail(QStringLiteral("missing parameter name in '%1'").arg(arg));
    if (objectGiven)
        return fail(QStringLiteral("cannot mix a JSON object of parameters with '%1'").arg(arg));
    if (out.params.contains(key))
        return fail(QStringLiteral("parameter '%1' given twice").arg(key));
    QJsonValue value = arg.mid(eq + 1);
    if (json && !parseJsonValue(arg.mid(eq + 1), value))
        return fail(QStringLiteral("invalid JSON value for '%1': %2").arg(key, arg.mid(eq + 1)));
    out.params.insert(key, value);
    out.hasParams = true;
    return true;
}

bool CtlParser::objectParam(const QString& arg)
{
    if (out.hasParams)
        return fail(QStringLiteral("a JSON object of parameters must be the only parameter"));
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(arg.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError)
        return fail(QStringLiteral("invalid JSON object: %1 at offset %2")
                        .arg(error.errorString())
                        .arg(error.offset));
    out.params = doc.object();
    out.hasParams = objectGiven = true;
    return true;
}

bool CtlParser::setTimeout(const QString& text)
{
    bool ok = false;
    const int value = text.toInt(&ok);
    if (!ok || value <= 0)
        return fail(
            QStringLiteral("invalid time limit '%1': milliseconds above 0 expected").arg(text));
    out.timeoutMs = value;
    return true;
}

bool CtlParser::setInterval(const QString& text)
{
    bool ok = false;
    const double value = text.toDouble(&ok);
    // The upper bound keeps the interval's milliseconds within an int; NaN fails too.
    if (!ok || !(value > 0 && value <= 2000000))
        return fail(QStringLiteral("invalid interval '%1': seconds above 0 expected").arg(text));
    out.intervalS = value;
    return true;
}

bool CtlParser::setSocket(const QString& text)
{
    if (text.isEmpty())
        return fail(QStringLiteral("empty socket name"));
    out.socket = text;
    return true;
}

} // namespace

GX2RpcPacket CtlArgs::request() const
{
    GX2RpcPacket packet;
    packet.insert(QStringLiteral("cmd"), command);
    if (hasParams)
        packet.insert(QStringLiteral("params"), params);
    return packet;
}

bool parseCtlArgs(QString& message, const QStringList& arguments, CtlArgs& out)
{
    out = CtlArgs();
    return CtlParser(message, out).run(arguments);
}

QString ctlSocketPath(const QString& name)
{
    // The same rule as the local socket classes: only an absolute name is a path.
    if (name.startsWith(QLatin1Char('/')))
        return name;
    return QDir::tempPath() + QLatin1Char('/') + name;
}
