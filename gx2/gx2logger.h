#pragma once

#include <QByteArray>
#include <QJsonValue>
#include <QString>
#include <QtGlobal>

class GX2LoggerPrivate;

// Timestamped, tagged lines into one log file. A line is formatted on the
// caller's thread and queued without a lock; one writer at a time drains the
// queue into the file, on the caller's thread or, in thread mode, on a
// one-thread pool. Callers never wait for file I/O.
//
// Levels: 1 INFO, 2 WARN, 3 ERROR, 4 TRACE, 5 FATAL, 11 MEM-TRACE, 13 DB,
// anything else DEBUG.
class GX2Logger
{
public:
    GX2Logger();
    ~GX2Logger();

    // The process-wide logger. Never deleted, so detached threads can still
    // log while the process exits.
    static GX2Logger* i();

    // Each returns the text it was given.
    QString write(const QString& text, int level = 0, const QString& source = QString(),
                  const QString& function = QString(), int line = -1);
    QString write(const char* text, int level = 0, const QString& source = QString(),
                  const QString& function = QString(), int line = -1);
    QString write(const QByteArray& text, int level = 0, const QString& source = QString(),
                  const QString& function = QString(), int line = -1);
    // Objects and arrays as indented JSON; any other value as empty text.
    QString write(const QJsonValue& value, int level = 0, const QString& source = QString(),
                  const QString& function = QString(), int line = -1);

    // Runs the writer now, waiting for a writer that is busy instead of
    // leaving the lines to it. True when nothing is left queued.
    bool flush();

    QString filePath() const;
    void setFilePath(const QString& path);
    qint64 maxSize() const;
    void setMaxSize(qint64 size);
    bool threadMode() const;
    void setThreadMode(bool on);
    int startLevel() const;
    void setStartLevel(int level);

    // <dir of path>/<complete base name>.log
    void consult(const QString& path);
    // <dir of path>/<complete base name>_yyMMddhhmmss.log
    void consultWidthStartupStamp(const QString& path);

    QString fileStamp() const;
    // "yyyy-MM-dd hh:mm:ss.zzz" where zzz is epoch seconds modulo 1000, not
    // milliseconds: existing log readers sort on it as it is.
    QString yyyymmddhhmmsszzz() const;
    static QString tid();

private:
    Q_DISABLE_COPY(GX2Logger)

    GX2LoggerPrivate* d;
};

#define GX2LOG_AT(level, text)                                                                     \
    GX2Logger::i()->write((text), (level), QString(), QString::fromLatin1(__func__), __LINE__)
#define GX2LOG_DEBUG(text) GX2LOG_AT(0, text)
#define GX2LOG_INFO(text) GX2LOG_AT(1, text)
#define GX2LOG_WARN(text) GX2LOG_AT(2, text)
#define GX2LOG_ERROR(text) GX2LOG_AT(3, text)
