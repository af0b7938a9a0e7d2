#include "gx2/gx2utils.h"

#include <QJsonDocument>
#include <QSet>

QJsonObject& jsonMerge(QJsonObject& to, const QJsonObject& from)
{
    for (auto it = from.constBegin(); it != from.constEnd(); ++it) {
        const QJsonValue mine = to.value(it.key());
        if (mine.isObject() && it.value().isObject()) {
            QJsonObject nested = mine.toObject();
            to.insert(it.key(), jsonMerge(nested, it.value().toObject()));
        } else {
            to.insert(it.key(), it.value());
        }
    }
    return to;
}

QJsonValue toJsonValue(const QByteArray& json)
{
    // Qt 5 parses only objects and arrays at the top level; wrapping the
    // text in an array lets bare scalars through as well.
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson('[' + json + ']', &error);
    if (error.error != QJsonParseError::NoError || doc.array().size() != 1)
        return QJsonValue(QJsonValue::Undefined);
    return doc.array().first();
}

QString jsonToString(const QJsonValue& value, bool indented)
{
    const QJsonDocument::JsonFormat format =
        indented ? QJsonDocument::Indented : QJsonDocument::Compact;
    if (value.isObject())
        return QString::fromUtf8(QJsonDocument(value.toObject()).toJson(format));
    if (value.isArray())
        return QString::fromUtf8(QJsonDocument(value.toArray()).toJson(format));
    if (value.isUndefined())
        return QString();
    // A scalar is written inside a one-element array and cut out again.
    const QByteArray text = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(text.mid(1, text.size() - 2));
}

QJsonArray toJsonArray(const QStringList& texts)
{
    return QJsonArray::fromStringList(texts);
}

QJsonArray toJsonArray(const QList<int>& numbers)
{
    QJsonArray array;
    for (int n : numbers)
        array.append(n);
    return array;
}

QStringList toStrings(const QJsonArray& array)
{
    QStringList texts;
    for (const QJsonValue& v : array) {
        if (v.isString() || v.isDouble())
            texts << toString(v);
    }
    return texts;
}

QList<int> toInts(const QStringList& texts)
{
    QList<int> numbers;
    for (const QString& text : texts)
        numbers << toInt(QJsonValue(text));
    return numbers;
}

QList<int> jarrayToInts(const QJsonArray& array)
{
    QList<int> numbers;
    for (const QJsonValue& v : array)
        numbers << toInt(v);
    return numbers;
}

QStringList intersect(const QStringList& a, const QStringList& b)
{
    const QSet<QString> inB(b.cbegin(), b.cend());
    QSet<QString> seen;
    QStringList common;
    for (const QString& text : a) {
        if (inB.contains(text) && !seen.contains(text)) {
            seen.insert(text);
            common << text;
        }
    }
    return common;
}

QString takeFirstString(QStringList& list)
{
    return list.isEmpty() ? QString() : list.takeFirst();
}

QString firstString(const QStringList& list)
{
    return list.isEmpty() ? QString() : list.first();
}

QString lastString(const QStringList& list)
{
    return list.isEmpty() ? QString() : list.last();
}
