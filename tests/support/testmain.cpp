#include "gx2/gx2workers.h"

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

// Every test binary runs with a Qt application (event loops, sockets) and a
// private TMPDIR, so local sockets never meet another process's.
int main(int argc, char** argv)
{
    QTemporaryDir tmp(QDir::tempPath() + QStringLiteral("/nasbrolt-test-XXXXXX"));
    if (tmp.isValid())
        qputenv("TMPDIR", QFile::encodeName(tmp.path()));
    qunsetenv("NASBROLT_ROOT");
    qunsetenv("NASBROLT_TOOLS");
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    const int status = RUN_ALL_TESTS();
    // Threads the tests started are joined, as the daemon's quit joins them.
    GX2Workers::requestStop();
    GX2Workers::joinAll(10000);
    return status;
}
