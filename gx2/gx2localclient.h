#pragma once

#include <QByteArray>
#include <QObject>

class GX2LocalServer;
class QLocalSocket;

// One accepted connection: cuts datagrams from its byte stream, dispatches
// each request through the server's router tree and answers in order.
class GX2LocalClient : public QObject
{
    Q_OBJECT

public:
    GX2LocalClient(GX2LocalServer* owner, QLocalSocket* socket);

    void initialize();

private slots:
    void onReceived();
    void onDisconnected();

private:
    Q_DISABLE_COPY(GX2LocalClient)

    GX2LocalServer* owner;
    QLocalSocket* socket;
    QByteArray buffer;
};
