#pragma once

#include <QJsonObject>
#include <QString>

// Client side of the daemon's own socket, for worker threads that need a
// router's service (event log, state changes) without touching the routers.
// Every call opens its own socket and works through blocking waits, so any
// thread can use it without an event loop.

constexpr int kBroltDefaultTimeoutMs = 15000;
constexpr int kBroltNoticeConnectMs = 500;
constexpr int kNaslogTimeoutMs = 3000;

// Sends request (its "params" gain "timeout": the limit in force) and waits up
// to timeout ms (15000 when not above 0) for the answer, which replaces result
// entirely. Returns result["err"] as int: kErrNoAnswer when nothing came, 0
// when the answer has no "err".
// Never call it on the event-loop thread that runs the server: the answer is
// made on that thread, so the call would wait out its limit and give 9998.
int broltRequest(QJsonObject& result, const QJsonObject& request, int timeout);

// Sends request without waiting for an answer. True when the connection was made.
bool broltNotice(const QJsonObject& request);

// Adds one event-log entry through "naslog_append". True when its "err" is 0.
// Level is "Information", "Warning" or "Error". Worker threads only, as above.
bool naslogAdd(const QString& level, const QString& username, const QString& ipaddr,
               const QString& description, const QString& appname, const QString& devicename);

// Appends one stamped line to the debug trace "/tmp/quillo.debug.log".
void addLog(const QString& text);
