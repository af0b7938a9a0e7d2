#include "gx2/gx2rpcpacket.h"

#include "gx2/gx2deferred_p.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QtEndian>

const QByteArray PACKET_KEEPALIVE = QByteArray("\x00ka\x00", 4);
const QByteArray PACKET_MARK = QByteArray("\x00gx", 3);

namespace {

bool isCarriedKey(const QString& key, bool withRouters)
{
    return key == QLatin1String("seq") || key == QLatin1String("cno") ||
           key == QLatin1String("cmd") || (withRouters && key == QLatin1String("routers")) ||
           key.startsWith(QLatin1Char('_'));
}

// The wire is little-endian whatever the host is.
void putU32(char* at, quint32 value)
{
    qToLittleEndian(value, at);
}

quint32 getU32(const char* at)
{
    return qFromLittleEndian<quint32>(at);
}

} // namespace

GX2RpcPacket::GX2RpcPacket(const QJsonObject& object) : QJsonObject(object) {}

GX2RpcPacket& GX2RpcPacket::operator=(const QJsonObject& object)
{
    QJsonObject::operator=(object);
    return *this;
}

GX2Deferred GX2RpcPacket::answerLater()
{
    if (!deferral)
        deferral = std::make_shared<GX2DeferredState>();
    return GX2Deferred(deferral);
}

QByteArray GX2RpcPacket::toDatagram() const
{
    if (isEmpty())
        return PACKET_KEEPALIVE;
    const QByteArray json = QJsonDocument(*this).toJson(QJsonDocument::Compact);
    QByteArray datagram(kHeaderSize, '\0');
    char* header = datagram.data();
    memcpy(header, PACKET_MARK.constData(), 3);
    header[3] = 0x01;
    header[4] = 0x01;
    putU32(header + 5, quint32(json.size()));
    putU32(header + 9, quint32(attachment.size()));
    header[13] = header[14] = header[15] = char(0xFF);
    datagram += json;
    datagram += attachment;
    return datagram;
}

quint64 GX2RpcPacket::announcedSize(const QByteArray& buffer)
{
    if (buffer.size() < kHeaderSize || !buffer.startsWith(PACKET_MARK))
        return 0;
    // Summed wide: announced lengths near 4 GiB must not wrap into a "complete" datagram.
    return quint64(kHeaderSize) + getU32(buffer.constData() + 5) + getU32(buffer.constData() + 9);
}

int GX2RpcPacket::fromDatagram(QByteArray& buffer)
{
    attachment.clear();
    if (buffer.startsWith(PACKET_KEEPALIVE)) {
        buffer.remove(0, PACKET_KEEPALIVE.size());
        QJsonObject::operator=(QJsonObject());
        return KeepAlive;
    }
    if (!buffer.startsWith(PACKET_MARK))
        return buffer.size() < 4 ? Incomplete : NotDatagram;
    if (buffer.size() < kHeaderSize) {
        required = kHeaderSize;
        return Incomplete;
    }
    const quint32 jsonSize = getU32(buffer.constData() + 5);
    const quint32 attachSize = getU32(buffer.constData() + 9);
    const quint64 total = announcedSize(buffer);
    if (quint64(buffer.size()) < total) {
        required = qint32(quint32(total));
        return Incomplete;
    }
    required = 0;
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(
        QByteArray::fromRawData(buffer.constData() + kHeaderSize, int(jsonSize)), &error);
    if (error.error != QJsonParseError::NoError)
        return NotDatagram;
    QJsonObject::operator=(doc.object());
    if (attachSize > 0)
        attachment = buffer.mid(kHeaderSize + int(jsonSize), int(attachSize));
    buffer.remove(0, int(total));
    return Taken;
}

void GX2RpcPacket::shrink()
{
    for (const QString& key : keys()) {
        if (!isCarriedKey(key, false))
            remove(key);
    }
}

void GX2RpcPacket::shrink(const QJsonObject& from)
{
    QJsonObject kept;
    copyResponsed(kept, from);
    QJsonObject::operator=(kept);
}

QByteArray GX2RpcPacket::keepAlive()
{
    return PACKET_KEEPALIVE;
}

GX2RpcPacket GX2RpcPacket::make(const QString& cmd, int err, const QJsonObject& params)
{
    GX2RpcPacket packet;
    packet.insert(QStringLiteral("cmd"), cmd);
    packet.insert(QStringLiteral("err"), err);
    if (!params.isEmpty())
        packet.insert(QStringLiteral("params"), params);
    return packet;
}

void GX2RpcPacket::copyResponsed(QJsonObject& to, const QJsonObject& from)
{
    for (auto it = from.constBegin(); it != from.constEnd(); ++it) {
        if (isCarriedKey(it.key(), true))
            to.insert(it.key(), it.value());
    }
}

void GX2RpcPacket::copyResponsed(QJsonObject& to, const QJsonObject& from, int err,
                                 const QString& errmsg)
{
    copyResponsed(to, from);
    to.insert(QStringLiteral("err"), err);
    if (!errmsg.isEmpty())
        to.insert(QStringLiteral("errmsg"), errmsg);
}

GX2RpcPacket GX2RpcPacket::copyResponsed(const QJsonObject& from, int err, const QString& errmsg)
{
    GX2RpcPacket packet;
    copyResponsed(packet, from, err, errmsg);
    return packet;
}

GX2RpcPacket GX2RpcPacket::copyResponsed(const QJsonObject& from)
{
    GX2RpcPacket packet;
    packet.shrink(from);
    return packet;
}

bool GX2RpcPacket::takeRouter(int& fd, int& session, QJsonObject& obj)
{
    QJsonArray hops = obj.value(QStringLiteral("routers")).toArray();
    if (hops.isEmpty())
        return false;
    const QJsonObject hop = hops.takeAt(hops.size() - 1).toObject();
    fd = hop.value(QStringLiteral("fd")).toInt(0);
    session = hop.value(QStringLiteral("session")).toInt(0);
    if (hops.isEmpty())
        obj.remove(QStringLiteral("routers"));
    else
        obj.insert(QStringLiteral("routers"), hops);
    return true;
}

void GX2RpcPacket::setErr(int err)
{
    insert(QStringLiteral("err"), err);
}

void GX2RpcPacket::setResults(const QJsonObject& results)
{
    insert(QStringLiteral("results"), results);
    setErr(0);
}

GX2RpcPacket GX2RpcPacket::ofErr(int err)
{
    GX2RpcPacket packet;
    packet.setErr(err);
    return packet;
}

QJsonValue GX2RpcPacket::param(const QString& key) const
{
    return value(QStringLiteral("params")).toObject().value(key);
}
