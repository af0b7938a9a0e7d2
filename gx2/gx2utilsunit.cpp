#include "gx2/gx2utils.h"

qint64 asUnitSpeed(const QString& unit)
{
    static const char* const units[] = {"b/s", "k/s", "m/s", "g/s", "t/s", "p/s"};
    const QString lower = unit.toLower();
    qint64 factor = 1;
    for (const char* known : units) {
        if (lower == QLatin1String(known))
            return factor;
        factor *= 1024;
    }
    return 1;
}
