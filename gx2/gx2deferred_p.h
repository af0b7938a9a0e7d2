#pragma once

#include "gx2/gx2rpcpacket.h"

#include <QMetaObject>
#include <QObject>

#include <condition_variable>
#include <functional>
#include <mutex>

// State of a GX2Deferred, shared by the slot's worker and the connection.
class GX2DeferredState
{
public:
    std::mutex lock;
    std::condition_variable answered;
    bool done = false;
    GX2RpcPacket response;
    QObject* context = nullptr;
    std::function<void(const GX2RpcPacket&)> deliver;

    // Under lock: hands the answer to the context's thread.
    void post()
    {
        if (!done || !context || !deliver)
            return;
        // Qt drops the call when the context is destroyed before it runs.
        QMetaObject::invokeMethod(
            context, [fn = std::move(deliver), packet = response] { fn(packet); },
            Qt::QueuedConnection);
        deliver = nullptr;
        context = nullptr;
    }
};
