#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

// Small file operations that never fail loudly: reads give empty values,
// writes and loads give false. Paths are used as the caller gives them.
class GX2File
{
public:
    GX2File() = delete;

    // Whole file; empty when it cannot be opened (also for a directory).
    static QByteArray readAll(const QString& path);
    static bool loadBinary(QByteArray& data, const QString& path);
    // Creates the directory chain, then truncates and writes.
    static bool saveBinary(const QByteArray& data, const QString& path);
    // True when the text parses; object is then the document's object
    // (empty for an array). On failure object is left as it was.
    static bool loadJson(QJsonObject& object, const QString& path);
    static QJsonObject readJsonObject(const QString& path);
    static QJsonArray readJsonArray(const QString& path);
    // Text mode; codec names a text codec, empty (or unknown) means UTF-8.
    static bool loadText(QString& text, const QString& path, const QString& codec = QString());
    // Recursive removal of the readable and writable entries; true when
    // every removal, including the directory itself when asked, succeeded.
    static bool removeDirs(const QString& path, bool removeSelf);

    // UTF-8 text, through saveBinary.
    static bool saveText(const QString& text, const QString& path);
    // Indented JSON text, through saveBinary.
    static bool saveJson(const QJsonObject& object, const QString& path);
    // path itself when free, else the first free "base(N).suffix" (N from 2)
    // in the same directory.
    static QString autoRename(const QString& path);
    // A new empty file in the temporary directory, named with prefix and
    // suffix; creating it reserves the name. Empty when it cannot be created.
    static QString tempFileName(const QString& prefix = QString(),
                                const QString& suffix = QString());
};

// Privileged writer: brackets an ordinary write with sudo commands so that
// files the daemon's user does not own can be written. A file that did not
// exist ends owned by www-data:www-data with mode 666; an existing one keeps
// its owner and group. True when the file opened for writing.
bool writeFile(const QString& path, const QByteArray& data);
bool writeFile(const QString& path, const QString& text);
// Joined with "\n", no final newline.
bool writeFile(const QString& path, const QStringList& lines);
bool writeFile(const QString& path, const QJsonObject& object);
