#pragma once

#include "lnx2/lnx2process.h"
#include "tests/support/processes.h"

#include <QByteArray>
#include <QJsonObject>
#include <QLocalSocket>
#include <QTemporaryDir>

#include <gtest/gtest.h>

// The real nasbrolt binary in a temporary root: root/ (NASBROLT_ROOT), tmp/
// (TMPDIR, the socket) and tools/ (NASBROLT_TOOLS). The daemon is a child of
// the test and is ended and reaped on every way out of it.
class DaemonTest : public ::testing::Test
{
protected:
    void SetUp() override;

    QString path(const QString& relative) const { return base.filePath(relative); }
    QString socketPath() const;
    QByteArray file(const QString& relative) const { return readFile(path(relative)); }
    void write(const QString& relative, const QByteArray& content) const;
    // An executable script in tools/ that replaces the program of that name.
    void tool(const QString& name, const QByteArray& script) const;

    void startDaemon();
    // SIGTERM; expects the daemon to end by itself with exit status 0.
    void stopDaemon(int limitMs = 20000);

    LNX2ProcResult ctl(const QStringList& args) const;
    // nasbroltctl as another account: uid and gid, supplementary groups, and
    // capabilities kept across the change ("+dac_override").
    LNX2ProcResult ctlAs(int uid, const QString& groups, const QString& caps,
                         const QStringList& args) const;

    QTemporaryDir base;
    StartedProcess daemon;
};

// A raw connection to the daemon's socket, read without an event loop.
class RawClient
{
public:
    explicit RawClient(const QString& socketPath);
    bool connected() const { return socket.state() == QLocalSocket::ConnectedState; }
    void send(const QByteArray& bytes);
    void send(const QJsonObject& request);
    // The next answer within limitMs; empty when none came.
    QJsonObject answer(int limitMs);
    // Whether the daemon closed the connection within limitMs.
    bool closedWithin(int limitMs);

private:
    QLocalSocket socket;
    QByteArray buffer;
};
