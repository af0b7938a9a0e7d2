#pragma once

#include <QHash>
#include <QJsonObject>
#include <QString>
#include <QStringList>

// The statement-file grammar, free of any database:
//
//   text before the first header is ignored
//   SQL: Identifier          -- stored lower-cased
//   select ... where a = :a  -- any number of lines, leading blanks dropped
//   Params:
//   a int                    -- "name type"; a lone name is a string
//
// Every statement but the last has its ":" replaced by "@" (both are SQLite
// parameter prefixes; stored files have always been read this way, so string
// literals with colons change too).

struct GX2SqlStatement
{
    QString sqlid;      // lower-case identifier
    QString sql;        // statement text, lines joined with "\n"
    QJsonObject params; // declared name -> lower-case type; documentation only
};

using GX2SqlTable = QHash<QString, GX2SqlStatement>;

// Non-empty pieces of text split at "\n", each cut at its first "--" (also
// inside quotes) and trimmed; lines that become empty stay.
QStringList sqlEngineLines(const QString& text);

// Adds the statements of lines to table, replacing those of the same
// identifier.
void sqlEngineParse(GX2SqlTable& table, const QStringList& lines);
