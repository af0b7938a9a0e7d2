#pragma once

#include <functional>
#include <memory>

class GX2RpcPacket;
class GX2DeferredState;
class QObject;

// A command's answer that comes later. A slot that would wait calls
// retObject->answerLater(), hands the handle to a thread or a timer and
// returns; the connection writes the answer once answer() is called. That
// connection's later requests wait for it, so answers stay one per request
// and in order; every other connection goes on being served.
class GX2Deferred
{
public:
    GX2Deferred() = default;

    bool isValid() const { return bool(state); }
    // From any thread; only the first answer counts.
    void answer(const GX2RpcPacket& response) const;

    // The dispatcher's side: deliver runs on context's thread, once, after
    // answer(). A context destroyed first (after forget()) receives nothing.
    void onAnswer(QObject* context, std::function<void(const GX2RpcPacket&)> deliver) const;
    void forget() const;
    // For callers without an event loop (the library's own callers, tests):
    // waits up to ms for the answer.
    bool wait(GX2RpcPacket& response, int ms) const;

private:
    friend class GX2RpcPacket;
    explicit GX2Deferred(std::shared_ptr<GX2DeferredState> s) : state(std::move(s)) {}

    std::shared_ptr<GX2DeferredState> state;
};
