#include "tools/ctlcodes.h"

#include "gx2/gx2errors.h"
#include "routers/routercodes.h"
#include "vx/vxlvm.h"
#include "vx/vxraid.h"

#include <algorithm>
#include <iterator>

namespace {

struct Entry
{
    int code;
    const char* name;
    const char* meaning;
};

#define CTL_CODE_ENTRY(name, code, meaning) {code, #name, meaning},

const Entry kDaemon[] = {GX2_DAEMON_CODES(CTL_CODE_ENTRY)};
const Entry kSmbAudit[] = {ROUTER_SMBAUDIT_CODES(CTL_CODE_ENTRY)};
const Entry kNasLog[] = {ROUTER_NASLOG_CODES(CTL_CODE_ENTRY)};
const Entry kRaid[] = {VX_RAID_CODES(CTL_CODE_ENTRY)};
const Entry kLvmVolumes[] = {VX_LVM_CODES(CTL_CODE_ENTRY)};
const Entry kLvm[] = {VX_LVM_CODES(CTL_CODE_ENTRY) VX_LVM_CACHE_CODES(CTL_CODE_ENTRY)};

#undef CTL_CODE_ENTRY

struct Scope
{
    const char* name; // "lvm_*" matches the commands starting with "lvm_"
    const Entry* begin;
    const Entry* end;
    bool daemon; // falls back to the daemon's shared codes
};

template <size_t N> constexpr Scope scope(const char* name, const Entry (&entries)[N], bool daemon)
{
    return {name, entries, entries + N, daemon};
}

// The LVM router answers with the codes of the volume functions (not the
// cache's). The daemon's own scope comes first.
const Scope kScopes[] = {
    scope("daemon", kDaemon, true),    scope("smbaudit_*", kSmbAudit, true),
    scope("lvm_*", kLvmVolumes, true), scope("NASLog", kNasLog, true),
    scope("VXRaid", kRaid, false),     scope("VXLvm", kLvm, false),
};

bool matches(const Scope& scope, const QString& name)
{
    const QLatin1String pattern(scope.name);
    if (pattern.endsWith(QLatin1Char('*')))
        return name.startsWith(pattern.left(pattern.size() - 1));
    return name == pattern;
}

const Scope* scopeOf(const QString& name)
{
    for (const Scope& s : kScopes) {
        if (matches(s, name))
            return &s;
    }
    return nullptr;
}

const char* meaningIn(const Scope& scope, int code)
{
    const Entry* found =
        std::find_if(scope.begin, scope.end, [code](const Entry& e) { return e.code == code; });
    return found == scope.end ? nullptr : found->meaning;
}

} // namespace

QString codeMeaning(int code, const QString& scope)
{
    const Scope* own = scopeOf(scope);
    const char* meaning = own ? meaningIn(*own, code) : nullptr;
    // Every command may get the shared answers (an unknown one gets 9972);
    // a library class returns only its own codes.
    if (!meaning && (!own || own->daemon))
        meaning = meaningIn(kScopes[0], code);
    return meaning ? QString::fromUtf8(meaning) : QString();
}

QList<CtlCode> codeTable()
{
    QList<CtlCode> table;
    for (const Scope& s : kScopes) {
        for (const Entry* e = s.begin; e != s.end; ++e)
            table.append({e->code, e->name, s.name, e->meaning});
    }
    std::stable_sort(table.begin(), table.end(),
                     [](const CtlCode& a, const CtlCode& b) { return a.code < b.code; });
    return table;
}
