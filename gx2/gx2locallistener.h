#pragma once

#include <QLocalServer>

// The listening socket. Accepted connections are handed over as bare
// descriptors: the connections do their own reads and writes, without
// QLocalSocket's buffering on the request path.
class GX2LocalListener : public QLocalServer
{
    Q_OBJECT

public:
    using QLocalServer::QLocalServer;

signals:
    void accepted(qintptr descriptor);

protected:
    void incomingConnection(quintptr descriptor) override;
};
