#pragma once

#include <QString>

// Putting a file system on a block device. One object per formatting job:
// the last error is not shared between threads.
class VXFileSystem
{
public:
    // Formats and waits up to two hours.
    bool create(const QString& fs, const QString& dev, int blockSize);
    // Formats and waits up to one minute; standard error of a failure in error.
    bool create(QString& error, const QString& fs, const QString& dev, int blockSize);
    // Starts formatting on a thread of its own and returns at once; false
    // when there is nothing to run. extra is not used by the formatting.
    bool creating(const QString& fs, const QString& dev, const QString& extra, int blockSize);

    static QString mountOptions(const QString& fs);
    QString lastError() const;

private:
    QString error_;
};
