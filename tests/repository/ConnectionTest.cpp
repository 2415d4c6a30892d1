#include "repository/Connection.h"
#include "repository/Dialect.h"
#include "repository/Recordset.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <functional>

using namespace dorvane;
using namespace dorvane::test;

namespace {

QString descriptionOf(const std::function<void()>& action)
{
    try {
        action();
    } catch (const DbError& e) {
        return e.description();
    }
    return QStringLiteral("<no error>");
}

QString jetString(const QString& file)
{
    return QStringLiteral("PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=%1;").arg(file);
}

void writeFile(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(bytes);
}

} // namespace

// --- Opening files: no backend needed -------------------------------------

TEST(ConnectionFileTest, MissingFileIsNamedAsGivenAndNotCreated)
{
    QTemporaryDir dir;
    // The connection string carries a Windows-style path; the message
    // repeats it as given.
    const QString given = dir.path() + QStringLiteral("\\Missing.mdb");
    Connection c;
    EXPECT_EQ(descriptionOf([&] { c.Open(jetString(given)); }),
              QStringLiteral("Could not find file '%1'.").arg(given));
    EXPECT_FALSE(c.IsOpen());
    EXPECT_TRUE(QDir(dir.path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries).isEmpty());

    EXPECT_EQ(descriptionOf([&] { c.OpenFile(dir.path() + QStringLiteral("/UserData.mdb")); }),
              QStringLiteral("Could not find file '%1/UserData.mdb'.").arg(dir.path()));
    EXPECT_FALSE(QFile::exists(dir.path() + QStringLiteral("/UserData.mdb")));
}

TEST(ConnectionFileTest, RefusesFilesThatAreNotSqlite)
{
    QTemporaryDir dir;
    struct Case {
        const char* name;
        QByteArray bytes;
        const char* expected;
    };
    const QByteArray padding(2048, '\0');
    const std::vector<Case> cases = {
        {"jet3.mdb", QByteArray("\x00\x01\x00\x00Standard Jet DB\x00", 20) + padding, "Microsoft Access (Jet)"},
        {"ace.accdb", QByteArray("\x00\x01\x00\x00Standard ACE DB\x00", 20) + padding, "Microsoft Access (Jet)"},
        {"notes.mdb", QByteArray("just some text, not a database\n"), "not an SQLite database"},
        {"empty.mdb", QByteArray(), "not an SQLite database"},
    };
    for (const Case& tc : cases) {
        SCOPED_TRACE(tc.name);
        const QString path = dir.filePath(QString::fromLatin1(tc.name));
        writeFile(path, tc.bytes);
        Connection c;
        const QString description = descriptionOf([&] { c.Open(jetString(path)); });
        EXPECT_TRUE(description.contains(QLatin1String(tc.expected))) << description.toStdString();
        EXPECT_TRUE(description.contains(path)) << description.toStdString();
        EXPECT_FALSE(c.IsOpen());
        // The file is left exactly as it was.
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::ReadOnly));
        EXPECT_EQ(f.readAll(), tc.bytes);
    }
}

TEST(ConnectionFileTest, ProvidersAndDataSources)
{
    Connection c;
    EXPECT_EQ(descriptionOf([&] { c.Open(QStringLiteral("PROVIDER=SQLOLEDB;Data Source=server;")); }),
              QStringLiteral("Provider cannot be found. It may not be properly installed."));
    // An unknown data source fails with the driver manager's text. (For an
    // empty name unixODBC may try an installed driver, whose text it is then.)
    const QString empty = descriptionOf([&] { c.Open(QStringLiteral("PROVIDER=MSDASQL;DSN=")); });
    EXPECT_NE(empty, QStringLiteral("<no error>"));
    EXPECT_FALSE(empty.isEmpty());
    EXPECT_FALSE(c.IsOpen());
    EXPECT_TRUE(descriptionOf([&] { c.Open(QStringLiteral("PROVIDER=MSDASQL;DSN=NoSuchSource")); })
                    .contains(QLatin1String("Data source name not found")));
    EXPECT_FALSE(c.IsOpen());
    EXPECT_EQ(descriptionOf([&] { c.Execute(QStringLiteral("SELECT 1")); }),
              QStringLiteral("Operation is not allowed when the object is closed."));
}

// File names as users choose them: a ";" or a quote in the path, blanks
// at its ends.
TEST(ConnectionFileTest, AnyFilePathOpensThroughItsConnectionString)
{
    QTemporaryDir dir;
    for (const QString& name : {QStringLiteral("Semi;colon.mdb"), QStringLiteral("\"Quoted\" it's.mdb"),
                                QStringLiteral(" blank ends .mdb"), QStringLiteral("plain.mdb")}) {
        const QString path = dir.filePath(name);
        ASSERT_NO_THROW(Connection::CreateDatabaseFile(path));
        Connection c;
        EXPECT_EQ(descriptionOf([&] { c.Open(FileConnectionString(path)); }), QStringLiteral("<no error>"))
            << name.toStdString();
        EXPECT_TRUE(c.IsOpen());
    }
    // A path that needs no quotes is written as the suite writes it.
    EXPECT_EQ(FileConnectionString(QStringLiteral("C:\\db\\Zentrix.mdb")),
              QStringLiteral("PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=C:\\db\\Zentrix.mdb;"));
}

