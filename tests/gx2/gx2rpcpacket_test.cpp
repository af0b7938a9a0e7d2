#include "gx2/gx2rpcpacket.h"

#include <QJsonArray>

#include <gtest/gtest.h>

namespace {

QByteArray header(quint32 jsonSize, quint32 attachSize)
{
    QByteArray h("\x00gx\x01\x01", 5);
    for (quint32 v : {jsonSize, attachSize})
        for (int i = 0; i < 4; ++i)
            h += char((v >> (8 * i)) & 0xFF);
    h += QByteArray(3, char(0xFF));
    return h;
}

QByteArray datagram(const QByteArray& json, const QByteArray& attachment = {})
{
    return header(quint32(json.size()), quint32(attachment.size())) + json + attachment;
}

} // namespace

TEST(RpcPacketFraming, KeepAliveAndSmallPacketAreByteExact)
{
    EXPECT_EQ(GX2RpcPacket().toDatagram(), QByteArray("\x00ka\x00", 4));
    EXPECT_EQ(GX2RpcPacket::keepAlive(), QByteArray("\x00ka\x00", 4));

    GX2RpcPacket p;
    p.insert(QStringLiteral("cmd"), QStringLiteral("x"));
    const QByteArray expected = QByteArray("\x00gx\x01\x01\x0b\x00\x00\x00\x00\x00\x00\x00", 13) +
                                QByteArray(3, char(0xFF)) + QByteArray("{\"cmd\":\"x\"}");
    EXPECT_EQ(p.toDatagram(), expected);
    EXPECT_EQ(p.toDatagram().size(), 27);
}

TEST(RpcPacketFraming, AttachmentTravelsAfterJson)
{
    GX2RpcPacket p;
    p.insert(QStringLiteral("a"), 1);
    p.attachment = QByteArray("\x00\x01raw", 5);
    QByteArray buffer = p.toDatagram();
    EXPECT_EQ(buffer, datagram("{\"a\":1}", QByteArray("\x00\x01raw", 5)));

    GX2RpcPacket q;
    ASSERT_EQ(q.fromDatagram(buffer), GX2RpcPacket::Taken);
    EXPECT_EQ(q.value(QStringLiteral("a")).toInt(), 1);
    EXPECT_EQ(q.attachment, QByteArray("\x00\x01raw", 5));
    EXPECT_TRUE(buffer.isEmpty());

    // A later packet without attachment does not keep the old one.
    buffer = datagram("{\"b\":2}");
    ASSERT_EQ(q.fromDatagram(buffer), GX2RpcPacket::Taken);
    EXPECT_TRUE(q.attachment.isEmpty());
}

TEST(RpcPacketFraming, ParserResultCodes)
{
    GX2RpcPacket p;
    p.insert(QStringLiteral("stale"), true);

    QByteArray buffer = QByteArray("\x00ka\x00", 4) + "tail";
    EXPECT_EQ(p.fromDatagram(buffer), GX2RpcPacket::KeepAlive);
    EXPECT_TRUE(p.isEmpty());
    EXPECT_EQ(buffer, QByteArray("tail"));

    // Not a mark: fewer than four bytes might still become one.
    QByteArray three("abc");
    EXPECT_EQ(p.fromDatagram(three), GX2RpcPacket::Incomplete);
    EXPECT_EQ(three, QByteArray("abc"));
    QByteArray four("abcd");
    EXPECT_EQ(p.fromDatagram(four), GX2RpcPacket::NotDatagram);
    EXPECT_EQ(four, QByteArray("abcd"));

    // Header announcing 100 bytes of JSON, 50 bytes present.
    QByteArray partial = header(100, 0) + QByteArray(34, 'x');
    ASSERT_EQ(partial.size(), 50);
    EXPECT_EQ(p.fromDatagram(partial), GX2RpcPacket::Incomplete);
    EXPECT_EQ(p.required, 116);
    EXPECT_EQ(partial.size(), 50);

    // Complete length but broken JSON: reported and left in place.
    QByteArray bad = datagram("{\"cmd\":");
    const QByteArray badCopy = bad;
    EXPECT_EQ(p.fromDatagram(bad), GX2RpcPacket::NotDatagram);
    EXPECT_EQ(bad, badCopy);
}

TEST(RpcPacketFraming, PartialHeaderAndHugeLengthsNeverReadPastTheBuffer)
{
    GX2RpcPacket p;
    QByteArray shortHeader = QByteArray("\x00gx\x01\x01\x05", 6);
    EXPECT_EQ(p.fromDatagram(shortHeader), GX2RpcPacket::Incomplete);
    EXPECT_EQ(shortHeader.size(), 6);

    // Lengths that would wrap a 32-bit sum must still wait for more bytes.
    QByteArray huge = header(0xFFFFFFF0u, 0x20u) + "{}";
    EXPECT_EQ(p.fromDatagram(huge), GX2RpcPacket::Incomplete);
    EXPECT_EQ(huge.size(), 18);
}

