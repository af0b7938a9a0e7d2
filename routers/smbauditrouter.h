#pragma once

#include "gx2/gx2todorouter.h"

// Samba audit configuration, records and exports.
class SmbAuditRouter : public GX2TodoRouter
{
    Q_OBJECT

public:
    explicit SmbAuditRouter(QObject* parent = nullptr);
};
