#include "routers/sysinfomodule.h"

#include "gx2/gx2errors.h"

SysInfoModule::SysInfoModule(QObject* parent) : GX2TodoRouter(parent)
{
    naslog.reloadPool();
}

void SysInfoModule::naslog_append(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    // Answered once stored, together with the appends of the other
    // connections that arrived in the same turn of the loop.
    appends << cmdObject.value(QStringLiteral("params")).toObject();
    appendAnswers << retObject->answerLater();
    if (appends.size() == 1)
        QMetaObject::invokeMethod(this, &SysInfoModule::storeAppends, Qt::QueuedConnection);
}

void SysInfoModule::storeAppends()
{
    const QList<bool> stored = naslog.logPushAll(appends);
    // The store's own codes stay inside: the front end knows one failure.
    for (int i = 0; i < appendAnswers.size(); ++i)
        appendAnswers[i].answer(GX2RpcPacket(
            QJsonObject{{QStringLiteral("err"), stored.value(i) ? kErrOk : kErrWriteFailed}}));
    appends.clear();
    appendAnswers.clear();
}

void SysInfoModule::naslog_recent(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    Q_UNUSED(cmdObject)
    retObject->insert(QStringLiteral("err"), kErrOk);
    retObject->insert(QStringLiteral("results"),
                      QJsonObject{{QStringLiteral("records"), naslog.logPool()}});
}
