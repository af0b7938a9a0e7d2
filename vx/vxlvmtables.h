#pragma once

#include <QJsonArray>
#include <QString>
#include <QStringList>

// The text of fstab and crypttab after a change, without touching a file.
// fstab entries are the objects of fstabEntriesOf (vxlvmparse.h).

// The comment lines of fstabText, untrimmed, then one line per entry whose
// "source" is not newSource (UUID= where the entry allows it), then newLine.
QStringList fstabAppendLines(const QJsonArray& entries, const QString& fstabText,
                             const QString& newSource, const QString& newLine);
// The comment lines, the entries whose "target" is not target (source as
// loaded), then one empty line. *dropped tells whether an entry went.
QStringList fstabRemoveLines(const QJsonArray& entries, const QString& fstabText,
                             const QString& target, bool* dropped);
// crypttab without blank lines and without the line of lvPath, then newLine
// and an empty element (a final newline).
QStringList crypttabAppendLines(const QString& crypttabText, const QString& lvPath,
                                const QString& newLine);
// crypttab without the line of lvPath (blank lines kept, trimmed).
QStringList crypttabRemoveLines(const QString& crypttabText, const QString& lvPath,
                                bool* dropped);
