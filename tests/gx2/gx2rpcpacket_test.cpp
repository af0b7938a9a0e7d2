#include "gx2/gx2rpcpacket.h"

#include <QJsonArray>

#include <gtest/gtest.h>

namespace {

const QByteArray kKeepAlive("\x00ka\x00", 4);

QByteArray header(quint32 jsonSize, quint32 attachSize)
{
    QByteArray h("\x00gx\x01\x01", 5);
    for (quint32 v : {jsonSize, attachSize})
        for (int i = 0; i < 4; ++i)
            h += char((v >> (8 * i)) & 0xFF);
    return h + QByteArray(3, char(0xFF));
}

QByteArray datagram(const QByteArray& json, const QByteArray& attachment = {})
{
    return header(quint32(json.size()), quint32(attachment.size())) + json + attachment;
}

} // namespace

TEST(RpcPacketFraming, DatagramsAreByteExact)
{
    EXPECT_EQ(GX2RpcPacket().toDatagram(), kKeepAlive);
    EXPECT_EQ(GX2RpcPacket::keepAlive(), kKeepAlive);
    EXPECT_EQ(GX2RpcPacket(QJsonObject{{"cmd", "x"}}).toDatagram(),
              QByteArray("\x00gx\x01\x01\x0b\0\0\0\0\0\0\0\xff\xff\xff{\"cmd\":\"x\"}", 27));

    // The announced JSON length counts UTF-8 bytes; the attachment follows the JSON.
    GX2RpcPacket p(QJsonObject{{"errmsg", QStringLiteral("参数错误 Grüße")}});
    p.attachment = QByteArray("\x00\x01raw", 5);
    EXPECT_EQ(p.toDatagram(), datagram("{\"errmsg\":\"参数错误 Grüße\"}", p.attachment));
}

TEST(RpcPacketFraming, ParserResultCodes)
{
    // Fewer than four bytes might still become a mark; a partial header, and lengths whose
    // sum wraps 32 bits to the buffer's size, wait for more; broken JSON stays in place.
    const std::tuple<QByteArray, int, int> cases[] = {
        {kKeepAlive + "tail", GX2RpcPacket::KeepAlive, 4},
        {"abc", GX2RpcPacket::Incomplete, 0},
        {"abcd", GX2RpcPacket::NotDatagram, 0},
        {QByteArray("\x00gx\x01\x01\x05", 6), GX2RpcPacket::Incomplete, 0},
        {header(0xFFFFFFF0u, 0x12u) + "{}", GX2RpcPacket::Incomplete, 0},
        {datagram("{\"cmd\":"), GX2RpcPacket::NotDatagram, 0},
        {datagram("[1,2,3]"), GX2RpcPacket::Taken, 16 + 7}}; // an array gives an empty object
    for (const auto& [bytes, code, consumed] : cases) {
        GX2RpcPacket p(QJsonObject{{"stale", true}});
        QByteArray buffer = bytes;
        EXPECT_EQ(p.fromDatagram(buffer), code) << bytes.toHex().constData();
        EXPECT_EQ(buffer, bytes.mid(consumed));
        EXPECT_TRUE(code > GX2RpcPacket::KeepAlive || p.isEmpty()); // nothing stale is kept
    }

    // Header announcing 100 bytes of JSON, 50 bytes present.
    QByteArray partial = header(100, 0) + QByteArray(34, 'x');
    GX2RpcPacket p;
    EXPECT_EQ(p.fromDatagram(partial), GX2RpcPacket::Incomplete);
    EXPECT_EQ(p.required, 116);
    EXPECT_EQ(partial.size(), 50);
}

TEST(RpcPacketFraming, BackToBackAndSplitDatagrams)
{
    const QByteArray bytes =
        datagram("{\"seq\":1}", QByteArray("\0att", 4)) + datagram("{\"seq\":2}");
    // Fed whole, in pieces across the boundary or byte by byte: each is taken once, in
    // order, and a packet without attachment does not keep the one before.
    for (const int chunk : {int(bytes.size()), 7, 1}) {
        QByteArray stream;
        QList<QByteArray> taken;
        GX2RpcPacket p;
        for (int at = 0; at < bytes.size(); at += chunk) {
            stream += bytes.mid(at, chunk);
            int r;
            while ((r = p.fromDatagram(stream)) == GX2RpcPacket::Taken)
                taken << QByteArray::number(p.value("seq").toInt()) + p.attachment;
            ASSERT_EQ(r, GX2RpcPacket::Incomplete) << chunk << " " << at;
        }
        EXPECT_EQ(taken, QList<QByteArray>({QByteArray("1\0att", 5), "2"})) << chunk;
        EXPECT_TRUE(stream.isEmpty());
    }
}

TEST(RpcPacketResponses, ContextKeysAndRouterHops)
{
    const QJsonObject context{{"cmd", "x"}, {"seq", 7}, {"cno", 3}, {"_ctx", "keep"}};
    QJsonObject request = context;
    request.insert("params", 1);
    request.insert("Seq", 9);
    request.insert("routers",
                   QJsonArray{QJsonObject{{"fd", 1}, {"session", 9}}, QJsonObject{{"fd", 2}}});

    GX2RpcPacket own(request);
    own.shrink(); // the member form drops "routers" too
    EXPECT_EQ(own, context);
    const GX2RpcPacket response = GX2RpcPacket::copyResponsed(request, 9995, "bad");
    EXPECT_EQ(response.keys(),
              QStringList({"_ctx", "cmd", "cno", "err", "errmsg", "routers", "seq"}));
    EXPECT_EQ(response.value("errmsg"), "bad");

    // takeRouter pops the last hop; the last one takes the key along.
    int fd = -1, session = -1;
    ASSERT_TRUE(GX2RpcPacket::takeRouter(fd, session, request));
    EXPECT_EQ(std::make_pair(fd, session), std::make_pair(2, 0));
    ASSERT_TRUE(GX2RpcPacket::takeRouter(fd, session, request));
    EXPECT_EQ(std::make_pair(fd, session), std::make_pair(1, 9));
    EXPECT_FALSE(GX2RpcPacket::takeRouter(fd, session, request));
    EXPECT_FALSE(request.contains("routers"));
}
