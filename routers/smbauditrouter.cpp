#include "routers/smbauditrouter.h"

#include "res/resources.h"

// Placeholder bodies, replaced by the collector.
SmbAuditRouter::SmbAuditRouter(QObject* parent) : GX2TodoRouter(parent)
{
    initResources();
}

SmbAuditRouter::~SmbAuditRouter() = default;

void SmbAuditRouter::mapTo(const QString&, short) {}
void SmbAuditRouter::correctRSyslogConf(const QString&, short) const {}
int SmbAuditRouter::start(short)
{
    return 0;
}
void SmbAuditRouter::stop() {}
void SmbAuditRouter::suspend() {}
void SmbAuditRouter::resume() {}
bool SmbAuditRouter::take(QJsonObject&, const QString&)
{
    return false;
}
void SmbAuditRouter::run() {}
QJsonObject SmbAuditRouter::dirByFields(const QJsonObject&) const
{
    return {};
}
void SmbAuditRouter::udpReadyRead() {}