// What the program shows of a connection string: the database it names,
// and the string with every password masked, however it is written.
TEST(ConnectionStringTest, NamesTheDatabaseAndMasksPasswords)
{
    struct Case {
        const char* given;
        const char* masked;
        const char* source;
        bool isFile;
    };
    const Case cases[] = {
        {"PROVIDER=MSDASQL;DSN=zentrix", "PROVIDER=MSDASQL;DSN=zentrix", "zentrix", false},
        {"PROVIDER=MSDASQL;DSN=zentrix;UID=admin;PWD=s3cret", "PROVIDER=MSDASQL;DSN=zentrix;UID=admin;PWD=********",
         "zentrix", false},
        {"PROVIDER=MSDASQL;DSN=z;pwd=a;Password = b;UID=c", "PROVIDER=MSDASQL;DSN=z;pwd=********;Password = ********;UID=c",
         "z", false},
        // ODBC braces may hold semicolons; quotes likewise.
        {"PROVIDER=MSDASQL;DSN=z;PWD={se;cr}}et};UID=u", "PROVIDER=MSDASQL;DSN=z;PWD=********;UID=u", "z", false},
        {"PROVIDER=MSDASQL;DSN=z;Passwd=\"a;\"\"b\"", "PROVIDER=MSDASQL;DSN=z;Passwd=********", "z", false},
        {"PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=/db\\Z.mdb;Jet OLEDB:Database Password=x;",
         "PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=/db\\Z.mdb;Jet OLEDB:Database Password=********;", "/db\\Z.mdb",
         true},
        {"PROVIDER=MSDASQL;DSN=", "PROVIDER=MSDASQL;DSN=", "", false},
        {"PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=\"/db/Semi;colon.mdb\";",
         "PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=\"/db/Semi;colon.mdb\";", "/db/Semi;colon.mdb", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.given);
        const QString given = QString::fromLatin1(c.given);
        EXPECT_EQ(MaskPasswords(given), QString::fromLatin1(c.masked));
        EXPECT_EQ(ConnectionDataSource(given).name, QString::fromLatin1(c.source));
        EXPECT_EQ(ConnectionDataSource(given).isFile, c.isFile);
    }
}

TEST(DialectTest, TranslatesJetSyntaxOutsideLiterals)
{
    struct Case {
        const char* jet;
        const char* sqlite;
        const char* postgres;
    };
    const std::vector<Case> cases = {
        {"DELETE * FROM tObject WHERE iObjectWindowKey = 3", "DELETE FROM tObject WHERE iObjectWindowKey = 3",
         "DELETE FROM tObject WHERE iObjectWindowKey = 3"},
        {"  delete   *from tStep", "DELETE FROM tStep", "DELETE FROM tStep"},
        {"SELECT * FROM [tField] WHERE [iFieldLen] > 1", "SELECT * FROM [tField] WHERE [iFieldLen] > 1",
         "SELECT * FROM tfield WHERE ifieldlen > 1"},
        {"SELECT * FROM tWindow WHERE sWindowPhysicalName = '[System Screen]'",
         "SELECT * FROM tWindow WHERE sWindowPhysicalName = '[System Screen]'",
         "SELECT * FROM tWindow WHERE sWindowPhysicalName = '[System Screen]'"},
        {"SELECT * FROM [Data Table] WHERE s = 'O''Neil [x]' AND [t]=1",
         "SELECT * FROM [Data Table] WHERE s = 'O''Neil [x]' AND [t]=1",
         "SELECT * FROM \"Data Table\" WHERE s = 'O''Neil [x]' AND t=1"},
        {"SELECT * FROM t WHERE s = 'DELETE * FROM t'", "SELECT * FROM t WHERE s = 'DELETE * FROM t'",
         "SELECT * FROM t WHERE s = 'DELETE * FROM t'"},
    };
    for (const Case& tc : cases) {
        SCOPED_TRACE(tc.jet);
        EXPECT_EQ(SqliteDialect().Translate(QString::fromLatin1(tc.jet)), QString::fromLatin1(tc.sqlite));
        EXPECT_EQ(PostgresDialect().Translate(QString::fromLatin1(tc.jet)), QString::fromLatin1(tc.postgres));
    }
}

// --- Both backends --------------------------------------------------------

class ConnectionTest : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        db = std::make_unique<TestDatabase>(GetParam());
        DB_ASSERT(conn.Open(db->connectionString()));
        DB_ASSERT(conn.Execute(QStringLiteral("CREATE TABLE tItem (iItemKey %1, sItemName %2, iItemCount integer)")
                                   .arg(db->autoKeyType(), db->textType())));
    }

    void add(const QString& name, int count = 0)
    {
        Recordset rs(QStringLiteral("SELECT * FROM tItem WHERE iItemKey=0"), conn);
        rs.AddNew();
        rs.SetValue(QStringLiteral("sItemName"), name);
        rs.SetValue(QStringLiteral("iItemCount"), count);
        rs.Update();
    }

    qint32 count(Connection& c, const QString& where = QString())
    {
        Recordset rs(QStringLiteral("SELECT * FROM tItem ") + where, c);
        return rs.RecordCount();
    }

    std::unique_ptr<TestDatabase> db;
    Connection conn;
};

