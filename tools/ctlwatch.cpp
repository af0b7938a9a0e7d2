#include "tools/ctlwatch.h"

#include "tools/ctlcall.h"
#include "tools/ctlscreen.h"
#include "tools/ctltop.h"

#include <QDateTime>
#include <QDeadlineTimer>
#include <QJsonDocument>
#include <QLocale>
#include <QSysInfo>

#include <climits>
#include <functional>
#include <optional>

namespace {

// The size of top's frames when stdout is not a terminal.
constexpr int kPlainColumns = 80;
constexpr int kPlainRows = 24;

struct Round
{
    CtlReply reply;
    QDateTime at;
};

// A frame of the last round (null before the first answer) at a size.
using Frame = std::function<QStringList(const Round* round, int columns, int rows)>;
// What a round prints when stdout is not a terminal.
using Plain = std::function<CtlOutput(const Round& round)>;

bool isQuitKey(char key, bool quitOnQ)
{
    // Ctrl-C arrives as a key only where the terminal does not signal it.
    return key == 3 || (quitOnQ && (key == 'q' || key == 'Q'));
}

// The next round starts an interval after the last answer, so a slow
// daemon is never asked twice at once.
int runView(const CtlArgs& args, bool quitOnQ, const Frame& frame, const Plain& plain)
{
    CtlScreen screen;
    screen.open();
    const QString path = ctlSocketPath(args.socket);
    const GX2RpcPacket request = args.request();
    const qint64 intervalMs = qMax<qint64>(1, qRound64(args.intervalS * 1000));
    std::optional<Round> last;
    bool printed = false;
    const auto redraw = [&] {
        screen.draw(frame(last ? &*last : nullptr, screen.columns(), screen.rows()));
    };
    if (screen.interactive())
        redraw();
    for (;;) {
        screen.setBlocking(true);
        last = Round{ctlCall(path, request, args.timeoutMs), QDateTime::currentDateTime()};
        screen.setBlocking(false);
        if (screen.interactive()) {
            redraw();
        } else {
            const CtlOutput output = plain(*last);
            if (!output.out.isEmpty()) {
                if (!screen.print(printed ? '\n' + output.out : output.out))
                    return kCtlExitFailed;
                printed = true;
            }
            screen.print(output.err, true);
        }
        const QDeadlineTimer next(intervalMs);
        for (;;) {
            char key = 0;
            const CtlScreen::Event event =
                screen.wait(int(qMin<qint64>(next.remainingTime(), INT_MAX)), key);
            if (event == CtlScreen::Event::Timeout)
                break;
            if (event == CtlScreen::Event::Quit ||
                (event == CtlScreen::Event::Key && isQuitKey(key, quitOnQ))) {
                screen.close();
                return kCtlExitOk;
            }
            if (event == CtlScreen::Event::Resize)
                redraw();
        }
    }
}

QString commandText(const CtlArgs& args)
{
    QString text = QStringLiteral("nasbroltctl ") + args.command;
    if (args.hasParams)
        text += QLatin1Char(' ') +
                QString::fromUtf8(QJsonDocument(args.params).toJson(QJsonDocument::Compact));
    return text;
}

QString stampText(const QDateTime& at)
{
    return QSysInfo::machineHostName() + QStringLiteral(": ") +
           QLocale::c().toString(at, QStringLiteral("ddd MMM d HH:mm:ss yyyy"));
}

} // namespace

QStringList renderWatch(const QString& title, const QString& stamp, const QByteArray& output,
                        int width, int height)
{
    QString header = title;
    const int gap = width - ctlTextWidth(title) - ctlTextWidth(stamp);
    if (gap >= 2)
        header += QString(gap, QLatin1Char(' ')) + stamp;
    QStringList lines{header, QString()};
    lines += QString::fromUtf8(output).split(QLatin1Char('\n'));
    if (lines.last().isEmpty())
        lines.removeLast();
    QStringList frame;
    for (int i = 0; i < lines.size() && i < height; ++i)
        frame << ctlFitLine(lines.at(i), width);
    return frame;
}

QString ctlIntervalText(double seconds)
{
    const QString tenths = QString::number(seconds, 'f', 1);
    return tenths.toDouble() == seconds ? tenths : QString::number(seconds, 'g', 12);
}

int ctlRunWatch(const CtlArgs& args)
{
    const QString path = ctlSocketPath(args.socket);
    const QString title =
        QStringLiteral("Every %1s: %2").arg(ctlIntervalText(args.intervalS), commandText(args));
    const Frame frame = [&](const Round* round, int columns, int rows) {
        QByteArray text;
        if (round) {
            // A failed exchange shows its error where the answer would be.
            const CtlOutput output = ctlRender(round->reply, path, args.raw);
            text = output.out + output.err;
        }
        const QDateTime at = round ? round->at : QDateTime::currentDateTime();
        return renderWatch(title, stampText(at), text, columns, rows);
    };
    const Plain plain = [&](const Round& round) { return ctlRender(round.reply, path, args.raw); };
    return runView(args, false, frame, plain);
}

int ctlRunTop(const CtlArgs& args)
{
    CtlArgs lookout = args;
    lookout.command = QStringLiteral("system_lookout");
    lookout.hasParams = false;
    const QString path = ctlSocketPath(args.socket);
    const Frame frame = [&](const Round* round, int columns, int rows) {
        if (!round)
            return renderTop(QJsonObject{{QStringLiteral("err"), 0}}, columns, rows);
        if (round->reply.outcome == CtlReply::Outcome::Answered)
            return renderTop(round->reply.response, columns, rows);
        const CtlOutput output = ctlRender(round->reply, path, false);
        return renderTopMessage(QString::fromUtf8(output.err).trimmed(), columns, rows);
    };
    const Plain plain = [&](const Round& round) {
        CtlOutput output;
        output.out = frame(&round, kPlainColumns, kPlainRows).join(QLatin1Char('\n')).toUtf8();
        output.out += '\n';
        return output;
    };
    return runView(lookout, true, frame, plain);
}
