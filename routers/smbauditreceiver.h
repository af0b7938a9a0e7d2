#pragma once

#include "gx2/gx2inflight.h"

#include <QtGlobal>

#include <functional>

// The UDP socket that rsyslog forwards the audit messages to, read on a
// thread of its own: a command that holds the event loop costs no datagram.
class SmbAuditReceiver
{
public:
    // One datagram as received (not trimmed); called on the reading thread.
    using Handler = std::function<void(const char* data, int size)>;

    static constexpr int kReceiveBuffer = 8 * 1024 * 1024;

    SmbAuditReceiver() = default;
    ~SmbAuditReceiver();
    SmbAuditReceiver(const SmbAuditReceiver&) = delete;
    SmbAuditReceiver& operator=(const SmbAuditReceiver&) = delete;

    // Binds port (0: any free one) on every local address, IPv6 and IPv4.
    bool bind(quint16 port);
    quint16 port() const;
    // The kernel's receive buffer for the socket, in bytes.
    int receiveBufferBytes() const;

    // Starts the reading thread; onReadable runs there whenever datagrams
    // wait, and should call readPending.
    bool start(std::function<void()> onReadable);
    // Tells the thread to end, without waiting.
    void requestStop();
    // Ends the thread and waits for it; closes the socket.
    void close();

    // Hands every datagram waiting now to handler, without blocking.
    void readPending(const Handler& handler);

private:
    void loop(const std::function<void()>& onReadable);

    int fd = -1;
    int wakeFd = -1;
    GX2InFlight reading; // the thread, while it runs
};
