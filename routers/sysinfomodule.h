#pragma once

#include "gx2/gx2todorouter.h"

// The event log and the live dashboard.
class SysInfoModule : public GX2TodoRouter
{
    Q_OBJECT

public:
    explicit SysInfoModule(QObject* parent = nullptr);
};
