#include "gx2/gx2todorouter.h"

#include "gx2/gx2errors.h"

#include <QMetaMethod>

GX2TodoRouter::GX2TodoRouter(QObject* parent) : QObject(parent)
{
    // Slots take the packet by value through invokeMethod, so Qt must know the type.
    qRegisterMetaType<GX2RpcPacket>("GX2RpcPacket");
    qRegisterMetaType<GX2RpcPacket*>("GX2RpcPacket*");
}

GX2TodoRouter::~GX2TodoRouter() = default;

void GX2TodoRouter::add(GX2TodoRouter* child)
{
    std::lock_guard<std::mutex> guard(lock);
    if (!children.contains(child))
        children.append(child);
}

void GX2TodoRouter::del(GX2TodoRouter* child)
{
    std::lock_guard<std::mutex> guard(lock);
    children.removeOne(child);
}

bool GX2TodoRouter::doSlot(GX2RpcPacket& retObject, const GX2RpcPacket& cmdObject)
{
    const QString name = cmdObject.value(QStringLiteral("cmd")).toString();
    const QByteArray signature = (name + QStringLiteral("(GX2RpcPacket*,GX2RpcPacket)")).toUtf8();
    if (metaObject()->indexOfMethod(signature.constData()) >= 0) {
        QMetaObject::invokeMethod(this, name.toUtf8().constData(), Qt::DirectConnection,
                                  Q_ARG(GX2RpcPacket*, &retObject), Q_ARG(GX2RpcPacket, cmdObject));
        return true;
    }
    bool handled = false;
    {
        // Held while the children run: routers are only added before the loop starts.
        std::lock_guard<std::mutex> guard(lock);
        const QList<GX2TodoRouter*> snapshot = children;
        for (GX2TodoRouter* child : snapshot) {
            if (child->doSlot(retObject, cmdObject)) {
                handled = true;
                break;
            }
        }
    }
    if (!handled)
        retObject.insert(QStringLiteral("err"), kErrUnknownCommand);
    return handled;
}
