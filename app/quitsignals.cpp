#include "app/quitsignals.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {
int pipeFds[2] = {-1, -1};
}

QuitSignals::QuitSignals(std::initializer_list<int> quitOn, QObject* parent) : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pipeFds) != 0)
        return;
    notifier = new QSocketNotifier(pipeFds[1], QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &QuitSignals::onSignal);
    struct sigaction action = {};
    action.sa_handler = &QuitSignals::handler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigset_t blocked;
    sigemptyset(&blocked);
    for (int s : quitOn) {
        ::sigaction(s, &action, nullptr);
        sigaddset(&blocked, s);
    }
    // A starter may hand them over blocked until the handler is in place; one
    // that arrived meanwhile is delivered now and ends the loop once it runs.
    ::pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
}

QuitSignals::~QuitSignals()
{
    delete notifier;
    for (int& fd : pipeFds) {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
    }
}

void QuitSignals::handler(int signal)
{
    const unsigned char byte = static_cast<unsigned char>(signal);
    // Only async-signal-safe work here.
    [[maybe_unused]] const ssize_t n = ::write(pipeFds[0], &byte, 1);
}

void QuitSignals::onSignal()
{
    unsigned char byte = 0;
    if (::read(pipeFds[1], &byte, 1) == 1)
        signalNumber = byte;
    QCoreApplication::quit();
}
