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
        QCoreApplication app(argc, argv);
        QuitSignals quit({SIGTERM, SIGINT, SIGHUP});
        AppData::create();
        if (IAppData()->start()) {
            status = app.exec();
            IAppData()->shutdown(quit.received());
        }
    }
    return status;
}
