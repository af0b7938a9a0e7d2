// nasbroltadm: calls one storage library function by name and prints what
// it gave back as JSON.

#include "tools/adm/admtable.h"

#include "gx2/gx2logger.h"

#include <QCoreApplication>

#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

void put(FILE* stream, const QByteArray& bytes)
{
    fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    fflush(stream);
}

// Arguments are taken as UTF-8 whatever the locale: JSON is UTF-8.
QStringList utf8Arguments(int argc, char** argv)
{
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments.append(QString::fromUtf8(argv[i]));
    return arguments;
}

// The logger opens /dev/stderr anew for each batch of lines. When stderr is a
// file, that opening has an offset of its own and would overwrite what was
// written through descriptor 2 unless both append.
void appendToStderrFile()
{
    struct stat info = {};
    const int flags = ::fcntl(STDERR_FILENO, F_GETFL);
    if (::fstat(STDERR_FILENO, &info) == 0 && S_ISREG(info.st_mode) && flags >= 0)
        ::fcntl(STDERR_FILENO, F_SETFL, flags | O_APPEND);
}

// The logger appends to a file; opening a pipe or terminal that way makes
// Qt warn once per log line that it cannot seek.
QtMessageHandler qtDefault = nullptr;
void dropSeekWarnings(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (message.startsWith(QLatin1String("QFile::at: Cannot set file position")))
        return;
    if (qtDefault)
        qtDefault(type, context, message);
    else
        fprintf(stderr, "%s\n", qPrintable(message));
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    // A support engineer watches the library's log lines beside the answer,
    // not in the daemon's log file.
    qtDefault = qInstallMessageHandler(dropSeekWarnings);
    appendToStderrFile();
    GX2Logger::i()->setFilePath(QStringLiteral("/dev/stderr"));

    // Until the answer is printed, whatever else would reach stdout (the
    // library, a child that inherits it) goes to stderr instead.
    fflush(stdout);
    const int savedStdout = ::dup(STDOUT_FILENO);
    ::dup2(STDERR_FILENO, STDOUT_FILENO);
    const AdmOutput output = admRun(utf8Arguments(argc, argv), admEntries());
    GX2Logger::i()->flush();
    fflush(stdout);
    if (savedStdout >= 0) {
        ::dup2(savedStdout, STDOUT_FILENO);
        ::close(savedStdout);
    }

    put(stdout, output.out);
    put(stderr, output.err);
    return output.status;
}
