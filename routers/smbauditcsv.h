#pragma once

#include <QDateTime>
#include <QJsonArray>
#include <QString>

// CSV text of audit records (the keys logByFields gives): a header line and
// one line per record, joined with "\n" and without a final newline. Every
// field is quoted, its double quotes doubled.
QString smbauditCsv(const QJsonArray& records, bool chinese);

// "smbaudit_" + the local time as yyyyMMddHHmmss + ".csv".
QString smbauditCsvName(const QDateTime& now);

// True when a "language" parameter asks for the Chinese titles and names.
bool smbauditIsChinese(const QString& language);
