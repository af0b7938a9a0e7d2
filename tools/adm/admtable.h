#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>

// nasbroltadm calls library functions by name. Each function is one entry
// of a table: its name, its inputs with their types, the names of its
// out-parameters, what its result means, and a lambda that calls it. The
// machinery here turns command-line words into the inputs, chooses among
// overloads, and renders the call as one JSON object with an exit status.

// Exit statuses; scripts branch on them, so they never change.
enum AdmExit {
    kAdmExitOk = 0,     // ran, and the result is not a failure
    kAdmExitFailed = 1, // returned false or a result code other than 0
    kAdmExitUsage = 2,  // bad command line
};

// The longest the library itself waits (a format: two hours) plus margin.
constexpr int kAdmWorkLimitMs = 3 * 3600 * 1000;

// The type of an input as the function declares it.
enum class AdmType { String, Int, Double, Bool, Object, Array, StringList };

// What the returned value means for the exit status.
enum class AdmResult {
    None,  // void: no "result" key
    Value, // data, counts, classifications: never a failure
    Bool,  // false is a failure
    Code,  // an int result code: anything but 0 is a failure
};

struct AdmParam
{
    QString name;
    AdmType type;
};

// One call in progress: the inputs converted to the entry's types, and the
// out-parameters the function filled.
class AdmCall
{
public:
    explicit AdmCall(const QJsonArray& inputs) : inputs(inputs) {}

    QString str(int i) const { return inputs.at(i).toString(); }
    int integer(int i) const { return inputs.at(i).toInt(); }
    double number(int i) const { return inputs.at(i).toDouble(); }
    bool boolean(int i) const { return inputs.at(i).toBool(); }
    QJsonObject object(int i) const { return inputs.at(i).toObject(); }
    QJsonArray array(int i) const { return inputs.at(i).toArray(); }
    QStringList list(int i) const;

    void out(const QString& name, const QJsonValue& value) { outs.insert(name, value); }
    void out(const QString& name, const QStringList& value)
    {
        outs.insert(name, QJsonArray::fromStringList(value));
    }
    const QJsonObject& outputs() const { return outs; }

private:
    QJsonArray inputs;
    QJsonObject outs;
};

// A void function's lambda returns this.
inline QJsonValue admVoid()
{
    return QJsonValue(QJsonValue::Undefined);
}

struct AdmEntry
{
    QString name; // "CLASS::FUNCTION" as the header spells it
    QList<AdmParam> inputs;
    QStringList outs; // out-parameter names as the header spells them
    AdmResult result;
    std::function<QJsonValue(AdmCall&)> call;
};

// Helpers of the entry lists: strings as a JSON array; a result with a text
// the function handed back through its out-parameter name.
inline QJsonValue admList(const QStringList& items)
{
    return QJsonArray::fromStringList(items);
}
inline QJsonValue admWithOut(AdmCall& c, const QString& name, const QString& text,
                             const QJsonValue& result)
{
    c.out(name, text);
    return result;
}

// Every registered function; the entry lists of the library parts below.
const QList<AdmEntry>& admEntries();
QList<AdmEntry> admVXDiskEntries();
QList<AdmEntry> admVXRaidEntries();
QList<AdmEntry> admVXLvmEntries();
QList<AdmEntry> admVXLvmCacheEntries();
QList<AdmEntry> admVXZfsEntries();
QList<AdmEntry> admVXSystemEntries();
QList<AdmEntry> admLNX2PackageEntries();

// One word of the command line as a value: JSON when it parses as JSON,
// else the plain string.
QJsonValue admParseArg(const QString& word);

// word (already parsed as arg) as a value of type, leniently: numbers give
// their text to strings, "1"/"true" make a bool, a string of digits an int.
// False when it cannot be taken as that type.
bool admConvert(const QJsonValue& arg, const QString& word, AdmType type, QJsonValue& out);

// The entry a call of name with these words goes to: among the forms taking
// that many inputs, the one whose declared types the words' JSON types fit
// best, then the one with more out-parameters; inputs gets the words
// converted to its types. Null when none fits; message says why.
const AdmEntry* admChoose(const QList<AdmEntry>& table, const QString& name,
                          const QStringList& words, QJsonArray& inputs, QString& message);

// "NAME input ..." per entry, each line once, in table order.
QStringList admListLines(const QList<AdmEntry>& table);

struct AdmOutput
{
    QByteArray out;
    QByteArray err;
    int status = kAdmExitOk;
};

// A whole nasbroltadm run over table, given the arguments after the program
// name. A call waits up to workLimitMs for the threads it started.
AdmOutput admRun(const QStringList& arguments, const QList<AdmEntry>& table,
                 int workLimitMs = kAdmWorkLimitMs);
