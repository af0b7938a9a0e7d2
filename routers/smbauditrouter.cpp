#include "routers/smbauditrouter.h"

SmbAuditRouter::SmbAuditRouter(QObject* parent) : GX2TodoRouter(parent) {}
