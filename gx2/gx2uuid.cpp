#include "gx2/gx2uuid.h"

#include <QUuid>

QString GX2Uuid(const QString& text)
{
    QByteArray bytes = text.isEmpty() ? QUuid::createUuid().toString().toUtf8() : text.toUtf8();
    bytes.replace('{', QByteArray()).replace('-', QByteArray()).replace('}', QByteArray());

    // Kept exactly, lossy as it is: identifiers stored on machines were made
    // this way (character codes, signed, weighted by 10, wrapping at 2^64).
    quint64 h = 0;
    for (const char c : bytes)
        h = h * 10 + static_cast<quint64>(static_cast<qint64>(static_cast<signed char>(c)));
    if (h == 0)
        return QString();

    static const char digits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    QByteArray out;
    while (h > 0) {
        out.prepend(digits[h % 36]);
        h /= 36;
    }
    return QString::fromLatin1(out);
}
