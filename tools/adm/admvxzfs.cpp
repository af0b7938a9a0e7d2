// The ZFS pool reports: VXZfs.

#include "tools/adm/admtable.h"

#include "vx/vxzfs.h"

QList<AdmEntry> admVXZfsEntries()
{
    using R = AdmResult;
    return {
        {"VXZfs::vgAlload", {}, {}, R::Value, [](AdmCall&) { return VXZfs::vgAlload(); }},
        {"VXZfs::vgAllist", {}, {}, R::Value, [](AdmCall&) { return VXZfs::vgAllist(); }},
    };
}
