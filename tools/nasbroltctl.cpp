// nasbroltctl: sends one command to the nasbrolt daemon and prints the answer,
// once, again and again (--watch), or as the dashboard in a terminal (top).

#include "tools/ctlargs.h"
#include "tools/ctlcall.h"
#include "tools/ctlwatch.h"

#include <QCoreApplication>

#include <csignal>
#include <cstdio>

namespace {

const char kUsage[] = R"(Usage: nasbroltctl [OPTIONS] COMMAND [PARAM ...]
       nasbroltctl [OPTIONS] --watch [SECONDS] COMMAND [PARAM ...]
       nasbroltctl [OPTIONS] top [SECONDS]
       nasbroltctl codes

Sends COMMAND to the nasbrolt daemon over its local socket and prints the
answer as indented JSON.

With --watch the command is sent again SECONDS after each answer (default 2,
fractions allowed) and its answer redrawn in place under a line with the
interval, the command, the host and the time, until interrupted; a failed
exchange shows its error there and the next round follows. When stdout is
not a terminal the answers are printed one after another, separated by a
blank line.

"top" shows the dashboard ("system_lookout") fitted to the terminal and
refreshed every SECONDS (default 2): host, uptime, load and status, CPU,
memory, network, disks, storage, tasks, the busiest processes and the
latest events. q or Ctrl-C quits.

"codes" lists every result code, sorted, with where it applies and what it
means, without contacting the daemon. The same number can mean different
things: "daemon" codes may come from any command, "smbaudit_*" and "lvm_*"
ones from the commands so named, where they take precedence; the others are
those the library classes return (nasbroltadm explains them as well).

Parameters:
  key=value           the string "value"
  key:=JSON           a JSON value: 5, true, null, "text", [1,2], {"a":1}
  '{"key":...}'       one JSON object that is the whole of "params"
Without parameters the request carries no "params".

Options:
  -h, --help          show this help and exit
      --version       show the version and exit
  -r, --raw           print the answer as one compact line
      --watch[=SECONDS]
                      repeat COMMAND every SECONDS and redraw its answer
  -t, --timeout=MS    wait at most MS milliseconds in all (default 15000)
      --socket=NAME   the daemon's socket (default QUILLO_BROLT_TELMAR_ORVO);
                      a NAME not starting with '/' lies in $TMPDIR, else /tmp
Options may also follow COMMAND; "--" ends them.

The first datagram back is the answer. The daemon sends an empty answer as a
bare keep-alive (for example "device_isidle" on a busy device), so such an
answer is printed as {} and counts as success.

Exit status (--watch and top end with 0 on SIGINT, SIGTERM or q):
  0  the answer has "err" 0 or no "err"
  1  the answer has another "err"; "error <code>: <meaning>: <errmsg>" goes
     to stderr (the meaning when the code has one, the answer's "errmsg"
     when it has one)
  2  the command line is wrong
  3  the daemon cannot be reached (not running, or no access to its socket)
  4  no answer within the time limit, or the connection broke before it

Examples:
  nasbroltctl raid_limit_speeds
  nasbroltctl raid_limit_speeds_change min:=1000 max:=200000
  nasbroltctl lvm_formating vg=vg0 lv=data
  nasbroltctl -r lvm_formating '{"vg":"vg0","lv":"data"}'
  nasbroltctl -t 70000 raid_writeconfig_waitfor timeout:=60000
  nasbroltctl --watch 0.5 naslog_recent
  nasbroltctl top
  nasbroltctl codes
)";

void put(FILE* stream, const QByteArray& bytes)
{
    fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
}

// Arguments are taken as UTF-8 whatever the locale: JSON is UTF-8.
QStringList utf8Arguments(int argc, char** argv)
{
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments.append(QString::fromUtf8(argv[i]));
    return arguments;
}

} // namespace

int main(int argc, char** argv)
{
    // A daemon that drops the connection must end in an exit status, not a signal.
    std::signal(SIGPIPE, SIG_IGN);
    QCoreApplication app(argc, argv);
    CtlArgs args;
    QString message;
    if (!parseCtlArgs(message, utf8Arguments(argc, argv), args)) {
        put(stderr, "nasbroltctl: " + message.toUtf8() +
                        "\nTry 'nasbroltctl --help' for more information.\n");
        return kCtlExitUsage;
    }
    if (args.action == CtlArgs::Action::Help) {
        put(stdout, kUsage);
        return kCtlExitOk;
    }
    if (args.action == CtlArgs::Action::Version) {
        put(stdout, "nasbroltctl " NASBROLT_VERSION "\n");
        return kCtlExitOk;
    }
    if (args.action == CtlArgs::Action::Codes) {
        put(stdout, ctlCodesText());
        return kCtlExitOk;
    }
    if (args.action == CtlArgs::Action::Top)
        return ctlRunTop(args);
    if (args.watch)
        return ctlRunWatch(args);
    const QString path = ctlSocketPath(args.socket);
    const CtlOutput output =
        ctlRender(ctlCall(path, args.request(), args.timeoutMs), path, args.raw);
    put(stdout, output.out);
    put(stderr, output.err);
    return output.status;
}
