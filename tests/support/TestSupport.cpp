#include "support/TestSupport.h"

#include "core/repository/Recordset.h"
#include "core/repository/Schema.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

namespace dorvane::test {

const TableDef* ReferencedTable(const TableDef& table, const QString& column)
{
    if (column == table.key || ColumnTypeOf(column) != ColumnType::Integer)
        return nullptr;
    for (const TableDef& other : RepositoryTables()) {
        if (other.key.compare(column, Qt::CaseInsensitive) == 0)
            return &other;
    }
    const QMap<QString, QString> aliases
        = {{u"Ver"_s, u"Version"_s},         {u"Environ"_s, u"Environment"_s},    {u"Var"_s, u"UserVar"_s},
           {u"Owner"_s, u"User"_s},          {u"Creator"_s, u"User"_s},           {u"Modifier"_s, u"User"_s},
           {u"Parent"_s, table.name.mid(1)}, {u"Dependency"_s, table.name.mid(1)}};
    static const QRegularExpression word(u"[A-Z][a-z]*|[0-9]+"_s);
    QStringList words;
    for (auto it = word.globalMatch(column.mid(1).chopped(column.endsWith(u"Key"_s) ? 3 : 0)); it.hasNext();)
        words << it.next().captured();
    for (qsizetype n = 1; n <= words.size(); ++n) {
        const QString suffix = words.mid(words.size() - n).join(QString());
        if (const TableDef* target = FindTable(u"t"_s + aliases.value(suffix, suffix)))
            return target;
    }
    return nullptr;
}

QString TestDsn() { return qEnvironmentVariable("DORVANE_TEST_DSN").trimmed(); }

std::vector<std::string> TestBackends()
{
    return TestDsn().isEmpty() ? std::vector<std::string>{"sqlite"} : std::vector<std::string>{"sqlite", "odbc"};
}

TestDatabase::TestDatabase(const std::string& backend) : m_backend(backend)
{
    if (!m_dir.isValid())
        throw DbError(u"Could not create a temporary folder: %1"_s.arg(m_dir.errorString()));
    if (m_backend == "sqlite") {
        const QString file = QDir(m_dir.path()).filePath(u"Test.mdb"_s);
        Connection::CreateDatabaseFile(file);
        m_connectionString = u"PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=%1;"_s.arg(file);
        return;
    }
    if (m_backend != "odbc" || TestDsn().isEmpty())
        throw DbError(u"No ODBC data source for the test backend '%1' (DORVANE_TEST_DSN)."_s.arg(QString::fromStdString(m_backend)));
    m_connectionString = u"PROVIDER=MSDASQL;DSN=%1"_s.arg(TestDsn());

    // Start from an empty schema: every table, view, sequence and function
    // of earlier tests goes with it.
    Connection connection;
    connection.Open(m_connectionString);
    for (const QString& statement : {u"DROP SCHEMA IF EXISTS public CASCADE"_s, u"CREATE SCHEMA public"_s, u"CREATE EXTENSION IF NOT EXISTS citext"_s})
        connection.Execute(statement);
}

void TestDatabase::build(RepositoryContent content) const
{
    Connection connection;
    connection.Open(m_connectionString);
    BuildDatabase(connection, SchemaVariant::Repository, content);
}

QString TestDatabase::localSettings(const QString& file) const
{
    return uR"("ActiveDB"="Local"|"IsLocalDatabase"=dword:00000001|"LocalDatabasePath"="%1"|"LocalDatabaseName"="%2")"_s.arg(tempPath(), file);
}

void MakeDatabaseFile(const QString& path, std::optional<SchemaVariant> tables)
{
    QDir().mkpath(QFileInfo(path).path());
    Connection::CreateDatabaseFile(path);
    if (!tables)
        return;
    Connection connection;
    connection.OpenFile(path);
    BuildDatabase(connection, *tables, RepositoryContent::Empty);
}

void WriteSettings(const QString& path, QString values)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate)) << path.toStdString();
    file.write((u"Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\Zentrix]\r\n"_s +
                values.replace(u'|', u"\r\n"_s) + u"\r\n"_s).toUtf8());
}

QStringList Rows(Connection& conn, const QString& tableOrQuery, const QStringList& without)
{
    QString sql = tableOrQuery;
    if (!tableOrQuery.startsWith(u"SELECT "_s, Qt::CaseInsensitive)) {
        const TableDef* def = FindTable(tableOrQuery);
        sql = def ? u"SELECT * FROM %1 ORDER BY %2"_s.arg(def->name, def->key) : u"SELECT * FROM [%1]"_s.arg(tableOrQuery);
    }
    QStringList rows;
    Recordset rs(sql, conn);
    rs.Eof(); // reads the rows, and with them the columns the statement selects
    QStringList fields = rs.FieldNames();
    fields.removeIf([&](const QString& field) { return without.contains(field, Qt::CaseInsensitive); });
    for (; !rs.Eof(); rs.MoveNext()) {
        QStringList cells;
        for (const QString& field : fields)
            cells << (rs.IsNull(field) ? u"<null>"_s : rs.Text(field));
        rows << cells.join(u'|');
    }
    return rows;
}

