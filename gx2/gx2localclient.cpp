#include "gx2/gx2localclient.h"

#include "gx2/gx2logger.h"
#include "gx2/gx2rpcpacket.h"

#include <QSocketNotifier>

#include <cerrno>
#include <fcntl.h>
#include <malloc.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int kReadChunk = 65536;
// Above this many unsent answer bytes the connection is not read until the
// peer takes them: a client that never reads cannot grow the daemon.
constexpr int kUnsentHigh = 1 << 20;
// A drained buffer bigger than this goes back to the allocator.
constexpr int kKeepCapacity = 1 << 20;
// After an answer this large the memory that built it is handed back to the
// system: the many small blocks of a big JSON answer otherwise stay resident.
constexpr int kTrimAfterAnswer = 1 << 20;

bool wouldBlock()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

} // namespace

GX2LocalClient::GX2LocalClient(GX2LocalServer* owner, int descriptor, const GX2Peer& peer)
    : QObject(owner), owner(owner), fd(descriptor), who(peer)
{
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
}

GX2LocalClient::~GX2LocalClient()
{
    waiting.forget();
    delete reader;
    delete writer;
    ::close(fd);
}

void GX2LocalClient::initialize()
{
    reader = new QSocketNotifier(fd, QSocketNotifier::Read, this);
    writer = new QSocketNotifier(fd, QSocketNotifier::Write, this);
    writer->setEnabled(false);
    connect(reader, &QSocketNotifier::activated, this, &GX2LocalClient::onReceived);
    connect(writer, &QSocketNotifier::activated, this, &GX2LocalClient::onWritable);
}

void GX2LocalClient::onReceived()
{
    const int had = buffer.size();
    buffer.resize(had + kReadChunk);
    const ssize_t got = ::recv(fd, buffer.data() + had, kReadChunk, 0);
    buffer.resize(had + int(qMax<ssize_t>(got, 0)));
    if (got == 0 || (got < 0 && !wouldBlock()))
        return onDisconnected();
    if (got < 0)
        return;
    serve();
}

void GX2LocalClient::serve()
{
    GX2RpcPacket request;
    // A keep-alive ends the pass, and a bad datagram is never consumed: the
    // connection then stays silent until the peer goes away.
    while (!closed && !waiting.isValid() && unsent.size() <= kUnsentHigh) {
        if (headTooLarge())
            return drop(QStringLiteral("a request announces more than %1 bytes")
                            .arg(owner->maxRequestBytes()));
        if (request.fromDatagram(buffer) != GX2RpcPacket::Taken)
            break;
        if (request.isEmpty())
            continue;
        GX2RpcPacket response;
        owner->doSlot(response, request);
        if (response.isDeferred()) {
            waiting = response.deferred();
            waiting.onAnswer(this, [this](const GX2RpcPacket& answer) { answered(answer); });
            break;
        }
        const QByteArray datagram = response.toDatagram();
        trimAfter = trimAfter || datagram.size() >= kTrimAfterAnswer;
        send(datagram);
    }
    if (trimAfter && unsent.isEmpty()) {
        trimAfter = false;
        ::malloc_trim(0);
    }
    if (closed)
        return;
    if (buffer.size() > owner->maxRequestBytes())
        return drop(QStringLiteral("%1 bytes arrived without a whole request").arg(buffer.size()));
    if (buffer.isEmpty() && buffer.capacity() > kKeepCapacity)
        buffer = QByteArray();
    reader->setEnabled(unsent.size() <= kUnsentHigh);
}

bool GX2LocalClient::headTooLarge() const
{
    return GX2RpcPacket::announcedSize(buffer) > quint64(owner->maxRequestBytes());
}

void GX2LocalClient::answered(const GX2RpcPacket& response)
{
    waiting = GX2Deferred();
    send(response.toDatagram());
    serve();
}

void GX2LocalClient::send(const QByteArray& datagram)
{
    if (closed)
        return;
    if (!unsent.isEmpty()) {
        unsent += datagram;
        return;
    }
    const ssize_t put = ::send(fd, datagram.constData(), size_t(datagram.size()), MSG_NOSIGNAL);
    if (put == datagram.size())
        return;
    // A broken peer is noticed by the reader, as an end of stream.
    if (put < 0 && !wouldBlock())
        return;
    unsent = datagram.mid(int(qMax<ssize_t>(put, 0)));
    writer->setEnabled(true);
}

void GX2LocalClient::onWritable()
{
    const ssize_t put = ::send(fd, unsent.constData(), size_t(unsent.size()), MSG_NOSIGNAL);
    if (put < 0 && !wouldBlock()) {
        unsent.clear();
    } else if (put > 0) {
        unsent.remove(0, int(put));
    }
    if (!unsent.isEmpty())
        return;
    unsent = QByteArray();
    writer->setEnabled(false);
    serve();
}

void GX2LocalClient::drop(const QString& why)
{
    GX2LOG_WARN(QStringLiteral("closed the connection of uid %1 pid %2: %3")
                    .arg(who.uid)
                    .arg(who.pid)
                    .arg(why));
    buffer = QByteArray();
    unsent = QByteArray();
    onDisconnected();
    // The large buffer is gone; give its pages back now rather than at some later free.
    ::malloc_trim(0);
}

void GX2LocalClient::onDisconnected()
{
    if (closed)
        return;
    closed = true;
    reader->setEnabled(false);
    writer->setEnabled(false);
    waiting.forget();
    owner->clientClosed(this);
}
