#pragma once

#include <QString>
#include <QStringList>

// The lines that make rsyslog forward one facility to the audit collector,
// and the rewrite of rsyslog.conf that puts them in place.

// The output template the collector's parser relies on: "yyyy-MM-dd HH:mm:ss"
// at the start of every forwarded datagram.
QString rsyslogTemplateLine();
// selector + " @localhost:" + port + ";" + template name.
QString rsyslogForwardLine(const QString& facility, short port);

// out receives the new file's lines (to be joined with "\n", no final
// newline). False when the text already holds both lines and nothing was
// rewritten: the file is then left alone and rsyslog is not restarted.
bool rewriteRSyslogConf(QStringList& out, const QString& text, const QString& facility, short port);
