#include "routers/raidrouter.h"

RaidRouter::RaidRouter(QObject* parent) : GX2TodoRouter(parent) {}
