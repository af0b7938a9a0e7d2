#pragma once

#include <QString>

// The mkfs command line of a file system ("" for an unknown one or a device
// that fails isDevicePath). A block size below 1 means 4096.
class VXFileSystemPrivate
{
public:
    static QString formatCommand(const QString& fs, const QString& dev, int blockSize);
};
