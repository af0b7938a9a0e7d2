#include "tests/support/scriptedbackend.h"

#include <QFile>

#include <gtest/gtest.h>

using Expectation = ScriptedBackend::Expectation;

Expectation& Expectation::exits(int code)
{
    answer.exitCode = code;
    return *this;
}

Expectation& Expectation::prints(const QByteArray& out)
{
    answer.out = out;
    return *this;
}

Expectation& Expectation::printsFile(const QString& fixture)
{
    return prints(readFixture(fixture));
}

Expectation& Expectation::errs(const QByteArray& err)
{
    answer.err = err;
    return *this;
}

Expectation& Expectation::failsToStart()
{
    answer.started = answer.finished = answer.normalExit = false;
    answer.exitCode = -2;
    return *this;
}

Expectation& Expectation::timesOut()
{
    answer.finished = answer.normalExit = false;
    return *this;
}

Expectation& Expectation::crashes()
{
    answer.normalExit = false;
    return *this;
}

Expectation& Expectation::repeatedly()
{
    repeat = true;
    return *this;
}

ScriptedBackend::ScriptedBackend() : previous(setProcBackend(this)) {}

ScriptedBackend::~ScriptedBackend()
{
    setProcBackend(previous);
    for (const auto& e : expectations) {
        if (!e->repeat && e->used == 0)
            ADD_FAILURE() << "expected process call never made: " << e->description.toStdString();
    }
}

Expectation& ScriptedBackend::expect(const QString& program, const QStringList& arguments)
{
    QStringList words{program};
    words += arguments;
    return expectIf(words.join(QLatin1Char(' ')), [program, arguments](const LNX2ProcRequest& r) {
        return r.program == program && r.arguments == arguments;
    });
}

Expectation& ScriptedBackend::expectLine(const QString& commandLine)
{
    QStringList words = procSplitCommand(commandLine);
    const QString program = words.isEmpty() ? QString() : words.takeFirst();
    return expect(program, words);
}

Expectation& ScriptedBackend::expectIf(const QString& description,
                                       std::function<bool(const LNX2ProcRequest&)> predicate)
{
    std::lock_guard<std::mutex> guard(lock);
    auto e = std::make_unique<Expectation>();
    e->match = std::move(predicate);
    e->description = description;
    e->answer = succeeded();
    expectations.push_back(std::move(e));
    return *expectations.back();
}

void ScriptedBackend::allowOthers()
{
    allowOthers(succeeded());
}

void ScriptedBackend::allowOthers(const LNX2ProcResult& answer)
{
    std::lock_guard<std::mutex> guard(lock);
    allowUnexpected = true;
    defaultAnswer = answer;
}

QList<LNX2ProcRequest> ScriptedBackend::calls() const
{
    std::lock_guard<std::mutex> guard(lock);
    return recorded;
}

QStringList ScriptedBackend::callLines() const
{
    QStringList lines;
    for (const LNX2ProcRequest& r : calls())
        lines << lineOf(r);
    return lines;
}

LNX2ProcResult ScriptedBackend::run(const LNX2ProcRequest& request)
{
    std::lock_guard<std::mutex> guard(lock);
    recorded.append(request);
    // First unused one-shot expectation wins; repeated ones stay available.
    for (auto& e : expectations) {
        if ((e->repeat || e->used == 0) && e->match(request)) {
            ++e->used;
            return e->answer;
        }
    }
    if (!allowUnexpected)
        ADD_FAILURE() << "unexpected process call: " << lineOf(request).toStdString();
    return defaultAnswer;
}

LNX2ProcResult ScriptedBackend::succeeded(const QByteArray& out)
{
    LNX2ProcResult r;
    r.started = r.finished = r.normalExit = true;
    r.exitCode = 0;
    r.out = out;
    return r;
}

QString ScriptedBackend::lineOf(const LNX2ProcRequest& request)
{
    QStringList words{request.program};
    words += request.arguments;
    return words.join(QLatin1Char(' '));
}

QString fixturePath(const QString& relative)
{
    return QStringLiteral(NASBROLT_FIXTURES "/") + relative;
}

QByteArray readFixture(const QString& relative)
{
    QFile file(fixturePath(relative));
    if (!file.open(QIODevice::ReadOnly))
        ADD_FAILURE() << "missing fixture " << relative.toStdString();
    return file.readAll();
}

QByteArray readToolOutput(const QString& relative)
{
    QList<QByteArray> lines = readFixture(relative).split('\n');
    while (!lines.isEmpty() && lines.first().startsWith("# "))
        lines.removeFirst();
    while (!lines.isEmpty() && (lines.last().isEmpty() || lines.last().startsWith("# rc=")))
        lines.removeLast();
    return lines.join('\n') + '\n';
}
