#include "gx2/gx2utils.h"

#include <apt-pkg/debversion.h>

// On its own: a program that never compares package versions does not load
// libapt-pkg and the dozen libraries it brings.
int cmpVersion(const QString& a, const QString& b)
{
    const QByteArray ua = a.toUtf8();
    const QByteArray ub = b.toUtf8();
    return debVS.DoCmpVersion(ua.constData(), ua.constData() + ua.size(), ub.constData(),
                              ub.constData() + ub.size());
}
