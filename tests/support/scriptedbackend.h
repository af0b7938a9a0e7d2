#pragma once

#include "lnx2/lnx2process.h"

#include <QList>

#include <functional>
#include <list>
#include <memory>
#include <mutex>

// A process backend that runs nothing. It records every call and answers from
// the expectations a test declared; an unexpected call fails the test unless
// a default answer was allowed. Constructing it installs it, destroying it
// restores the previous backend and fails the test for expectations left
// unmet.
class ScriptedBackend : public LNX2ProcBackend
{
public:
    class Expectation
    {
    public:
        Expectation& exits(int code);
        Expectation& prints(const QByteArray& out);
        Expectation& printsFile(const QString& fixture); // relative to tests/fixtures
        Expectation& errs(const QByteArray& err);
        Expectation& failsToStart();
        Expectation& timesOut();
        Expectation& crashes();
        Expectation& repeatedly(); // may match any number of times, also none

    private:
        friend class ScriptedBackend;
        std::function<bool(const LNX2ProcRequest&)> match;
        QString description;
        LNX2ProcResult answer;
        bool repeat = false;
        int used = 0;
    };

    ScriptedBackend();
    ~ScriptedBackend() override;
    ScriptedBackend(const ScriptedBackend&) = delete;
    ScriptedBackend& operator=(const ScriptedBackend&) = delete;

    // Exact program and arguments.
    Expectation& expect(const QString& program, const QStringList& arguments = {});
    // A command line, split as the process module splits it.
    Expectation& expectLine(const QString& commandLine);
    Expectation& expectIf(const QString& description,
                          std::function<bool(const LNX2ProcRequest&)> predicate);
    // Unexpected calls get this answer (success, no output, when none is
    // given) instead of failing the test.
    void allowOthers();
    void allowOthers(const LNX2ProcResult& answer);

    QList<LNX2ProcRequest> calls() const;
    // Each call as "program arg1 arg2 ...", for readable assertions.
    QStringList callLines() const;

    LNX2ProcResult run(const LNX2ProcRequest& request) override;

    static LNX2ProcResult succeeded(const QByteArray& out);
    static LNX2ProcResult succeeded() { return succeeded(QByteArray()); }
    static QString lineOf(const LNX2ProcRequest& request);

private:
    mutable std::mutex lock;
    std::list<std::unique_ptr<Expectation>> expectations;
    QList<LNX2ProcRequest> recorded;
    bool allowUnexpected = false;
    LNX2ProcResult defaultAnswer;
    LNX2ProcBackend* previous = nullptr;
};

// Directory of the recorded tool outputs.
QString fixturePath(const QString& relative);
QByteArray readFixture(const QString& relative);
// A recorded tool output without its "# command" header lines and "# rc=N"
// trailer, as the tool printed it.
QByteArray readToolOutput(const QString& relative);
