#include "tools/adm/admtable.h"

#include "tools/ctlcodes.h"
#include "gx2/gx2utils.h"
#include "gx2/gx2workers.h"

#include <QJsonDocument>

#include <cmath>
#include <limits>

namespace {

const char kUsage[] = R"(Usage: nasbroltadm [-r] CLASS::FUNCTION [ARG ...]
       nasbroltadm --list
       nasbroltadm --help

Calls one public function of the storage library in this process, as the
daemon would, and prints what it gave back as one JSON object. No daemon is
needed; NASBROLT_ROOT and NASBROLT_TOOLS apply as they do to the daemon.

CLASS::FUNCTION is the name as the library's headers spell it, case and all
(VXDisk::fstype, VXFileSystem::create). --list shows every function with the
names of its arguments.

Arguments:
  ARGs are the function's inputs in the order the header declares them;
  out-parameters (the references and pointers the function fills) are not
  given. An ARG that parses as JSON is that value: 5, 2.5, true, null,
  "text", [1,2], {"a":1}; anything else is the plain string. Values are
  taken leniently: a number for a string input is its text, "1"/"true" and
  "0"/"false" are booleans, a string of digits is an integer.
  Overloads are told apart by the number of ARGs; between forms taking the
  same number, the JSON types of the ARGs decide (an array picks a list
  form, a string the single form), and otherwise the form with more
  out-parameters is called.

Output:
  "result" holds the return value (left out for functions returning
  nothing) and every out-parameter has a key of its own, named as in the
  header. Indented JSON; -r prints one compact line. The library's log
  lines go to stderr; stdout carries nothing but the JSON.
  The program ends only when the threads the call started have ended, so
  the machine is in its final state when it exits.

Options:
  -r, --raw     print the JSON object as one compact line
      --list    list the functions and their arguments, one a line
  -h, --help    show this help
Options come before CLASS::FUNCTION; every word after it is an ARG.

Exit status:
  0  the function ran and its result is not a failure (empty objects and
     strings are not failures; nor are counts and classifications)
  1  it returned false, or a non-zero result code (VXDisk::smartInfo,
     VXDisk::totalSpeed), or work it started was still running after the
     wait; a result code goes to stderr with what it means for the class,
     as "error 9994: unknown array or unavailable disk"
  2  the command line is wrong: unknown option or function, wrong number
     of ARGs, an ARG that cannot be taken as its input's type

Examples:
  nasbroltadm VXDisk::fstype /dev/sdb
  nasbroltadm -r VXDisk::temperature /dev/sda
      prints {"celsius":38,"result":true}; exit status 1 when no reading
  nasbroltadm -r VXDisk::alload true true false false
  nasbroltadm VXFileSystem::create ext4 /dev/sdb1 4096
      three ARGs: the form that also reports "error"
  nasbroltadm VXDisk::wipefs /dev/sdc true
      returns at once inside, but the program waits for the wipe to end
)";

const char kHint[] = "Try 'nasbroltadm --help' for more information.\n";

QString typeName(AdmType type)
{
    switch (type) {
    case AdmType::String:
        return QStringLiteral("a string");
    case AdmType::Int:
        return QStringLiteral("an integer");
    case AdmType::Double:
        return QStringLiteral("a number");
    case AdmType::Bool:
        return QStringLiteral("a boolean");
    case AdmType::Object:
        return QStringLiteral("a JSON object");
    case AdmType::Array:
        return QStringLiteral("a JSON array");
    case AdmType::StringList:
        return QStringLiteral("a list of strings");
    }
    return QString();
}

bool argToInt(const QJsonValue& arg, int& out)
{
    if (arg.isBool()) {
        out = arg.toBool() ? 1 : 0;
        return true;
    }
    if (arg.isString()) {
        bool ok = false;
        out = arg.toString().trimmed().toInt(&ok);
        return ok;
    }
    const double d = arg.toDouble(std::nan(""));
    if (!arg.isDouble() || std::trunc(d) != d || d < std::numeric_limits<int>::min() ||
        d > std::numeric_limits<int>::max())
        return false;
    out = int(d);
    return true;
}

bool argToBool(const QJsonValue& arg, bool& out)
{
    if (arg.isBool()) {
        out = arg.toBool();
        return true;
    }
    QString text = arg.isString() ? arg.toString().trimmed().toLower() : QString();
    if (arg.isDouble())
        text = jsonToString(arg);
    static const QStringList yes{"1", "true", "yes", "on"};
    static const QStringList no{"0", "false", "no", "off"};
    out = yes.contains(text);
    return out || no.contains(text);
}

