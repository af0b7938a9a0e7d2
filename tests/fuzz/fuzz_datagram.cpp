// libFuzzer target for the datagram framing: the bytes any local client sends.
//
// Input: two bytes (little-endian) choose a split point, the rest is a receive
// stream. The stream is drained as the server drains a connection, once
// whole and once arriving in two reads cut at the split point; both must give
// the same packets and leave the same bytes.

#include "gx2/gx2rpcpacket.h"

#include <QList>
#include <QtEndian>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

void check(bool ok, const char* what)
{
    if (ok)
        return;
    fprintf(stderr, "datagram invariant broken: %s\n", what);
    abort();
}

quint64 announcedTotal(const QByteArray& buffer)
{
    if (buffer.size() < GX2RpcPacket::kHeaderSize)
        return GX2RpcPacket::kHeaderSize;
    return quint64(GX2RpcPacket::kHeaderSize) + qFromLittleEndian<quint32>(buffer.constData() + 5) +
           qFromLittleEndian<quint32>(buffer.constData() + 9);
}

void checkTaken(const QByteArray& before, const QByteArray& after, const GX2RpcPacket& packet)
{
    check(before.startsWith(PACKET_MARK) && before.size() >= GX2RpcPacket::kHeaderSize,
          "a packet comes from a marked header");
    const quint64 total = announcedTotal(before);
    check(total <= quint64(before.size()) && after == before.mid(int(total)),
          "a packet consumes exactly its datagram");
    const int jsonEnd =
        GX2RpcPacket::kHeaderSize + int(qFromLittleEndian<quint32>(before.constData() + 5));
    check(packet.attachment == before.mid(jsonEnd, int(total) - jsonEnd),
          "attachment follows the JSON");
    check(packet.required == 0, "required is cleared once a datagram is whole");
}

void checkKept(const QByteArray& before, const QByteArray& after, const GX2RpcPacket& packet,
               int result)
{
    check(after == before, "nothing is consumed unless a datagram is taken");
    if (result == GX2RpcPacket::NotDatagram) {
        check(before.size() >= 4, "four bytes are enough to judge the start");
        return;
    }
    if (!before.startsWith(PACKET_MARK)) {
        check(before.size() < 4, "only a short unmarked buffer waits");
        return;
    }
    const quint64 total = announcedTotal(before);
    check(total > quint64(before.size()), "an incomplete datagram is longer than the buffer");
    check(quint32(packet.required) == quint32(total), "required names the whole length");
}

// A packet that went out and came back is the same packet.
void checkRoundTrip(const GX2RpcPacket& packet)
{
    QByteArray datagram = packet.toDatagram();
    if (packet.isEmpty()) {
        check(datagram == PACKET_KEEPALIVE, "an empty packet goes out as a keep-alive");
        return;
    }
    GX2RpcPacket again;
    check(again.fromDatagram(datagram) == GX2RpcPacket::Taken && datagram.isEmpty(),
          "a serialised packet parses whole");
    check(static_cast<const QJsonObject&>(again) == packet && again.attachment == packet.attachment,
          "a serialised packet parses to itself");
}

// Takes datagrams until one is incomplete or bad, as a connection does.
int drain(QByteArray& buffer, QList<GX2RpcPacket>& taken)
{
    GX2RpcPacket packet;
    for (;;) {
        const QByteArray before = buffer;
        const int result = packet.fromDatagram(buffer);
        if (result == GX2RpcPacket::KeepAlive) {
            check(before.startsWith(PACKET_KEEPALIVE) && buffer == before.mid(4) &&
                      packet.isEmpty() && packet.attachment.isEmpty(),
                  "a keep-alive is its four bytes");
        } else if (result == GX2RpcPacket::Taken) {
            checkTaken(before, buffer, packet);
            checkRoundTrip(packet);
        } else {
            check(result == GX2RpcPacket::Incomplete || result == GX2RpcPacket::NotDatagram,
                  "known result");
            checkKept(before, buffer, packet, result);
            return result;
        }
        taken.append(packet);
    }
}

bool samePackets(const QList<GX2RpcPacket>& a, const QList<GX2RpcPacket>& b)
{
    if (a.size() != b.size())
        return false;
    for (int i = 0; i < a.size(); ++i) {
        if (static_cast<const QJsonObject&>(a.at(i)) != b.at(i) ||
            a.at(i).attachment != b.at(i).attachment)
            return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2 || size > 1 << 20)
        return 0;
    const QByteArray stream(reinterpret_cast<const char*>(data) + 2, int(size - 2));
    const int split = int(qFromLittleEndian<quint16>(data) % quint32(stream.size() + 1));

    QByteArray whole = stream;
    QList<GX2RpcPacket> wholeTaken;
    const int wholeStop = drain(whole, wholeTaken);

    QByteArray parts = stream.left(split);
    QList<GX2RpcPacket> partsTaken;
    drain(parts, partsTaken);
    parts += stream.mid(split);
    const int partsStop = drain(parts, partsTaken);

    check(partsStop == wholeStop && parts == whole && samePackets(partsTaken, wholeTaken),
          "a stream split in two reads parses as when whole");
    return 0;
}
