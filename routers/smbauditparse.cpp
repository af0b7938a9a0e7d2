#include "routers/smbauditparse.h"

#include <QFileInfo>

namespace {

const char kTag[] = " smbd_audit: ";
const char kCreate[] = "|create_file|ok|";
const char kMkdir[] = "|mkdirat|ok|";
const char kRename[] = "|renameat|ok|";
const char kUnlink[] = "|unlinkat|ok|";
const char kRecycle[] = "/.recycle/";

// create_file access masks and dispositions as Samba logs them.
const char kReadOnly[] = "|create_file|ok|0x120089|file|open|";
const char* const kOpenForChange[] = {"|create_file|ok|0x16019f|file|create|",
                                      "|create_file|ok|0x17019f|file|create|"};
const char* const kWritten[] = {
    "|create_file|ok|0x120196|file|overwrite_if|", "|create_file|ok|0x120196|file|open_if|",
    "|create_file|ok|0x12019f|file|open|", "|create_file|ok|0x12019f|file|overwrite_if|",
    "|create_file|ok|0x12019f|file|open_if|"};

// Field counts: a create_file names the file in field 11, the others in 8.
constexpr int kCreateFields = 12;
constexpr int kPathFields = 9;
constexpr int kRenameFields = 10;
constexpr int kCreatePath = 11;
constexpr int kPath = 8;
constexpr int kTarget = 9;

template <size_t N> bool containsAny(const QString& text, const char* const (&markers)[N])
{
    for (const char* marker : markers) {
        if (text.contains(QLatin1String(marker)))
            return true;
    }
    return false;
}

int createAction(const QString& line, const QString& message)
{
    if (message.contains(QLatin1String(kReadOnly)))
        return 1;
    if (containsAny(message, kOpenForChange))
        return 2;
    if (containsAny(line, kWritten))
        return 3;
    return 0;
}

int renameAction(const QString& source, const QString& target)
{
    if (target.contains(QLatin1String(kRecycle)))
        return 7;
    return QFileInfo(source).absolutePath() == QFileInfo(target).absolutePath() ? 5 : 6;
}

} // namespace

bool auditMessageOf(QString& message, const QString& line)
{
    const int at = line.indexOf(QLatin1String(kTag));
    if (at < 1)
        return false;
    message = line.mid(at + int(sizeof(kTag)) - 1).trimmed();
    return true;
}

bool classifyAuditMessage(SmbAuditOp& op, const QString& line, const QString& message)
{
    op = SmbAuditOp();
    op.fields = message.split(QLatin1Char('|'));
    int needed = kPathFields;
    int pathField = kPath;
    bool rename = false;
    if (message.contains(QLatin1String(kCreate))) {
        op.action = createAction(line, message);
        needed = kCreateFields;
        pathField = kCreatePath;
    } else if (message.contains(QLatin1String(kMkdir))) {
        op.action = 4;
    } else if (message.contains(QLatin1String(kRename))) {
        rename = true;
        needed = kRenameFields;
    } else if (message.contains(QLatin1String(kUnlink))) {
        op.action = 8;
    } else {
        return false;
    }
    if (op.fields.size() < needed)
        return false;
    op.path = op.fields.at(pathField);
    if (rename) {
        op.explain = op.fields.at(kTarget);
        op.action = renameAction(op.path, op.explain);
    }
    return op.action != 0;
}

int watchedDirOf(const QString& path, const QHash<QString, int>& watched)
{
    // The first match in the hash's order, not the longest: nested watched
    // directories are attributed to either of them.
    for (auto it = watched.constBegin(); it != watched.constEnd(); ++it) {
        if (path.startsWith(it.key()))
            return it.value();
    }
    return 0;
}

QJsonObject auditRecordOf(const QString& line, const SmbAuditOp& op, int sadno)
{
    const QStringList& f = op.fields;
    return QJsonObject{
        {QStringLiteral("date"), line.left(10)}, {QStringLiteral("datetime"), line.left(19)},
        {QStringLiteral("user"), f.at(0)},       {QStringLiteral("group"), f.at(1)},
        {QStringLiteral("ipaddr"), f.at(2)},     {QStringLiteral("machine"), f.at(3)},
        {QStringLiteral("path"), f.at(4)},       {QStringLiteral("sharename"), f.at(5)},
        {QStringLiteral("sadno"), sadno},        {QStringLiteral("action"), op.action},
        {QStringLiteral("filepath"), op.path},   {QStringLiteral("explain"), op.explain}};
}

bool parseAuditLine(QJsonObject& record, const QString& line, const QHash<QString, int>& watched)
{
    QString message;
    SmbAuditOp op;
    if (!auditMessageOf(message, line) || !classifyAuditMessage(op, line, message))
        return false;
    const int sadno = watchedDirOf(op.path, watched);
    if (sadno < 1)
        return false;
    record = auditRecordOf(line, op, sadno);
    return true;
}
