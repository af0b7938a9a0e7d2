#include "routers/rsyslogconf.h"

namespace {

const char kTemplateName[] = "RSYSLOG_TimeFormat_For_ORVO6";

struct RewriteState
{
    QString templateLine;
    QString forwardLine;
    QString selector;
    bool templateFound = false;
    bool forwardFound = false;
    bool changed = false;
};

QString selectorOf(const QString& facility)
{
    return facility + QStringLiteral(".*");
}

void rewriteLine(QStringList& out, const QString& line, RewriteState& s)
{
    if (line == s.templateLine) {
        out << line;
        s.templateFound = true;
        return;
    }
    if (line == s.forwardLine) {
        out << line;
        s.forwardFound = true;
        return;
    }
    const QStringList words = line.trimmed().split(QLatin1Char(' '), Qt::SkipEmptyParts);
    if (words.size() < 2) {
        out << line;
        return;
    }
    if (!s.templateFound && words.at(0) == QLatin1String("$template") &&
        words.at(1).section(QLatin1Char(','), 0, 0) == QLatin1String(kTemplateName)) {
        // An older format of our own template: replaced in place.
        out << s.templateLine;
        s.templateFound = s.changed = true;
        return;
    }
    if (!s.forwardFound && words.at(0) == s.selector) {
        // The facility went elsewhere (for example a local log file): it now
        // goes to the collector instead.
        if (!s.templateFound)
            out << s.templateLine;
        out << s.forwardLine;
        s.templateFound = s.forwardFound = s.changed = true;
        return;
    }
    out << line;
}

} // namespace

QString rsyslogTemplateLine()
{
    // The "\n" is the two characters rsyslog reads as a line end.
    return QStringLiteral("$template ") + QLatin1String(kTemplateName) +
           QStringLiteral(",\"%$NOW% %TIMESTAMP:8:15% %hostname% %syslogtag% %msg%\\n\"");
}

QString rsyslogForwardLine(const QString& facility, short port)
{
    return selectorOf(facility) + QStringLiteral(" @localhost:") + QString::number(port) +
           QLatin1Char(';') + QLatin1String(kTemplateName);
}

bool rewriteRSyslogConf(QStringList& out, const QString& text, const QString& facility, short port)
{
    RewriteState s;
    s.templateLine = rsyslogTemplateLine();
    s.forwardLine = rsyslogForwardLine(facility, port);
    s.selector = selectorOf(facility);

    QString cleaned = text;
    cleaned.remove(QLatin1Char('\r')).remove(QLatin1Char('\t'));
    out.clear();
    for (const QString& line : cleaned.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        rewriteLine(out, line, s);

    if (s.templateFound && s.forwardFound)
        return s.changed;
    // Appended whole even when the template line is already there: a second
    // copy is harmless to rsyslog and keeps the block self-contained.
    out << QString() << QString()
        << QStringLiteral("## ORVO 6: Samba audit log forwarding... ##(SmbAuditRouter)## ###")
        << s.templateLine << s.forwardLine;
    return true;
}
