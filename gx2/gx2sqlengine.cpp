#include "gx2/gx2sqlengine.h"

namespace {

enum class Mode { None, Statement, Params };

struct ParseState
{
    Mode mode = Mode::None;
    QString sqlid;
    QString sql;
    QJsonObject params;
};

void store(GX2SqlTable& table, const ParseState& state, bool last)
{
    if (state.sqlid.isEmpty() || state.sql.isEmpty())
        return;
    GX2SqlStatement statement{state.sqlid, state.sql, state.params};
    if (!last)
        statement.sql.replace(QLatin1Char(':'), QLatin1Char('@'));
    table.insert(statement.sqlid, statement);
}

QString firstWord(const QString& text)
{
    int end = 0;
    while (end < text.size() && !text.at(end).isSpace())
        ++end;
    return text.left(end);
}

void addDeclaration(QJsonObject& params, const QString& line)
{
    const int blank = line.indexOf(QLatin1Char(' '));
    QString name = blank > 0 ? line.left(blank) : line;
    const QString type =
        blank > 0 ? firstWord(line.mid(blank + 1).trimmed()) : QStringLiteral("string");
    if (name.startsWith(QLatin1Char('@')) || name.startsWith(QLatin1Char(':')))
        name.remove(0, 1);
    params.insert(name, type.toLower());
}

} // namespace

QStringList sqlEngineLines(const QString& text)
{
    QStringList lines = text.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (QString& line : lines) {
        const int comment = line.indexOf(QStringLiteral("--"));
        if (comment >= 0)
            line.truncate(comment);
        line = line.trimmed();
    }
    return lines;
}

void sqlEngineParse(GX2SqlTable& table, const QStringList& lines)
{
    ParseState state;
    for (const QString& line : lines) {
        if (line.isEmpty())
            continue;
        if (line.startsWith(QStringLiteral("SQL:"), Qt::CaseInsensitive)) {
            store(table, state, false);
            state.sqlid = line.mid(4).trimmed().toLower();
            state.sql.clear();
            state.params = QJsonObject();
            state.mode = Mode::Statement;
        } else if (line.startsWith(QStringLiteral("Params:"), Qt::CaseInsensitive)) {
            state.mode = Mode::Params;
        } else if (state.mode == Mode::Statement) {
            state.sql += line + QLatin1Char('\n');
        } else if (state.mode == Mode::Params) {
            addDeclaration(state.params, line);
        }
    }
    store(table, state, true);
}
