#include "app/appdata.h"
#include "app/quitsignals.h"

#include <QCoreApplication>

#include <csignal>
#include <unistd.h>

// The daemon takes no options. SIGTERM, SIGINT and SIGHUP end the event loop;
// then every thread the daemon started is stopped and waited for, the socket
// is closed and the log written out before the process ends.
int main(int argc, char** argv)
{
    int status = -1;
    {
        // Qt's own dispatcher rather than GLib's: every notifier change on
        // GLib's wakes the loop through an eventfd, which halves the request
        // rate with many connections. Children must not inherit the choice.
        qputenv("QT_NO_GLIB", "1");
        QCoreApplication app(argc, argv);
        qunsetenv("QT_NO_GLIB");
        QuitSignals quit({SIGTERM, SIGINT, SIGHUP});
        AppData::create();
        bool allEnded = false;
        if (IAppData()->start()) {
            status = app.exec();
            allEnded = IAppData()->shutdown(quit.received());
        } else {
            allEnded = IAppData()->stopThreads();
        }
        // A thread stuck in a tool would run on into static destruction.
        if (!allEnded)
            ::_exit(status);
    }
    return status;
}
