#pragma once

#include <QObject>

#include <initializer_list>

class QSocketNotifier;

// Turns the listed signals into a clean end of the event loop: the handler
// only writes to a pipe, the loop reads it and quits.
class QuitSignals : public QObject
{
    Q_OBJECT

public:
    explicit QuitSignals(std::initializer_list<int> quitOn, QObject* parent = nullptr);
    ~QuitSignals() override;

    // The signal that ended the loop, 0 while none arrived.
    int received() const { return signalNumber; }

private:
    Q_DISABLE_COPY(QuitSignals)

    void onSignal();
    static void handler(int signal);

    QSocketNotifier* notifier = nullptr;
    int signalNumber = 0;
};
