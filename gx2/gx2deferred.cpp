#include "gx2/gx2deferred.h"
#include "gx2/gx2deferred_p.h"

#include "gx2/gx2rpcpacket.h"

#include <QMetaObject>
#include <QObject>

#include <chrono>

void GX2Deferred::answer(const GX2RpcPacket& response) const
{
    if (!state)
        return;
    std::lock_guard<std::mutex> guard(state->lock);
    if (state->done)
        return;
    state->done = true;
    state->response = response;
    state->response.clearDeferral();
    state->answered.notify_all();
    state->post();
}

void GX2Deferred::onAnswer(QObject* context, std::function<void(const GX2RpcPacket&)> deliver) const
{
    if (!state)
        return;
    std::lock_guard<std::mutex> guard(state->lock);
    state->context = context;
    state->deliver = std::move(deliver);
    state->post();
}

void GX2Deferred::forget() const
{
    if (!state)
        return;
    std::lock_guard<std::mutex> guard(state->lock);
    state->context = nullptr;
    state->deliver = nullptr;
}

bool GX2Deferred::wait(GX2RpcPacket& response, int ms) const
{
    if (!state)
        return false;
    std::unique_lock<std::mutex> guard(state->lock);
    if (!state->answered.wait_for(guard, std::chrono::milliseconds(ms),
                                  [this] { return state->done; }))
        return false;
    response = state->response;
    return true;
}
