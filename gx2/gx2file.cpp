#include "gx2/gx2file.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QTemporaryFile>
#include <QTextCodec>
#include <QTextStream>

QByteArray GX2File::readAll(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}

bool GX2File::loadBinary(QByteArray& data, const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        data.clear();
        return false;
    }
    data = file.readAll();
    return true;
}

bool GX2File::saveBinary(const QByteArray& data, const QString& path)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    file.write(data);
    file.close();
    return true;
}

bool GX2File::loadJson(QJsonObject& object, const QString& path)
{
    QByteArray data;
    loadBinary(data, path);
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(data, &error);
    if (error.error != QJsonParseError::NoError)
        return false;
    object = doc.object();
    return true;
}

QJsonObject GX2File::readJsonObject(const QString& path)
{
    return QJsonDocument::fromJson(readAll(path)).object();
}

QJsonArray GX2File::readJsonArray(const QString& path)
{
    return QJsonDocument::fromJson(readAll(path)).array();
}

bool GX2File::loadText(QString& text, const QString& path, const QString& codec)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return false;
    QTextStream stream(&file);
    // Not the locale's codec: a daemon may start without LANG, and the
    // system's files are UTF-8 either way.
    QTextCodec* chosen = codec.isEmpty() ? nullptr : QTextCodec::codecForName(codec.toLatin1());
    stream.setCodec(chosen ? chosen : QTextCodec::codecForName("UTF-8"));
    text = stream.readAll();
    return true;
}

bool GX2File::removeDirs(const QString& path, bool removeSelf)
{
    if (!QFileInfo(path).isDir())
        return false;
    bool all = true;
    const QFileInfoList entries =
        QDir(path).entryInfoList(QDir::Files | QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot |
                                 QDir::Readable | QDir::Writable);
    for (const QFileInfo& entry : entries) {
        // A link is removed as a link: following it would empty its target.
        if (entry.isDir() && !entry.isSymLink())
            all = removeDirs(entry.filePath(), true) && all;
        else
            all = QFile::remove(entry.filePath()) && all;
    }
    if (removeSelf)
        all = QDir().rmdir(path) && all;
    return all;
}

bool GX2File::saveText(const QString& text, const QString& path)
{
    return saveBinary(text.toUtf8(), path);
}

bool GX2File::saveJson(const QJsonObject& object, const QString& path)
{
    return saveBinary(QJsonDocument(object).toJson(QJsonDocument::Indented), path);
}

QString GX2File::autoRename(const QString& path)
{
    if (!QFileInfo::exists(path))
        return path;
    const QFileInfo info(path);
    QString base = info.completeBaseName();
    QString suffix = info.suffix().isEmpty() ? QString() : QLatin1Char('.') + info.suffix();
    if (base.isEmpty()) { // ".profile": the whole name is the base
        base = info.fileName();
        suffix.clear();
    }
    for (int n = 2;; ++n) {
        const QString candidate =
            info.dir().filePath(QStringLiteral("%1(%2)%3").arg(base).arg(n).arg(suffix));
        if (!QFileInfo::exists(candidate))
            return candidate;
    }
}

QString GX2File::tempFileName(const QString& prefix, const QString& suffix)
{
    QTemporaryFile file(QDir::tempPath() + QLatin1Char('/') + prefix + QStringLiteral("XXXXXX") +
                        suffix);
    file.setAutoRemove(false);
    if (!file.open())
        return QString();
    return file.fileName();
}
