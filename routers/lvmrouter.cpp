#include "routers/lvmrouter.h"

LvmRouter::LvmRouter(QObject* parent) : GX2TodoRouter(parent) {}
