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

int GX2TodoRouter::slotIndex(const QString& name)
{
    std::lock_guard<std::mutex> guard(slotsLock);
    const auto known = slotIndexes.constFind(name);
    if (known != slotIndexes.constEnd())
        return known.value();
    const QByteArray signature = (name + QStringLiteral("(GX2RpcPacket*,GX2RpcPacket)")).toUtf8();
    const int index = metaObject()->indexOfMethod(signature.constData());
    // Names that came from clients are not all kept: a stream of made-up
    // commands must not grow the table.
    if (index >= 0 || slotIndexes.size() < 1024)
        slotIndexes.insert(name, index);
    return index;
}

bool GX2TodoRouter::doSlot(GX2RpcPacket& retObject, const GX2RpcPacket& cmdObject)
{
    const QString name = cmdObject.value(QStringLiteral("cmd")).toString();
    const int index = slotIndex(name);
    if (index >= 0) {
        // The slot runs now, on this thread, as a direct invocation by name
        // would run it; the request is copied into its by-value parameter.
        GX2RpcPacket* response = &retObject;
        void* args[] = {nullptr, &response, const_cast<GX2RpcPacket*>(&cmdObject)};
        QMetaObject::metacall(this, QMetaObject::InvokeMetaMethod, index, args);
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
