#pragma once

#include <QJsonObject>

// Memory and swap from /proc/meminfo, in bytes and use rates.
class VXMemory
{
public:
    // "total", "free", "available", "cached", "swaptotal", "swapfree",
    // "swapcached" (bytes), "memuserate", "swapuserate" (percent).
    static void alload(QJsonObject& memory);
};