// Whether the JSON type of arg is the natural one for type, as opposed to
// one converted leniently.
bool fitsNaturally(const QJsonValue& arg, AdmType type)
{
    switch (type) {
    case AdmType::String:
        return arg.isString();
    case AdmType::Int:
    case AdmType::Double:
        return arg.isDouble();
    case AdmType::Bool:
        return arg.isBool();
    case AdmType::Object:
        return arg.isObject();
    case AdmType::Array:
    case AdmType::StringList:
        return arg.isArray();
    }
    return false;
}

QString inputNames(const AdmEntry& entry)
{
    QStringList names;
    for (const AdmParam& p : entry.inputs)
        names << p.name;
    return names.join(QLatin1Char(' '));
}

QString arguments(int n)
{
    return n == 1 ? QStringLiteral("1 argument") : QStringLiteral("%1 arguments").arg(n);
}

// "NAME takes 2 arguments (dev background), 3 given", listing every form.
QString countMessage(const QList<const AdmEntry*>& forms, const QString& name, int given)
{
    QStringList takes;
    for (const AdmEntry* form : forms) {
        const QString one =
            QStringLiteral("%1 (%2)").arg(arguments(form->inputs.size()), inputNames(*form));
        if (!takes.contains(one))
            takes << one;
    }
    return QStringLiteral("%1 takes %2, %3 given")
        .arg(name, takes.join(QStringLiteral(" or ")))
        .arg(given);
}

QString unknownMessage(const QList<AdmEntry>& table, const QString& name)
{
    QString message = QStringLiteral("unknown function '%1'").arg(name);
    for (const AdmEntry& entry : table) {
        if (entry.name.compare(name, Qt::CaseInsensitive) == 0)
            return message + QStringLiteral("; did you mean '%1'?").arg(entry.name);
    }
    return message;
}

// words converted to form's input types, or the reason they cannot be.
bool convertAll(const AdmEntry& form, const QStringList& words, QJsonArray& inputs, int& natural,
                QString& message)
{
    inputs = QJsonArray();
    natural = 0;
    for (int i = 0; i < words.size(); ++i) {
        const AdmParam& param = form.inputs.at(i);
        const QJsonValue arg = admParseArg(words.at(i));
        QJsonValue value;
        if (!admConvert(arg, words.at(i), param.type, value)) {
            message = QStringLiteral("%1: %2 must be %3, not '%4'")
                          .arg(form.name, param.name, typeName(param.type), words.at(i));
            return false;
        }
        inputs.append(value);
        natural += fitsNaturally(arg, param.type) ? 1 : 0;
    }
    return true;
}

AdmOutput usage(const QString& message)
{
    AdmOutput output;
    output.err = "nasbroltadm: " + message.toUtf8() + '\n' + kHint;
    output.status = kAdmExitUsage;
    return output;
}

bool failed(const AdmEntry& entry, const QJsonValue& result)
{
    switch (entry.result) {
    case AdmResult::Bool:
        return !result.toBool();
    case AdmResult::Code:
        return result.toDouble() != 0;
    case AdmResult::None:
    case AdmResult::Value:
        break;
    }
    return false;
}

// "error 9994: unknown array or unavailable disk": the code read as the
// class that returned it ("VXRaid" of "VXRaid::status") defines it.
QByteArray codeText(const AdmEntry& entry, const QJsonValue& result)
{
    const int code = result.toInt();
    QString text = QStringLiteral("nasbroltadm: error %1").arg(code);
    const QString meaning = codeMeaning(code, entry.name.section(QStringLiteral("::"), 0, 0));
    if (!meaning.isEmpty())
        text += QStringLiteral(": ") + meaning;
    return text.toUtf8() + '\n';
}

} // namespace

QStringList AdmCall::list(int i) const
{
    QStringList items;
    for (const QJsonValue& v : inputs.at(i).toArray())
        items << v.toString();
    return items;
}

QJsonValue admParseArg(const QString& word)
{
    const QJsonValue value = toJsonValue(word.toUtf8());
    return value.isUndefined() ? QJsonValue(word) : value;
}

