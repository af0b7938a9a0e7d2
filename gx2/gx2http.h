#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

// Plain HTTP over libcurl's easy interface, one handle per call, safe on any
// thread. Time limits are in seconds. Results: true when the transfer itself
// succeeded (an HTTP error status still counts as a transfer); on failure the
// output holds whatever arrived.
//
// A body that contains "\r\n\r\n" past its first byte has everything up to and
// including it dropped: a header block that leaked into the body goes.

bool httpGet(QByteArray& body, const QString& url, int timeout);
// Sends request as compact JSON with "Content-Type:application/json"; answer
// is set only when the reply parses as a JSON object.
bool httpPost(QJsonObject& answer, const QString& url, const QJsonObject& request);

bool curlHttpGet(QByteArray& body, const QString& url, int timeout);
bool curlHttpPost(QJsonObject& answer, const QString& url, const QJsonObject& request);
// Fire and forget: the GET runs on a detached thread and its result is dropped.
void curlHttpGet(const QString& url, int timeout);
// Writes the received bytes to path (truncated first); blocks until done.
bool curlHttpDownload(const QString& url, const QString& path);
