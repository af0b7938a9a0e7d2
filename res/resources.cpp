#include "res/resources.h"

#include <QtGlobal>

#include <mutex>

static void registerRes()
{
    Q_INIT_RESOURCE(res);
}

void initResources()
{
    static std::once_flag once;
    std::call_once(once, registerRes);
}