QStringList TableRows(Connection& conn, const QStringList& tables, const QStringList& without)
{
    QStringList names = tables;
    for (const TableDef& table : tables.isEmpty() ? RepositoryTables() : std::vector<TableDef>())
        names << table.name;
    QStringList rows;
    for (const QString& table : names)
        rows << Rows(conn, table, without).replaceInStrings(QRegularExpression(u"^"_s), table + u':');
    return rows;
}

QStringList FileTables(Connection& conn)
{
    QStringList tables = conn.database().tables(QSql::Tables);
    tables.removeIf([](const QString& table) { return table.startsWith(u"sqlite_"_s); });
    tables.sort();
    return tables;
}

QStringList SortedLower(QStringList names)
{
    for (QString& name : names)
        name = name.toLower();
    names.sort();
    return names;
}

void ExpectIndexSearches(Connection& conn, const QString& sql, const QStringList& searched)
{
    SCOPED_TRACE(sql.toStdString());
    const bool sqlite = conn.backend() == BackendKind::Sqlite;
    QSqlQuery explain(conn.database());
    ASSERT_TRUE((sqlite || explain.exec(u"SET enable_seqscan = off"_s)) && explain.exec((sqlite ? u"EXPLAIN QUERY PLAN "_s : u"EXPLAIN "_s) + sql))
        << explain.lastError().text().toStdString();
    QString plan;
    while (explain.next())
        plan += explain.value(sqlite ? 3 : 0).toString() + u'\n';
    EXPECT_FALSE(plan.contains(sqlite ? u"SCAN "_s : u"Seq Scan"_s)) << plan.toStdString();
    for (const QString& column : searched) {
        const QRegularExpression search(sqlite ? u"SEARCH %1 USING (?:COVERING )?INDEX \\w+ \\(([^)]*)\\)"_s.arg(column.section(u'.', 0, 0)) : u"Index Cond: (.*)"_s,
                                        QRegularExpression::CaseInsensitiveOption);
        QString conditions;
        for (auto match = search.globalMatch(plan); match.hasNext();)
            conditions += match.next().captured(1);
        EXPECT_TRUE(conditions.contains(column.section(u'.', 1), Qt::CaseInsensitive)) << column.toStdString() << "\n" << plan.toStdString();
    }
}

static QString AbortTrigger(const QString& table, const QString& event) { return u"abort_%1_%2"_s.arg(table, event).toLower(); }

void AbortOn(Connection& conn, const QString& table, const QString& event, const QString& when)
{
    const QString name = AbortTrigger(table, event);
    if (conn.backend() == BackendKind::Odbc) {
        conn.Execute(u"CREATE OR REPLACE FUNCTION dorvane_abort() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN RAISE EXCEPTION 'boom'; END $$"_s);
        conn.Execute(u"CREATE TRIGGER %1 BEFORE %2 ON %3 FOR EACH ROW %4 EXECUTE FUNCTION dorvane_abort()"_s
                         .arg(name, event, table, when.isEmpty() ? QString() : u"WHEN (%1)"_s.arg(when)));
    } else {
        conn.Execute(u"CREATE TRIGGER %1 BEFORE %2 ON %3 %4 BEGIN SELECT RAISE(ABORT, 'boom'); END"_s
                         .arg(name, event, table, when.isEmpty() ? QString() : u"WHEN "_s + when));
    }
}

void DropAbort(Connection& conn, const QString& table, const QString& event)
{
    const QString name = AbortTrigger(table, event);
    conn.Execute(conn.backend() == BackendKind::Odbc ? u"DROP TRIGGER %1 ON %2"_s.arg(name, table) : u"DROP TRIGGER %1"_s.arg(name));
}

bool WriteFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

QByteArray ReadFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

Answer ScriptedMessages::Show(const QString& text, Buttons buttons)
{
    shown << text;
    // A plain message needs no answer and leaves the queue to the questions.
    if (buttons == Buttons::Ok)
        return Answer::Ok;
    if (m_answers.empty()) {
        ADD_FAILURE() << "A question was asked with no answer queued: " << text.toStdString();
        return Answer::Cancel;
    }
    const Answer answer = m_answers.front();
    m_answers.pop_front();
    return answer;
}

} // namespace dorvane::test