TEST_P(ConnectionTest, ExecuteReportsAffectedRowsAndTranslatesJetSyntax)
{
    DB_ASSERT(add(QStringLiteral("alpha")));
    DB_ASSERT(add(QStringLiteral("beta")));
    DB_ASSERT(add(QStringLiteral("[bracketed]")));
    DB_ASSERT(add(QStringLiteral("DELETE * FROM tItem")));

    // Brackets name columns and tables, but not inside a literal.
    EXPECT_EQ(count(conn, QStringLiteral("WHERE [sItemName] = '[BRACKETED]'")), 1);
    qint64 affected = -2;
    DB_ASSERT(affected = conn.Execute(QStringLiteral("UPDATE [tItem] SET [iItemCount] = 5 WHERE sItemName <> 'alpha'")));
    EXPECT_EQ(affected, 3);

    DB_ASSERT(affected = conn.Execute(QStringLiteral("DELETE * FROM tItem WHERE sItemName = 'DELETE * FROM tItem'")));
    EXPECT_EQ(affected, 1);
    DB_ASSERT(affected = conn.Execute(QStringLiteral("delete * from [tItem] where [iItemCount]=5")));
    EXPECT_EQ(affected, 2);
    EXPECT_EQ(count(conn), 1);
}

TEST_P(ConnectionTest, ErrorsCarryTheDatabaseText)
{
    const QString syntax = descriptionOf([&] { conn.Execute(QStringLiteral("SELEC 1")); });
    EXPECT_TRUE(syntax.contains(QLatin1String("syntax error"))) << syntax.toStdString();
    EXPECT_TRUE(syntax.contains(QLatin1String("SELEC"))) << syntax.toStdString();

    const QString table = descriptionOf([&] { conn.Execute(QStringLiteral("DELETE * FROM tNothing")); });
    EXPECT_TRUE(table.contains(QLatin1String("tnothing"), Qt::CaseInsensitive)) << table.toStdString();
    EXPECT_TRUE(table.contains(QLatin1String("no such table")) || table.contains(QLatin1String("does not exist")))
        << table.toStdString();

    // A record set reports it on its first read, with the same text.
    Recordset rs(QStringLiteral("SELECT * FROM tNothing WHERE iNothingKey = 1"), conn);
    const QString read = descriptionOf([&] { rs.Eof(); });
    EXPECT_TRUE(read.contains(QLatin1String("tnothing"), Qt::CaseInsensitive)) << read.toStdString();

    // The connection stays usable.
    DB_ASSERT(add(QStringLiteral("after")));
    EXPECT_EQ(count(conn), 1);
}

TEST_P(ConnectionTest, RollbackAfterAFailedStatementRemovesEverything)
{
    DB_ASSERT(conn.BeginTrans());
    DB_ASSERT(add(QStringLiteral("first")));
    EXPECT_THROW(conn.Execute(QStringLiteral("INSERT INTO tNothing (x) VALUES (1)")), DbError);
    // The transaction goes on after the failure (on PostgreSQL only the
    // failed statement was undone) until the caller rolls it back.
    DB_ASSERT(add(QStringLiteral("second")));
    EXPECT_TRUE(conn.InTransaction());
    DB_ASSERT(conn.RollbackTrans());
    EXPECT_EQ(count(conn), 0);
}

TEST_P(ConnectionTest, TransactionCallsOutOfOrderFail)
{
    EXPECT_EQ(descriptionOf([&] { conn.CommitTrans(); }), QStringLiteral("No transaction is active."));
    EXPECT_EQ(descriptionOf([&] { conn.RollbackTrans(); }), QStringLiteral("No transaction is active."));
    DB_ASSERT(conn.BeginTrans());
    EXPECT_EQ(descriptionOf([&] { conn.BeginTrans(); }),
              QStringLiteral("Cannot start more transactions on this session."));
    DB_ASSERT(add(QStringLiteral("still in the first")));
    DB_ASSERT(conn.RollbackTrans());
    EXPECT_EQ(count(conn), 0);

    // Closing with an open transaction rolls it back.
    DB_ASSERT(conn.BeginTrans());
    DB_ASSERT(add(QStringLiteral("never committed")));
    conn.Close();
    DB_ASSERT(conn.Open(db->connectionString()));
    EXPECT_EQ(count(conn), 0);
}

TEST_P(ConnectionTest, DataSourceTextIsPassedOnAsItStands)
{
    if (!db->isOdbc())
        GTEST_SKIP() << "ODBC only";
    Connection c;
    DB_ASSERT(c.Open(db->connectionString() + QLatin1Char(';')));
    EXPECT_EQ(c.backend(), BackendKind::Odbc);
    EXPECT_EQ(count(c), 0);
}

INSTANTIATE_TEST_SUITE_P(Backends, ConnectionTest, ::testing::ValuesIn(TestBackends()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });
