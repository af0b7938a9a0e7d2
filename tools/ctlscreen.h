#pragma once

#include <QByteArray>
#include <QStringList>

// The terminal of a view that redraws itself (--watch, top): keys without
// echo, the alternate screen, the window size, and the signals that end the
// view. Single-threaded; the signal handlers reach it through static state,
// so one exists at a time.
class CtlScreen
{
public:
    enum class Event { Timeout, Key, Resize, Quit };

    CtlScreen();
    ~CtlScreen();
    Q_DISABLE_COPY(CtlScreen)

    // Frames are drawn when stdout is a terminal, else printed one after another.
    bool interactive() const { return tty; }
    // Catches SIGINT, SIGTERM and SIGHUP; on a terminal also takes it over:
    // no echo or line editing, alternate screen, cursor hidden, SIGWINCH.
    void open();
    // Gives the terminal back as it was; again is harmless.
    void close();

    int columns() const;
    int rows() const;
    // Replaces what the screen shows with lines, cut to the window.
    void draw(const QStringList& lines);
    // Writes bytes to stdout (fd 2 with toStderr); false when they cannot be written.
    bool print(const QByteArray& bytes, bool toStderr = false);
    // Waits at most ms for a key (stored in key), a resize or an ending signal.
    Event wait(int ms, char& key);
    // While set, an ending signal gives the terminal back and exits at once:
    // the exchange with the daemon blocks and would hold the signal up.
    void setBlocking(bool blocking);

private:
    void size(int& columns, int& rows) const;

    bool tty = false;
    bool keys = false; // stdin is a terminal and not at its end
    bool opened = false;
};
