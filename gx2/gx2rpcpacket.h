#pragma once

#include "gx2/gx2deferred.h"

#include <QByteArray>
#include <QJsonObject>
#include <QMetaType>

// One request or response on the local socket: a JSON object plus an
// optional attachment of raw bytes, framed into a datagram.
class GX2RpcPacket : public QJsonObject
{
public:
    // Results of fromDatagram.
    enum Parse {
        Taken = 0,
        KeepAlive = 1,
        Incomplete = 2,
        NotDatagram = 4,
    };

    static constexpr int kHeaderSize = 16;

    GX2RpcPacket() = default;
    GX2RpcPacket(const QJsonObject& object); // NOLINT: packets are built from objects freely
    GX2RpcPacket(const GX2RpcPacket&) = default;
    GX2RpcPacket& operator=(const GX2RpcPacket&) = default;
    GX2RpcPacket& operator=(const QJsonObject& object);

    QByteArray attachment;
    qint32 required = 0;

    bool isKeepAlive() const { return isEmpty(); }

    // In a command slot, on retObject: the answer comes later, through the
    // handle returned (see GX2Deferred). Whatever the slot wrote is ignored.
    GX2Deferred answerLater();
    bool isDeferred() const { return bool(deferral); }
    GX2Deferred deferred() const { return GX2Deferred(deferral); }
    void clearDeferral() { deferral.reset(); }

    QByteArray toDatagram() const;
    int fromDatagram(QByteArray& buffer);
    // The whole length the datagram at the front of buffer announces in its
    // header; 0 while buffer does not start with a whole header.
    static quint64 announcedSize(const QByteArray& buffer);

    // Keeps only "seq", "cno", "cmd" and "_" keys ("routers" goes too).
    void shrink();
    // Becomes only the "seq", "cno", "cmd", "routers" and "_" keys of from.
    void shrink(const QJsonObject& from);

    // Answers of the command slots: "err", and "results" with "err" 0.
    void setErr(int err);
    void setResults(const QJsonObject& results);
    static GX2RpcPacket ofErr(int err);
    // A request's "params"[key] (undefined when absent).
    QJsonValue param(const QString& key) const;

    static QByteArray keepAlive();
    static GX2RpcPacket make(const QString& cmd, int err, const QJsonObject& params);
    static void copyResponsed(QJsonObject& to, const QJsonObject& from);
    static void copyResponsed(QJsonObject& to, const QJsonObject& from, int err,
                              const QString& errmsg);
    static GX2RpcPacket copyResponsed(const QJsonObject& from, int err, const QString& errmsg);
    static GX2RpcPacket copyResponsed(const QJsonObject& from);
    static bool takeRouter(int& fd, int& session, QJsonObject& obj);

private:
    std::shared_ptr<GX2DeferredState> deferral;
};

// 00 "ka" 00: a whole keep-alive datagram.
extern const QByteArray PACKET_KEEPALIVE;
// 00 "gx": the start of every other datagram.
extern const QByteArray PACKET_MARK;

Q_DECLARE_METATYPE(GX2RpcPacket)
Q_DECLARE_METATYPE(GX2RpcPacket*)