TEST(RpcPacketFraming, BackToBackAndSplitDatagrams)
{
    const QByteArray first = datagram("{\"seq\":1}");
    const QByteArray second = datagram("{\"seq\":2}");
    QByteArray buffer = first + second;
    GX2RpcPacket p;
    ASSERT_EQ(p.fromDatagram(buffer), GX2RpcPacket::Taken);
    EXPECT_EQ(p.value(QStringLiteral("seq")).toInt(), 1);
    EXPECT_EQ(buffer, second);
    ASSERT_EQ(p.fromDatagram(buffer), GX2RpcPacket::Taken);
    EXPECT_EQ(p.value(QStringLiteral("seq")).toInt(), 2);
    EXPECT_TRUE(buffer.isEmpty());

    // Fed one byte at a time, the datagram is taken exactly once, at the end.
    QByteArray stream;
    int taken = 0;
    for (char c : first) {
        stream += c;
        const int r = p.fromDatagram(stream);
        ASSERT_TRUE(r == GX2RpcPacket::Taken || r == GX2RpcPacket::Incomplete) << r;
        taken += r == GX2RpcPacket::Taken;
    }
    EXPECT_EQ(taken, 1);
    EXPECT_TRUE(stream.isEmpty());
}

TEST(RpcPacketFraming, ArrayJsonGivesEmptyObject)
{
    QByteArray buffer = datagram("[1,2,3]");
    GX2RpcPacket p;
    p.insert(QStringLiteral("old"), 1);
    EXPECT_EQ(p.fromDatagram(buffer), GX2RpcPacket::Taken);
    EXPECT_TRUE(p.isEmpty());
    EXPECT_TRUE(buffer.isEmpty());
}

TEST(RpcPacketFraming, UnicodeRoundTrip)
{
    GX2RpcPacket p;
    p.insert(QStringLiteral("errmsg"), QStringLiteral("参数错误 Grüße"));
    QByteArray buffer = p.toDatagram();
    GX2RpcPacket q;
    ASSERT_EQ(q.fromDatagram(buffer), GX2RpcPacket::Taken);
    EXPECT_EQ(q, p);
}

TEST(RpcPacketResponses, CopyAndShrinkKeepOnlyContextKeys)
{
    const QJsonObject request{{"cmd", "x"},
                              {"seq", 7},
                              {"cno", 3},
                              {"_ctx", "keep"},
                              {"params", QJsonObject{{"a", 1}}},
                              {"routers", QJsonArray{QJsonObject{{"fd", 1}}}},
                              {"Seq", 9}};

    const GX2RpcPacket withErr = GX2RpcPacket::copyResponsed(request, 9995, QStringLiteral("bad"));
    EXPECT_EQ(withErr, (QJsonObject{{"cmd", "x"},
                                    {"seq", 7},
                                    {"cno", 3},
                                    {"_ctx", "keep"},
                                    {"routers", request.value(QStringLiteral("routers"))},
                                    {"err", 9995},
                                    {"errmsg", "bad"}}));

    const GX2RpcPacket noMsg = GX2RpcPacket::copyResponsed(request, 0, QString());
    EXPECT_EQ(noMsg.value(QStringLiteral("err")).toInt(-1), 0);
    EXPECT_FALSE(noMsg.contains(QStringLiteral("errmsg")));

    const GX2RpcPacket plain = GX2RpcPacket::copyResponsed(request);
    EXPECT_FALSE(plain.contains(QStringLiteral("err")));
    EXPECT_TRUE(plain.contains(QStringLiteral("routers")));

    // The member form drops "routers" too.
    GX2RpcPacket own(request);
    own.shrink();
    EXPECT_EQ(own, (QJsonObject{{"cmd", "x"}, {"seq", 7}, {"cno", 3}, {"_ctx", "keep"}}));

    const GX2RpcPacket made = GX2RpcPacket::make(QStringLiteral("c"), 0, {});
    EXPECT_EQ(made, (QJsonObject{{"cmd", "c"}, {"err", 0}}));
}

TEST(RpcPacketResponses, TakeRouterPopsTheLastHop)
{
    int fd = -1;
    int session = -1;
    QJsonObject one{{"routers", QJsonArray{QJsonObject{{"fd", 3}, {"session", 9}}}}};
    ASSERT_TRUE(GX2RpcPacket::takeRouter(fd, session, one));
    EXPECT_EQ(fd, 3);
    EXPECT_EQ(session, 9);
    EXPECT_FALSE(one.contains(QStringLiteral("routers")));

    QJsonObject two{{"routers", QJsonArray{QJsonObject{{"fd", 1}}, QJsonObject{{"fd", 2}}}}};
    ASSERT_TRUE(GX2RpcPacket::takeRouter(fd, session, two));
    EXPECT_EQ(fd, 2);
    EXPECT_EQ(session, 0);
    EXPECT_EQ(two.value(QStringLiteral("routers")).toArray().size(), 1);

    QJsonObject empty{{"routers", QJsonArray{}}};
    fd = session = 42;
    EXPECT_FALSE(GX2RpcPacket::takeRouter(fd, session, empty));
    EXPECT_EQ(fd, 42);
    EXPECT_TRUE(empty.contains(QStringLiteral("routers")));
}
