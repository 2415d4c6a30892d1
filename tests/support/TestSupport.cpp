#include "support/TestSupport.h"

#include "core/repository/Recordset.h"
#include "core/repository/Schema.h"
#include "core/startup/Registry.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlQuery>

namespace dorvane::test {

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

QString TestDatabase::settings() const
{
    return isOdbc() ? uR"("ActiveDB"="Server"|"IsLocalDatabase"=dword:00000000|"ActiveDSN"="%1")"_s.arg(TestDsn()) : localSettings(u"Test.mdb"_s);
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

void UseSettings(const QString& folder, const QString& values)
{
    const QString path = QDir(folder).filePath(u"zentrix.reg"_s);
    WriteSettings(path, values);
    SetSettingsFileOverride(path);
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

QString QueryPlan(Connection& conn, const QString& sql)
{
    const bool sqlite = conn.backend() == BackendKind::Sqlite;
    QSqlQuery explain(conn.database());
    if (!explain.exec((sqlite ? u"EXPLAIN QUERY PLAN "_s : u"EXPLAIN "_s) + sql))
        throw conn.StatementFailure(explain.lastError());
    QString plan;
    while (explain.next())
        plan += explain.value(sqlite ? 3 : 0).toString() + u'\n';
    return plan;
}

bool ReadsATableWhole(Connection& conn, const QString& plan)
{
    return plan.contains(conn.backend() == BackendKind::Sqlite ? u"SCAN "_s : u"Seq Scan"_s);
}

QString IndexSearches(Connection& conn, const QString& plan, const QString& table)
{
    const bool sqlite = conn.backend() == BackendKind::Sqlite;
    const QRegularExpression search(sqlite ? u"SEARCH %1 USING (?:COVERING )?INDEX \\w+ \\(([^)]*)\\)"_s.arg(table) : u"Index Cond: (.*)"_s,
                                    QRegularExpression::CaseInsensitiveOption);
    QString conditions;
    for (auto match = search.globalMatch(plan); match.hasNext();)
        conditions += match.next().captured(1);
    return conditions;
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
