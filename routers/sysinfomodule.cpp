#include "routers/sysinfomodule.h"

#include "gx2/gx2errors.h"

SysInfoModule::SysInfoModule(QObject* parent) : GX2TodoRouter(parent)
{
    naslog.reloadPool();
}

void SysInfoModule::naslog_append(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    const QJsonObject event = cmdObject.value(QStringLiteral("params")).toObject();
    // The store's own codes stay inside: the front end knows one failure.
    const bool stored = naslog.logPush(event);
    retObject->insert(QStringLiteral("err"), stored ? kErrOk : kErrWriteFailed);
}

void SysInfoModule::naslog_recent(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    Q_UNUSED(cmdObject)
    retObject->insert(QStringLiteral("err"), kErrOk);
    retObject->insert(QStringLiteral("results"),
                      QJsonObject{{QStringLiteral("records"), naslog.logPool()}});
}
