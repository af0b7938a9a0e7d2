#pragma once

#include <QString>

// The machine identifier: the bytes of text (or of a fresh random UUID when
// text is empty) folded into 64 bits and written in base 36.
QString GX2Uuid(const QString& text);