bool admConvert(const QJsonValue& arg, const QString& word, AdmType type, QJsonValue& out)
{
    switch (type) {
    case AdmType::String:
        if (arg.isString())
            out = arg;
        else if (arg.isNull())
            out = QString();
        else if (arg.isDouble() || arg.isBool())
            out = word.trimmed(); // the number as it was written: 1e3 stays 1e3
        else
            return false;
        return true;
    case AdmType::Int: {
        int n = 0;
        if (!argToInt(arg, n))
            return false;
        out = n;
        return true;
    }
    case AdmType::Double: {
        bool ok = arg.isDouble();
        const double d = ok ? arg.toDouble() : arg.toString().trimmed().toDouble(&ok);
        if (ok)
            out = d;
        return ok;
    }
    case AdmType::Bool: {
        bool b = false;
        if (!argToBool(arg, b))
            return false;
        out = b;
        return true;
    }
    case AdmType::Object:
        out = arg;
        return arg.isObject();
    case AdmType::Array:
        out = arg;
        return arg.isArray();
    case AdmType::StringList: {
        if (arg.isString()) {
            out = QJsonArray{arg};
            return true;
        }
        QJsonArray items;
        for (const QJsonValue& v : arg.toArray()) {
            if (v.isString())
                items.append(v);
            else if (v.isDouble())
                items.append(jsonToString(v));
            else
                return false;
        }
        out = items;
        return arg.isArray();
    }
    }
    return false;
}

const AdmEntry* admChoose(const QList<AdmEntry>& table, const QString& name,
                          const QStringList& words, QJsonArray& inputs, QString& message)
{
    QList<const AdmEntry*> forms;
    for (const AdmEntry& entry : table) {
        if (entry.name == name)
            forms << &entry;
    }
    if (forms.isEmpty()) {
        message = unknownMessage(table, name);
        return nullptr;
    }
    const AdmEntry* best = nullptr;
    int bestNatural = -1;
    QString firstProblem;
    for (const AdmEntry* form : qAsConst(forms)) {
        if (form->inputs.size() != words.size())
            continue;
        QJsonArray converted;
        int natural = 0;
        QString problem;
        if (!convertAll(*form, words, converted, natural, problem)) {
            if (firstProblem.isEmpty())
                firstProblem = problem;
            continue;
        }
        if (best && (natural < bestNatural ||
                     (natural == bestNatural && form->outs.size() <= best->outs.size())))
            continue;
        best = form;
        bestNatural = natural;
        inputs = converted;
    }
    if (!best)
        message = firstProblem.isEmpty() ? countMessage(forms, name, words.size()) : firstProblem;
    return best;
}

QStringList admListLines(const QList<AdmEntry>& table)
{
    QStringList lines;
    for (const AdmEntry& entry : table) {
        const QString line = (entry.name + QLatin1Char(' ') + inputNames(entry)).trimmed();
        if (!lines.contains(line))
            lines << line;
    }
    return lines;
}

AdmOutput admRun(const QStringList& arguments, const QList<AdmEntry>& table, int workLimitMs)
{
    bool raw = false;
    int i = 0;
    for (; i < arguments.size() && arguments.at(i).startsWith(QLatin1Char('-')); ++i) {
        const QString& option = arguments.at(i);
        if (option == QLatin1String("--")) {
            ++i;
            break;
        }
        if (option == QLatin1String("-h") || option == QLatin1String("--help"))
            return AdmOutput{kUsage, {}, kAdmExitOk};
        if (option == QLatin1String("--list"))
            return AdmOutput{
                admListLines(table).join(QLatin1Char('\n')).toUtf8() + '\n', {}, kAdmExitOk};
        if (option != QLatin1String("-r") && option != QLatin1String("--raw"))
            return usage(QStringLiteral("unknown option '%1'").arg(option));
        raw = true;
    }
    if (i >= arguments.size())
        return usage(QStringLiteral("no function given"));

    const QString name = arguments.at(i);
    const QStringList words = arguments.mid(i + 1);
    QJsonArray inputs;
    QString message;
    const AdmEntry* entry = admChoose(table, name, words, inputs, message);
    if (!entry)
        return usage(message);

    AdmCall call(inputs);
    const QJsonValue result = entry->call(call);
    // Work the call left on threads is part of it: a script must find the
    // final state once this returns.
    const QStringList left = GX2Workers::joinAll(workLimitMs);

    QJsonObject printed = call.outputs();
    if (entry->result != AdmResult::None)
        printed.insert(QStringLiteral("result"), result.isUndefined() ? QJsonValue() : result);
    AdmOutput output;
    output.out =
        QJsonDocument(printed).toJson(raw ? QJsonDocument::Compact : QJsonDocument::Indented);
    if (raw)
        output.out += '\n';
    output.status = failed(*entry, result) ? kAdmExitFailed : kAdmExitOk;
    if (entry->result == AdmResult::Code && output.status == kAdmExitFailed)
        output.err = codeText(*entry, result);
    if (!left.isEmpty()) {
        output.err += "nasbroltadm: still running after " + QByteArray::number(workLimitMs) +
                      " ms: " + left.join(QStringLiteral(", ")).toUtf8() + '\n';
        output.status = kAdmExitFailed;
    }
    return output;
}
