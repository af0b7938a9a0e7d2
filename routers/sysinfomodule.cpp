#include "routers/sysinfomodule.h"

SysInfoModule::SysInfoModule(QObject* parent) : GX2TodoRouter(parent) {}
