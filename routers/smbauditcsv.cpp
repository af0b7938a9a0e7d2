#include "routers/smbauditcsv.h"

#include "gx2/gx2utils.h"

#include <QJsonObject>
#include <QStringList>

namespace {

QString quoted(QString field)
{
    field.replace(QLatin1Char('"'), QStringLiteral("\"\""));
    return QLatin1Char('"') + field + QLatin1Char('"');
}

QStringList titles(bool chinese)
{
    if (chinese)
        return {QStringLiteral("文件/文件夹"),    QStringLiteral("共享名"),
                QStringLiteral("机器名"),         QStringLiteral("用户"),
                QStringLiteral("用户组"),         QStringLiteral("IP"),
                QStringLiteral("修改时间"),       QStringLiteral("操作"),
                QStringLiteral("新文件名/文件夹")};
    return {QStringLiteral("File/Folder"), QStringLiteral("Sharename"), QStringLiteral("Machine"),
            QStringLiteral("User"),        QStringLiteral("Group"),     QStringLiteral("IP"),
            QStringLiteral("Time"),        QStringLiteral("Operation"), QStringLiteral("Explain")};
}

// Keyed by the stored action number as text; an unknown number has no name.
QJsonObject actionNames(bool chinese)
{
    if (chinese)
        return {{QStringLiteral("1"), QStringLiteral("访问")},
                {QStringLiteral("2"), QStringLiteral("创建/修改")},
                {QStringLiteral("3"), QStringLiteral("新建文件")},
                {QStringLiteral("4"), QStringLiteral("新建文件夹")},
                {QStringLiteral("5"), QStringLiteral("重命名")},
                {QStringLiteral("6"), QStringLiteral("移动")},
                {QStringLiteral("7"), QStringLiteral("移至回收站")},
                {QStringLiteral("8"), QStringLiteral("删除")}};
    return {{QStringLiteral("1"), QStringLiteral("access")},
            {QStringLiteral("2"), QStringLiteral("create/change")},
            {QStringLiteral("3"), QStringLiteral("create")},
            {QStringLiteral("4"), QStringLiteral("mkdir")},
            {QStringLiteral("5"), QStringLiteral("rename")},
            {QStringLiteral("6"), QStringLiteral("move")},
            {QStringLiteral("7"), QStringLiteral("recycled")},
            {QStringLiteral("8"), QStringLiteral("delete")}};
}

QString line(const QStringList& fields)
{
    QStringList quotedFields;
    for (const QString& field : fields)
        quotedFields << quoted(field);
    return quotedFields.join(QLatin1Char(','));
}

} // namespace

QString smbauditCsv(const QJsonArray& records, bool chinese)
{
    static const char* const kLeading[] = {"filepath", "sharename", "machine", "user",
                                           "group",    "ipaddr",    "datetime"};
    const QJsonObject names = actionNames(chinese);
    QStringList lines{line(titles(chinese))};
    for (const QJsonValue& value : records) {
        const QJsonObject record = value.toObject();
        QStringList fields;
        for (const char* key : kLeading)
            fields << toString(record.value(QLatin1String(key)));
        fields << names.value(toString(record.value(QLatin1String("action")))).toString()
               << toString(record.value(QLatin1String("explain")));
        lines << line(fields);
    }
    return lines.join(QLatin1Char('\n'));
}

QString smbauditCsvName(const QDateTime& now)
{
    return QStringLiteral("smbaudit_") + now.toString(QStringLiteral("yyyyMMddHHmmss")) +
           QStringLiteral(".csv");
}

bool smbauditIsChinese(const QString& language)
{
    return language == QLatin1String("zh_cn") || language == QStringLiteral("简体中文");
}
