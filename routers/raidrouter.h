#pragma once

#include "gx2/gx2todorouter.h"

// RAID configuration refresh and resync speed limits.
class RaidRouter : public GX2TodoRouter
{
    Q_OBJECT

public:
    explicit RaidRouter(QObject* parent = nullptr);
};
