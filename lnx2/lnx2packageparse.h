#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

// Readers of the package tools' output; pure, so that recorded output
// checks them.

// Debian's rule: lower-case letters, digits and "+.-", starting with a
// letter or digit, two characters at least; optionally ":arch".
bool isPackageName(const QString& name);

// The entries of "dpkg -l" after its "+++-===" ruler:
// {"status", "package" (without ":arch"), "version"}.
QList<QJsonObject> dpkgEntriesOf(const QString& out);

// The packages of "apt list --upgradeable": {"package", "version", "current"}.
QJsonArray aptUpgradablesOf(const QString& out);
// The lines of "apt list --upgradable" that describe an upgrade.
QStringList aptUpgradableLinesOf(const QString& out);

// "ps -e" shows a dpkg or apt process.
bool packageToolRunning(const QString& psOut);
