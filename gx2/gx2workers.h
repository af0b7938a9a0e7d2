#pragma once

#include <QString>
#include <QStringList>

#include <functional>

// Every thread the daemon starts besides the event loop goes through here,
// so that a quit can stop them and wait for them before main returns:
// nothing may still run while the process's static objects are destroyed.
namespace GX2Workers {

// Starts work on a new thread the shutdown waits for. False (and nothing
// runs) once the shutdown has begun.
bool start(const QString& name, std::function<void()> work);

// True once the shutdown has begun; long loops look at it between steps.
bool stopping();
// Begins the shutdown: stopping() turns true and every sleepFor returns.
void requestStop();
// Sleeps up to ms; false when the shutdown cut the sleep short.
bool sleepFor(int ms);

// Waits up to limitMs for the started threads to end and joins them. The
// names of those still running, which are left behind.
QStringList joinAll(int limitMs);

// Tests only: forgets a finished shutdown so that the next test can start
// threads again. Nothing may be running.
void resetForTests();

} // namespace GX2Workers
