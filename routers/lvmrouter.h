#pragma once

#include "gx2/gx2todorouter.h"

// Logical volume creation and its progress.
class LvmRouter : public GX2TodoRouter
{
    Q_OBJECT

public:
    explicit LvmRouter(QObject* parent = nullptr);
};
