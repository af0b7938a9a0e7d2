#include "routers/smbauditreceiver.h"

#include "gx2/gx2logger.h"
#include "gx2/gx2workers.h"

#include <QString>

#include <cerrno>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>

namespace {

// Datagrams taken per system call, and the largest one read whole.
constexpr int kBatch = 32;
constexpr int kMaxDatagram = 65536;

int bindDualStack(quint16 port)
{
    const int fd = ::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd >= 0) {
        // rsyslog's "localhost" may be ::1 or 127.0.0.1: take both.
        const int off = 0;
        ::setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
        sockaddr_in6 any{};
        any.sin6_family = AF_INET6;
        any.sin6_addr = in6addr_any;
        any.sin6_port = htons(port);
        if (::bind(fd, reinterpret_cast<sockaddr*>(&any), sizeof any) == 0)
            return fd;
        const bool noIpv6 = errno == EADDRNOTAVAIL || errno == EAFNOSUPPORT;
        ::close(fd);
        if (!noIpv6)
            return -1;
    }
    const int v4 = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_addr.s_addr = htonl(INADDR_ANY);
    any.sin_port = htons(port);
    if (v4 >= 0 && ::bind(v4, reinterpret_cast<sockaddr*>(&any), sizeof any) == 0)
        return v4;
    if (v4 >= 0)
        ::close(v4);
    return -1;
}

} // namespace

SmbAuditReceiver::~SmbAuditReceiver()
{
    close();
}

bool SmbAuditReceiver::bind(quint16 port)
{
    close();
    fd = bindDualStack(port);
    if (fd < 0)
        return false;
    // A burst must wait in the kernel, not be dropped there. Root may go
    // beyond the system's limit for socket buffers.
    const int size = kReceiveBuffer;
    if (::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) != 0)
        ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    GX2LOG_INFO(QStringLiteral("audit port %1: receive buffer %2 bytes")
                    .arg(this->port())
                    .arg(receiveBufferBytes()));
    return true;
}

quint16 SmbAuditReceiver::port() const
{
    sockaddr_in6 addr{};
    socklen_t size = sizeof addr;
    if (fd < 0 || ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &size) != 0)
        return 0;
    // sin_port and sin6_port sit at the same place.
    return ntohs(addr.sin6_port);
}

int SmbAuditReceiver::receiveBufferBytes() const
{
    int size = 0;
    socklen_t length = sizeof size;
    if (fd < 0 || ::getsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, &length) != 0)
        return 0;
    return size;
}

bool SmbAuditReceiver::start(std::function<void()> onReadable)
{
    if (fd < 0)
        return false;
    wakeFd = ::eventfd(0, EFD_CLOEXEC);
    reading.begin();
    const bool started = GX2Workers::start(QStringLiteral("audit receiver"), [this, onReadable] {
        loop(onReadable);
        reading.end();
    });
    if (!started)
        reading.end();
    return started;
}

void SmbAuditReceiver::loop(const std::function<void()>& onReadable)
{
    pollfd watched[2] = {{fd, POLLIN, 0}, {wakeFd, POLLIN, 0}};
    for (;;) {
        if (::poll(watched, 2, -1) < 0 && errno != EINTR)
            break;
        if (watched[1].revents != 0)
            break;
        if (watched[0].revents != 0)
            onReadable();
    }
}

void SmbAuditReceiver::requestStop()
{
    if (wakeFd < 0)
        return;
    const quint64 one = 1;
    [[maybe_unused]] const ssize_t written = ::write(wakeFd, &one, sizeof one);
}

void SmbAuditReceiver::close()
{
    if (wakeFd >= 0) {
        requestStop();
        reading.waitForNone();
        ::close(wakeFd);
        wakeFd = -1;
    }
    if (fd >= 0)
        ::close(fd);
    fd = -1;
}

void SmbAuditReceiver::readPending(const Handler& handler)
{
    // Left uninitialised: only the bytes datagrams fill become resident.
    static thread_local std::unique_ptr<char[]> storage(new char[size_t(kBatch) * kMaxDatagram]);
    mmsghdr messages[kBatch];
    iovec parts[kBatch];
    for (;;) {
        for (int i = 0; i < kBatch; ++i) {
            parts[i] = {storage.get() + size_t(i) * kMaxDatagram, size_t(kMaxDatagram)};
            messages[i] = {};
            messages[i].msg_hdr.msg_iov = &parts[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
        const int got = ::recvmmsg(fd, messages, kBatch, MSG_DONTWAIT, nullptr);
        if (got <= 0)
            return;
        for (int i = 0; i < got; ++i)
            handler(static_cast<const char*>(parts[i].iov_base), int(messages[i].msg_len));
        if (got < kBatch)
            return;
    }
}
