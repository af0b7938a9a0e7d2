#include "tests/gx2/testrouters.h"

#include <gtest/gtest.h>

namespace {

GX2RpcPacket dispatch(GX2TodoRouter& root, const QJsonObject& request, bool handled = true)
{
    GX2RpcPacket response;
    EXPECT_EQ(root.doSlot(response, request), handled);
    return response;
}

QString whoAnswers(GX2TodoRouter& root)
{
    return dispatch(root, QJsonObject{{"cmd", "who"}}).value("router").toString();
}

} // namespace

TEST(TodoRouter, UnknownMissingAndWrongSignatureGiveOnly9972)
{
    GX2TodoRouter root;
    EchoRouter echo;
    root.add(&echo);
    const QJsonObject unknown{{"err", 9972}};

    // notACommand and deleteLater are slots, but without the command signature;
    // the looked-up name is not normalised.
    for (const char* cmd : {"no_such_command", "notACommand", "deleteLater", "echo_seq "})
        EXPECT_EQ(dispatch(root, QJsonObject{{"cmd", cmd}}, false), unknown) << cmd;
    EXPECT_EQ(dispatch(root, QJsonObject{{"params", 1}}, false), unknown);
    EXPECT_EQ(dispatch(root, QJsonObject{{"cmd", 5}}, false), unknown);

    // The slot gets the request; nothing of it is copied back by the dispatcher.
    EXPECT_EQ(dispatch(root, QJsonObject{{"cmd", "echo_seq"}, {"seq", 4}, {"params", 1}}),
              (QJsonObject{{"err", 0}, {"seq", 4}}));
}

TEST(TodoRouter, FirstRegisteredRouterWinsAndDuplicatesAreIgnored)
{
    GX2TodoRouter root;
    EchoRouter echo;
    NamedRouter first("first");
    NamedRouter second("second");
    root.add(&echo);
    root.add(&first);
    root.add(&first);
    root.add(&second);

    EXPECT_EQ(whoAnswers(root), "first");

    // One removal takes the only entry; added again, it comes last.
    root.del(&first);
    EXPECT_EQ(whoAnswers(root), "second");
    root.add(&first);
    EXPECT_EQ(whoAnswers(root), "second");

    // Trees nest, and a router's own slot comes before its children's.
    GX2TodoRouter top;
    top.add(&root);
    second.add(&first);
    EXPECT_EQ(whoAnswers(top), "second");
}
