#include "tests/gx2/testrouters.h"

#include <gtest/gtest.h>

namespace {

GX2RpcPacket command(const char* name)
{
    GX2RpcPacket p;
    p.insert(QStringLiteral("cmd"), QString::fromUtf8(name));
    return p;
}

GX2RpcPacket dispatch(GX2TodoRouter& root, const GX2RpcPacket& request)
{
    GX2RpcPacket response;
    root.doSlot(response, request);
    return response;
}

} // namespace

TEST(TodoRouter, UnknownMissingAndWrongSignatureGiveOnly9972)
{
    GX2TodoRouter root;
    EchoRouter echo;
    root.add(&echo);

    const QJsonObject unknown{{"err", 9972}};
    EXPECT_EQ(dispatch(root, command("no_such_command")), unknown);
    EXPECT_EQ(dispatch(root, GX2RpcPacket(QJsonObject{{"params", QJsonObject()}})), unknown);
    EXPECT_EQ(dispatch(root, GX2RpcPacket(QJsonObject{{"cmd", 5}})), unknown);
    // Slots exist under these names, but not with the command signature.
    EXPECT_EQ(dispatch(root, command("notACommand")), unknown);
    EXPECT_EQ(dispatch(root, command("deleteLater")), unknown);
    // No normalisation of the looked-up name.
    EXPECT_EQ(dispatch(root, command("echo_params ")), unknown);
}

TEST(TodoRouter, SlotGetsTheRequestAndWritesOnlyItsOwnAnswer)
{
    GX2TodoRouter root;
    EchoRouter echo;
    root.add(&echo);

    GX2RpcPacket request = command("echo_params");
    request.insert(QStringLiteral("seq"), 4);
    request.insert(QStringLiteral("params"), QJsonObject{{"x", "y"}});
    GX2RpcPacket response;
    EXPECT_TRUE(root.doSlot(response, request));
    // Nothing of the request is copied back by the dispatcher.
    EXPECT_EQ(response, (QJsonObject{{"err", 0}, {"results", QJsonObject{{"x", "y"}}}}));
}

TEST(TodoRouter, FirstRegisteredRouterWinsAndLaterRoutersSeePriorMisses)
{
    GX2TodoRouter root;
    NamedRouter first(QStringLiteral("first"));
    NamedRouter second(QStringLiteral("second"));
    EchoRouter echo;
    root.add(&echo);
    root.add(&first);
    root.add(&second);

    EXPECT_EQ(dispatch(root, command("who")).value(QStringLiteral("router")).toString(),
              QStringLiteral("first"));
    // The echo router missed first and left 9972 behind; the slot saw it.
    EXPECT_EQ(dispatch(root, command("who")).value(QStringLiteral("seen_err")).toInt(), 9972);

    root.del(&first);
    EXPECT_EQ(dispatch(root, command("who")).value(QStringLiteral("router")).toString(),
              QStringLiteral("second"));
    root.del(&first); // unknown now: no effect
    root.add(&first);
    EXPECT_EQ(dispatch(root, command("who")).value(QStringLiteral("router")).toString(),
              QStringLiteral("second"));
}

TEST(TodoRouter, DuplicateAddKeepsOneEntryAndTreesNest)
{
    GX2TodoRouter root;
    GX2TodoRouter middle;
    CountingRouter leaf;
    root.add(&middle);
    root.add(&middle);
    middle.add(&leaf);
    middle.add(&leaf);

    dispatch(root, command("missing"));
    dispatch(root, command("count"));
    // One visit per router for a miss, and the slot ran once.
    EXPECT_EQ(leaf.calls, 1);
    EXPECT_EQ(dispatch(root, command("count")).value(QStringLiteral("calls")).toInt(), 2);

    // A router's own slot is found before its children's.
    NamedRouter rootWithSlot(QStringLiteral("root"));
    NamedRouter child(QStringLiteral("child"));
    rootWithSlot.add(&child);
    EXPECT_EQ(dispatch(rootWithSlot, command("who")).value(QStringLiteral("router")).toString(),
              QStringLiteral("root"));
}
