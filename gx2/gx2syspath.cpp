#include "gx2/gx2syspath.h"

#include <QDir>

QString sysRoot()
{
    // Read on every call: tests switch roots inside one process.
    QString root = qEnvironmentVariable("NASBROLT_ROOT");
    while (root.size() > 1 && root.endsWith(QLatin1Char('/')))
        root.chop(1);
    return root == QStringLiteral("/") ? QString() : root;
}

QString sysPath(const QString& path)
{
    const QString root = sysRoot();
    if (root.isEmpty() || !path.startsWith(QLatin1Char('/')))
        return path;
    return root + path;
}
