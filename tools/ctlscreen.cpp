#include "tools/ctlscreen.h"

#include "tools/ctltop.h"

#include <QDeadlineTimer>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace {

// Alternate screen and hidden cursor, and back.
const char kTake[] = "\033[?1049h\033[?25l";
const char kGiveBack[] = "\033[?25h\033[?1049l";

const int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP};
struct sigaction previous[std::size(kEndingSignals)];

// Shared with the signal handler, hence plain and static.
int wakePipe[2] = {-1, -1};
volatile sig_atomic_t blockingCall = 0;
volatile sig_atomic_t terminalTaken = 0;
volatile sig_atomic_t termiosSaved = 0;
volatile sig_atomic_t quitSignalled = 0;
termios savedTermios;

bool writeAll(int fd, const char* data, size_t size)
{
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        data += n;
        size -= size_t(n);
    }
    return true;
}

// Async-signal-safe: write and tcsetattr only.
void giveTerminalBack()
{
    if (!terminalTaken)
        return;
    terminalTaken = 0;
    writeAll(STDOUT_FILENO, kGiveBack, sizeof kGiveBack - 1);
    if (termiosSaved)
        tcsetattr(STDIN_FILENO, TCSANOW, &savedTermios);
}

void onSignal(int signal)
{
    const int savedErrno = errno;
    if (signal != SIGWINCH)
        quitSignalled = 1;
    if (signal != SIGWINCH && blockingCall) {
        giveTerminalBack();
        _exit(0);
    }
    // The wait reads it: 'w' a new window size, 'q' the end.
    const char note = signal == SIGWINCH ? 'w' : 'q';
    const ssize_t ignored = ::write(wakePipe[1], &note, 1);
    (void)ignored;
    errno = savedErrno;
}

void catchSignal(int signal, void (*handler)(int), struct sigaction* old = nullptr)
{
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, old);
}

void takeTerminal()
{
    if (isatty(STDIN_FILENO) && tcgetattr(STDIN_FILENO, &savedTermios) == 0) {
        termios raw = savedTermios;
        // Keys arrive one by one and unechoed; Ctrl-C still signals, so it
        // ends the view even during an exchange. Ctrl-Z and Ctrl-\ would
        // leave the terminal taken, so they are plain keys here.
        raw.c_lflag &= tcflag_t(~(ICANON | ECHO | IEXTEN));
        raw.c_iflag &= tcflag_t(~(IXON | ICRNL));
        raw.c_cc[VMIN] = 1;
        raw.c_cc[VTIME] = 0;
        raw.c_cc[VSUSP] = _POSIX_VDISABLE;
        raw.c_cc[VQUIT] = _POSIX_VDISABLE;
        termiosSaved = 1;
        tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    }
    terminalTaken = 1;
    writeAll(STDOUT_FILENO, kTake, sizeof kTake - 1);
}

} // namespace

CtlScreen::CtlScreen() : tty(isatty(STDOUT_FILENO) != 0) {}

CtlScreen::~CtlScreen()
{
    close();
}

void CtlScreen::open()
{
    if (opened)
        return;
    opened = true;
    if (pipe2(wakePipe, O_CLOEXEC | O_NONBLOCK) != 0)
        wakePipe[0] = wakePipe[1] = -1;
    for (size_t i = 0; i < std::size(kEndingSignals); ++i) {
        catchSignal(kEndingSignals[i], onSignal, &previous[i]);
        // A signal ignored from the start (a background job of a script) stays so.
        if (previous[i].sa_handler == SIG_IGN)
            sigaction(kEndingSignals[i], &previous[i], nullptr);
    }
    if (!tty)
        return;
    catchSignal(SIGWINCH, onSignal);
    keys = isatty(STDIN_FILENO) != 0;
    takeTerminal();
}

void CtlScreen::close()
{
    if (!opened)
        return;
    opened = false;
    blockingCall = 0;
    giveTerminalBack();
    // After a quit signal the same signal may come again (timeout(1) sends
    // it to the process and then to its group): ending by it now would turn
    // a clean exit into death by signal.
    for (size_t i = 0; i < std::size(kEndingSignals); ++i) {
        if (quitSignalled)
            catchSignal(kEndingSignals[i], SIG_IGN);
        else
            sigaction(kEndingSignals[i], &previous[i], nullptr);
    }
    if (tty)
        catchSignal(SIGWINCH, SIG_DFL);
    for (int& fd : wakePipe) {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
    }
}

void CtlScreen::size(int& columns, int& rows) const
{
    winsize ws{};
    const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &ws) == 0 && ws.ws_col > 0 && ws.ws_row > 0;
    columns = known ? ws.ws_col : 80;
    rows = known ? ws.ws_row : 24;
}

int CtlScreen::columns() const
{
    int c = 0;
    int r = 0;
    size(c, r);
    return c;
}

int CtlScreen::rows() const
{
    int c = 0;
    int r = 0;
    size(c, r);
    return r;
}

void CtlScreen::draw(const QStringList& lines)
{
    int width = 0;
    int height = 0;
    size(width, height);
    QByteArray frame = QByteArrayLiteral("\033[H");
    const int count = qMin(int(lines.size()), height);
    for (int i = 0; i < count; ++i) {
        const QString line = ctlFitLine(lines.at(i), width);
        frame += line.toUtf8();
        // A full line leaves the cursor waiting to wrap, where erasing to
        // the end of the line would take its last character.
        if (ctlTextWidth(line) < width)
            frame += "\033[K";
        if (i + 1 < count)
            frame += '\n';
    }
    if (count < height)
        frame += count > 0 ? "\n\033[J" : "\033[J";
    print(frame);
}

bool CtlScreen::print(const QByteArray& bytes, bool toStderr)
{
    return writeAll(toStderr ? STDERR_FILENO : STDOUT_FILENO, bytes.constData(),
                    size_t(bytes.size()));
}

CtlScreen::Event CtlScreen::wait(int ms, char& key)
{
    const QDeadlineTimer deadline(qMax(0, ms));
    for (;;) {
        pollfd fds[2] = {{wakePipe[0], POLLIN, 0}, {keys ? STDIN_FILENO : -1, POLLIN, 0}};
        const int n = poll(fds, 2, int(qMax<qint64>(0, deadline.remainingTime())));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return Event::Timeout;
        if (fds[0].revents != 0) {
            char notes[32];
            const ssize_t got = ::read(wakePipe[0], notes, sizeof notes);
            if (got > 0 && std::memchr(notes, 'q', size_t(got)) != nullptr)
                return Event::Quit;
            return Event::Resize;
        }
        const ssize_t got = ::read(STDIN_FILENO, &key, 1);
        if (got == 1)
            return Event::Key;
        if (got == 0 || (errno != EINTR && errno != EAGAIN))
            keys = false; // the terminal went away: wait on the clock only
    }
}

void CtlScreen::setBlocking(bool blocking)
{
    blockingCall = blocking ? 1 : 0;
}
