#include "routers/smbauditrouter.h"

// Placeholder bodies, replaced by the real commands.
void SmbAuditRouter::smbaudit_config_load(GX2RpcPacket* retObject, GX2RpcPacket)
{
    retObject->insert(QStringLiteral("err"), 9999);
}

void SmbAuditRouter::smbaudit_config_save(GX2RpcPacket* retObject, GX2RpcPacket)
{
    retObject->insert(QStringLiteral("err"), 9999);
}

void SmbAuditRouter::smbaudit_dir_loadby(GX2RpcPacket* retObject, GX2RpcPacket)
{
    retObject->insert(QStringLiteral("err"), 9999);
}

void SmbAuditRouter::smbaudit_dir_append(GX2RpcPacket* retObject, GX2RpcPacket)
{
    retObject->insert(QStringLiteral("err"), 9999);
}

void SmbAuditRouter::smbaudit_dir_remove(GX2RpcPacket* retObject, GX2RpcPacket)
{
    retObject->insert(QStringLiteral("err"), 9999);
}

void SmbAuditRouter::smbaudit_dir_erase(GX2RpcPacket* retObject, GX2RpcPacket)
{
    retObject->insert(QStringLiteral("err"), 9999);
}

void SmbAuditRouter::smbaudit_log_loadby(GX2RpcPacket* retObject, GX2RpcPacket)
{
    retObject->insert(QStringLiteral("err"), 9999);
}

void SmbAuditRouter::smbaudit_log_remove(GX2RpcPacket* retObject, GX2RpcPacket)
{
    retObject->insert(QStringLiteral("err"), 9999);
}

void SmbAuditRouter::smbaudit_log_export(GX2RpcPacket* retObject, GX2RpcPacket)
{
    retObject->insert(QStringLiteral("err"), 9999);
}

void SmbAuditRouter::smbaudit_log_saveas(GX2RpcPacket* retObject, GX2RpcPacket)
{
    retObject->insert(QStringLiteral("err"), 9999);
}

QJsonObject SmbAuditRouter::logByFields(const QJsonObject&) const
{
    return {};
}
