// libFuzzer target for the audit line parse: the bytes any local process can
// send to the collector's UDP port.
//
// Input: one datagram, decoded as the receiver decodes it. An accepted line
// must give a record that is consistent with the line it came from.

#include "routers/smbauditparse.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

void check(bool ok, const char* what)
{
    if (ok)
        return;
    fprintf(stderr, "audit line invariant broken: %s\n", what);
    abort();
}

const QHash<QString, int>& watched()
{
    static const QHash<QString, int> dirs{{QStringLiteral("/srv/share/a/"), 3},
                                          {QStringLiteral("/srv/"), 1},
                                          {QStringLiteral("/srv/share/z/"), 0}};
    return dirs;
}

void checkRecord(const QJsonObject& record, const QString& line)
{
    const int action = record.value(QStringLiteral("action")).toInt();
    const int sadno = record.value(QStringLiteral("sadno")).toInt();
    const QString path = record.value(QStringLiteral("filepath")).toString();
    const QString explain = record.value(QStringLiteral("explain")).toString();
    check(action >= 1 && action <= 8, "action code in 1..8");
    check(sadno >= 1 && path.startsWith(watched().key(sadno)), "path below its watched dir");
    check(line.indexOf(QLatin1String(" smbd_audit: ")) > 0, "tag after a time stamp");
    check(record.value(QStringLiteral("datetime")).toString() == line.left(19) &&
              record.value(QStringLiteral("date")).toString() == line.left(10),
          "time stamp from the line's start");
    const bool moved = action >= 5 && action <= 7;
    check(moved || explain.isEmpty(), "only renames explain");
    check((action == 7) == (moved && explain.contains(QLatin1String("/.recycle/"))),
          "recycle bin by target");
    check(record.size() == 12, "twelve keys");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > 1 << 16)
        return 0;
    const QString line =
        QString::fromUtf8(reinterpret_cast<const char*>(data), int(size)).trimmed();
    QJsonObject record;
    if (parseAuditLine(record, line, watched()))
        checkRecord(record, line);
    return 0;
}
