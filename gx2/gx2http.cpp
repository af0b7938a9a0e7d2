#include "gx2/gx2http.h"

#include "gx2/gx2workers.h"

#include <QFile>
#include <QJsonDocument>

#include <curl/curl.h>

#include <memory>
#include <mutex>
#include <thread>

namespace {

using CurlHandle = std::unique_ptr<CURL, decltype(&curl_easy_cleanup)>;
using CurlHeaders = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;

// curl_global_init is not thread-safe and these calls come from any thread.
CurlHandle newHandle()
{
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_ALL); });
    CurlHandle curl(curl_easy_init(), &curl_easy_cleanup);
    // Worker threads: libcurl must not use signals for its time limits.
    if (curl)
        curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
    return curl;
}

size_t appendBlock(char* data, size_t size, size_t count, void* user)
{
    static_cast<QByteArray*>(user)->append(data, int(size * count));
    return size * count;
}

size_t writeBlock(char* data, size_t size, size_t count, void* user)
{
    // A short count makes libcurl fail the transfer, as a full disk should.
    const qint64 written = static_cast<QFile*>(user)->write(data, qint64(size * count));
    return written < 0 ? 0 : size_t(written);
}

void dropHeaderBlock(QByteArray& body)
{
    const QByteArray separator = QByteArrayLiteral("\r\n\r\n");
    const int at = body.indexOf(separator);
    if (at > 0)
        body.remove(0, at + separator.size());
}

void setTarget(CURL* curl, const QByteArray& url, curl_write_callback write, void* sink)
{
    curl_easy_setopt(curl, CURLOPT_URL, url.constData());
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, write);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, sink);
}

} // namespace

bool httpGet(QByteArray& body, const QString& url, int timeout)
{
    return curlHttpGet(body, url, timeout);
}

bool httpPost(QJsonObject& answer, const QString& url, const QJsonObject& request)
{
    return curlHttpPost(answer, url, request);
}

bool curlHttpGet(QByteArray& body, const QString& url, int timeout)
{
    CurlHandle curl = newHandle();
    if (!curl)
        return false;
    const QByteArray target = url.toUtf8();
    setTarget(curl.get(), target, &appendBlock, &body);
    curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT, long(timeout));
    curl_easy_setopt(curl.get(), CURLOPT_POST, 0L);
    const CURLcode code = curl_easy_perform(curl.get());
    dropHeaderBlock(body);
    return code == CURLE_OK;
}

bool curlHttpPost(QJsonObject& answer, const QString& url, const QJsonObject& request)
{
    CurlHandle curl = newHandle();
    if (!curl)
        return false;
    CurlHeaders headers(curl_slist_append(nullptr, "Content-Type:application/json"),
                        &curl_slist_free_all);
    const QByteArray target = url.toUtf8();
    const QByteArray json = QJsonDocument(request).toJson(QJsonDocument::Compact);
    QByteArray buffer;
    setTarget(curl.get(), target, &appendBlock, &buffer);
    curl_easy_setopt(curl.get(), CURLOPT_POST, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, json.constData());
    curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDSIZE, long(json.size()));
    curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers.get());
    const CURLcode code = curl_easy_perform(curl.get());
    dropHeaderBlock(buffer);
    const QJsonDocument reply = QJsonDocument::fromJson(buffer);
    if (reply.isObject())
        answer = reply.object();
    return code == CURLE_OK;
}

void curlHttpGet(const QString& url, int timeout)
{
    GX2Workers::start(QStringLiteral("http get"), [url, timeout] {
        QByteArray ignored;
        curlHttpGet(ignored, url, timeout);
    });
}

bool curlHttpDownload(const QString& url, const QString& path)
{
    QFile file(path);
    CurlHandle curl = newHandle();
    if (!curl || !file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    const QByteArray target = url.toUtf8();
    setTarget(curl.get(), target, &writeBlock, &file);
    const CURLcode code = curl_easy_perform(curl.get());
    file.close();
    return code == CURLE_OK;
}
