#pragma once

#include <QHash>
#include <QJsonObject>
#include <QString>
#include <QStringList>

// Parse of one forwarded Samba audit datagram, free of any state so that the
// tests and the fuzz target reach it directly. SmbAuditRouter::take runs the
// same steps with its watched directories under their lock.

// What one audit message did to which file.
struct SmbAuditOp
{
    int action = 0; // 1..8, the codes stored in t_smbaudit_log.aud_action
    QString path;
    QString explain; // rename or move target
    QStringList fields;
};

// The message after " smbd_audit: ", trimmed. False when the tag is missing
// or opens the line (no time stamp in front of it).
bool auditMessageOf(QString& message, const QString& line);
// False for failed or unlisted operations and messages short of fields.
bool classifyAuditMessage(SmbAuditOp& op, const QString& line, const QString& message);
// sadno of the first watched directory (key with a trailing "/") in the
// hash's order that prefixes path; 0 when none does.
int watchedDirOf(const QString& path, const QHash<QString, int>& watched);
QJsonObject auditRecordOf(const QString& line, const SmbAuditOp& op, int sadno);

// All steps: true when record holds an accepted audit record.
bool parseAuditLine(QJsonObject& record, const QString& line, const QHash<QString, int>& watched);
