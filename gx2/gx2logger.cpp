#include "gx2/gx2logger.h"

#include "gx2/gx2lfqueue.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRunnable>
#include <QThreadPool>

#include <atomic>
#include <ctime>
#include <mutex>
#include <sstream>
#include <thread>

namespace {

QString levelTag(int level)
{
    switch (level) {
    case 1:
        return QStringLiteral("[INFO]");
    case 2:
        return QStringLiteral("[WARN]");
    case 3:
        return QStringLiteral("[ERROR]");
    case 4:
        return QStringLiteral("[TRACE]");
    case 5:
        return QStringLiteral("[FATAL]");
    case 11:
        return QStringLiteral("[MEM-TRACE]");
    case 13:
        return QStringLiteral("[DB]");
    default:
        return QStringLiteral("[DEBUG]");
    }
}

// Whole seconds: neither the line stamp nor the file names carry finer time.
struct Now
{
    time_t seconds;
    struct tm local;
};

Now now()
{
    Now n{time(nullptr), {}};
    localtime_r(&n.seconds, &n.local);
    return n;
}

// Moves an oversized log aside as <dir>/<base>.<hhmmss>.<suffix>. A second
// roll within the same second finds that name taken; the rename then fails
// and writing goes on into the big file, which is preferred to losing lines.
void rollIfLarge(const QString& path, qint64 limit)
{
    const QFileInfo info(path);
    if (limit <= 0 || !info.exists() || info.size() <= limit)
        return;
    const struct tm t = now().local;
    const QString aside = info.absolutePath() + QLatin1Char('/') + info.completeBaseName() +
                          QString::asprintf(".%02d%02d%02d.", t.tm_hour, t.tm_min, t.tm_sec) +
                          info.suffix();
    QFile::rename(path, aside);
}

bool ensureDir(const QString& dir)
{
    if (QFileInfo(dir).isDir())
        return true;
    QDir().mkpath(dir);
    return QFileInfo(dir).isDir();
}

} // namespace

// The writer. Not auto-deleted: the pool runs the same object again and again.
class GX2LoggerPrivate : public QRunnable
{
public:
    GX2LoggerPrivate()
    {
        setAutoDelete(false);
        pool.setMaxThreadCount(1);
    }
    ~GX2LoggerPrivate() override { pool.waitForDone(); }

    void run() override
    {
        std::unique_lock<std::mutex> guard(lock, std::try_to_lock);
        if (guard.owns_lock())
            drain();
    }

    void post(const QString& line);
    void drain();
    QString path() const
    {
        std::lock_guard<std::mutex> guard(pathLock);
        return filePath;
    }

    std::atomic<int> startLevel{0};
    std::atomic<bool> threadMode{false};
    std::atomic<qint64> maxSize{0};
    mutable std::mutex pathLock; // guards filePath only, never held over file I/O
    QString filePath;
    GX2LFQueue<QString> queue;
    std::atomic<int> pending{0};
    std::mutex lock; // the writer's; only ever tried, except by flush()
    QThreadPool pool;
};

void GX2LoggerPrivate::post(const QString& line)
{
    queue.enqueue(line);
    pending.fetch_add(1);
    if (!threadMode.load()) {
        run();
        return;
    }
    // A busy writer picks the line up itself; no need to queue another run.
    if (lock.try_lock()) {
        lock.unlock();
        pool.start(this);
    }
}

// Lock held. Lines stay queued whenever the directory or file cannot be used.
void GX2LoggerPrivate::drain()
{
    const QString file = path();
    if (pending.load() < 1 || file.isEmpty())
        return;
    if (!ensureDir(QFileInfo(file).absolutePath()))
        return;
    rollIfLarge(file, maxSize.load());
    QFile out(file);
    if (!out.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text))
        return;
    QString line;
    while (queue.dequeue(line)) {
        pending.fetch_sub(1);
        out.write(line.trimmed().toUtf8().append('\n'));
        out.flush();
    }
    out.close();
}

