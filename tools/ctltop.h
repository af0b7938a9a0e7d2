#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>

// Pure text of the views that redraw a terminal: no terminal I/O here, so
// the tests feed answers and sizes.

// Columns text takes on a terminal: East Asian wide characters count two,
// combining marks none.
int ctlTextWidth(const QString& text);

// text safe to put on a terminal and at most width columns: control
// characters (an escape sequence in a process name or an event) become '?',
// tabs blanks, and the rest is cut, never wrapped.
QString ctlFitLine(const QString& text, int width);

// The frame of "nasbroltctl top" for an answer of "system_lookout": at most
// height lines of at most width columns. An answer with an "err" other than
// 0 shows it in a line; empty "results" say that no sample exists yet.
QStringList renderTop(const QJsonObject& answer, int width, int height);

// The frame of "nasbroltctl top" when there is no answer, message saying why.
QStringList renderTopMessage(const QString& message, int width, int height);
