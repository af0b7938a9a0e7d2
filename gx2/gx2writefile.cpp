#include "gx2/gx2file.h"

#include "lnx2/lnx2process.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

namespace {

// sudo with a coreutils command returns at once; the limit only guards
// against a hung authentication.
constexpr int kSudoLimitMs = 5000;

void sudo(const QStringList& arguments)
{
    procRun(QStringLiteral("/usr/bin/sudo"), arguments, kSudoLimitMs, kSudoLimitMs);
}

// "owner:group" of an existing file, numeric where a name is unknown.
QString ownership(const QFileInfo& info)
{
    const QString owner = info.owner().isEmpty() ? QString::number(info.ownerId()) : info.owner();
    const QString group = info.group().isEmpty() ? QString::number(info.groupId()) : info.group();
    return owner + QLatin1Char(':') + group;
}

} // namespace

bool writeFile(const QString& path, const QByteArray& data)
{
    const QFileInfo info(path);
    const bool existed = info.exists();
    const QString owner = existed ? ownership(info) : QString();
    const QString dir = info.absolutePath();
    if (!QFileInfo(dir).isDir())
        sudo({QStringLiteral("mkdir"), QStringLiteral("-p"), dir});
    if (!existed)
        sudo({QStringLiteral("touch"), path});
    sudo({QStringLiteral("chmod"), QStringLiteral("777"), path});
    QFile file(path);
    const bool opened = file.open(QIODevice::WriteOnly | QIODevice::Truncate);
    if (opened) {
        file.write(data);
        file.close();
    }
    sudo({QStringLiteral("chmod"), QStringLiteral("666"), path});
    // An existing file keeps its ownership; a new one goes to the web server's user.
    sudo({QStringLiteral("chown"), existed ? owner : QStringLiteral("www-data:www-data"), path});
    return opened;
}

bool writeFile(const QString& path, const QString& text)
{
    return writeFile(path, text.toUtf8());
}

bool writeFile(const QString& path, const QStringList& lines)
{
    return writeFile(path, lines.join(QLatin1Char('\n')).toUtf8());
}

bool writeFile(const QString& path, const QJsonObject& object)
{
    return writeFile(path, QJsonDocument(object).toJson());
}