GX2Logger::GX2Logger() : d(new GX2LoggerPrivate) {}

GX2Logger::~GX2Logger()
{
    d->pool.waitForDone();
    flush();
    delete d;
}

GX2Logger* GX2Logger::i()
{
    static GX2Logger* const instance = new GX2Logger;
    return instance;
}

QString GX2Logger::write(const QString& text, int level, const QString& source,
                         const QString& function, int line)
{
    if (level < d->startLevel.load())
        return text;
    QString entry = yyyymmddhhmmsszzz() + QLatin1Char('\t') + levelTag(level);
    if (!function.isEmpty())
        entry += QLatin1Char('\t') + function;
    if (line > 0)
        entry += QLatin1Char('#') + QString::number(line);
    if (!source.isEmpty())
        entry += QLatin1Char('\t') + source;
    entry += QLatin1Char('\t') + text;
    d->post(entry.trimmed());
    return text;
}

QString GX2Logger::write(const char* text, int level, const QString& source,
                         const QString& function, int line)
{
    return write(QString::fromUtf8(text), level, source, function, line);
}

QString GX2Logger::write(const QByteArray& text, int level, const QString& source,
                         const QString& function, int line)
{
    return write(QString::fromUtf8(text), level, source, function, line);
}

QString GX2Logger::write(const QJsonValue& value, int level, const QString& source,
                         const QString& function, int line)
{
    QByteArray json;
    if (value.isObject())
        json = QJsonDocument(value.toObject()).toJson(QJsonDocument::Indented);
    else if (value.isArray())
        json = QJsonDocument(value.toArray()).toJson(QJsonDocument::Indented);
    return write(QString::fromUtf8(json), level, source, function, line);
}

bool GX2Logger::flush()
{
    std::lock_guard<std::mutex> guard(d->lock);
    d->drain();
    return d->queue.isEmpty();
}

QString GX2Logger::filePath() const
{
    return d->path();
}

void GX2Logger::setFilePath(const QString& path)
{
    std::lock_guard<std::mutex> guard(d->pathLock);
    d->filePath = path;
}

qint64 GX2Logger::maxSize() const
{
    return d->maxSize.load();
}

void GX2Logger::setMaxSize(qint64 size)
{
    d->maxSize.store(size);
}

bool GX2Logger::threadMode() const
{
    return d->threadMode.load();
}

void GX2Logger::setThreadMode(bool on)
{
    d->threadMode.store(on);
}

int GX2Logger::startLevel() const
{
    return d->startLevel.load();
}

void GX2Logger::setStartLevel(int level)
{
    d->startLevel.store(level);
}

void GX2Logger::consult(const QString& path)
{
    const QFileInfo info(path);
    setFilePath(info.absolutePath() + QLatin1Char('/') + info.completeBaseName() +
                QStringLiteral(".log"));
}

void GX2Logger::consultWidthStartupStamp(const QString& path)
{
    const QFileInfo info(path);
    setFilePath(info.absolutePath() + QLatin1Char('/') + info.completeBaseName() + fileStamp());
}

QString GX2Logger::fileStamp() const
{
    const struct tm t = now().local;
    return QString::asprintf("_%02d%02d%02d%02d%02d%02d.log", t.tm_year + 1900 - 2000, t.tm_mon + 1,
                             t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec);
}

QString GX2Logger::yyyymmddhhmmsszzz() const
{
    const Now n = now();
    const struct tm& t = n.local;
    return QString::asprintf("%04d-%02d-%02d %02d:%02d:%02d.%03d", t.tm_year + 1900, t.tm_mon + 1,
                             t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec,
                             static_cast<int>(n.seconds % 1000));
}

QString GX2Logger::tid()
{
    std::ostringstream out;
    out << std::this_thread::get_id();
    return QString::fromStdString(out.str());
}
