#include "tools/adm/admtable.h"

// One line per part of the library.
const QList<AdmEntry>& admEntries()
{
    static const QList<AdmEntry> all = [] {
        QList<AdmEntry> entries;
        entries += admVXDiskEntries();
        entries += admVXRaidEntries();
        entries += admVXLvmEntries();
        entries += admVXLvmCacheEntries();
        entries += admVXZfsEntries();
        entries += admVXSystemEntries();
        entries += admLNX2PackageEntries();
        return entries;
    }();
    return all;
}
