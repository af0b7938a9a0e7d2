#pragma once

#include "gx2/gx2localserver.h"
#include "gx2/gx2rpcpacket.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

// Exit statuses of nasbroltctl; scripts branch on them, so they never change.
enum CtlExit {
    kCtlExitOk = 0,       // answered, "err" 0 or absent
    kCtlExitFailed = 1,   // answered with a non-zero "err"
    kCtlExitUsage = 2,    // bad command line
    kCtlExitNoDaemon = 3, // nothing to connect to
    kCtlExitNoAnswer = 4, // connected, but no answer within the limit
};

constexpr int kCtlDefaultTimeoutMs = 15000;
constexpr double kCtlDefaultIntervalS = 2.0;

// What one nasbroltctl command line asks for.
struct CtlArgs
{
    // Top is the command "top": the dashboard view, not a daemon command;
    // Codes is "codes", the table of result codes, printed without the daemon.
    enum class Action { Call, Help, Version, Top, Codes };

    Action action = Action::Call;
    bool raw = false;
    bool watch = false;                      // --watch: repeat and redraw
    double intervalS = kCtlDefaultIntervalS; // of --watch and top
    int timeoutMs = kCtlDefaultTimeoutMs;
    QString socket = QString::fromLatin1(kBroltSocketName);
    QString command;
    QJsonObject params;
    bool hasParams = false; // params were given, even an empty object

    // {"cmd": command} plus "params" when any were given.
    GX2RpcPacket request() const;
};

// Parses the arguments after the program name. False with a one-line reason
// in message when the command line is unusable.
bool parseCtlArgs(QString& message, const QStringList& arguments, CtlArgs& out);

// The socket path a name stands for: a name not starting with '/' lives in
// the temporary directory, where the daemon's server places it.
QString ctlSocketPath(const QString& name);
