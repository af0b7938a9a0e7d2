#include "app/appdata.h"
#include "app/quitsignals.h"

#include <QCoreApplication>

#include <csignal>

// The daemon takes no options. SIGTERM, SIGINT and SIGHUP end the event loop;
// the socket is then closed and the log written out before the process ends.
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
        if (IAppData()->start()) {
            status = app.exec();
            IAppData()->shutdown(quit.received());
        }
    }
    return status;
}
