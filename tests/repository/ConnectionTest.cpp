#include "repository/Connection.h"
#include "repository/Dialect.h"
#include "repository/Recordset.h"
#include "repository/RepositoryFixture.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <functional>

using namespace Qt::StringLiterals;

using namespace dorvane;
using namespace dorvane::test;

namespace {

QString jetString(const QString& file)
{
    return u"PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=%1;"_s.arg(file);
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
    const QString given = dir.path() + u"\\Missing.mdb"_s;
    Connection c;
    EXPECT_EQ(descriptionOf([&] { c.Open(jetString(given)); }), u"Could not find file '%1'."_s.arg(given));
    EXPECT_FALSE(c.IsOpen());
    EXPECT_TRUE(QDir(dir.path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries).isEmpty());

    EXPECT_EQ(descriptionOf([&] { c.OpenFile(dir.path() + u"/UserData.mdb"_s); }),
              u"Could not find file '%1/UserData.mdb'."_s.arg(dir.path()));
    EXPECT_FALSE(QFile::exists(dir.path() + u"/UserData.mdb"_s));
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
    EXPECT_EQ(descriptionOf([&] { c.Open(u"PROVIDER=SQLOLEDB;Data Source=server;"_s); }),
              u"Provider cannot be found. It may not be properly installed."_s);
    // An unknown data source fails with the driver manager's text. (For an
    // empty name unixODBC may try an installed driver, whose text it is then.)
    const QString empty = descriptionOf([&] { c.Open(u"PROVIDER=MSDASQL;DSN="_s); });
    EXPECT_NE(empty, u"<no error>"_s);
    EXPECT_FALSE(empty.isEmpty());
    EXPECT_FALSE(c.IsOpen());
    EXPECT_TRUE(descriptionOf([&] { c.Open(u"PROVIDER=MSDASQL;DSN=NoSuchSource"_s); }).contains(u"Data source name not found"_s));
    EXPECT_FALSE(c.IsOpen());
    EXPECT_EQ(descriptionOf([&] { c.Execute(u"SELECT 1"_s); }), u"Operation is not allowed when the object is closed."_s);
}

// File names as users choose them: a ";" or a quote in the path, blanks
// at its ends.
TEST(ConnectionFileTest, AnyFilePathOpensThroughItsConnectionString)
{
    QTemporaryDir dir;
    for (const QString& name : {u"Semi;colon.mdb"_s, u"\"Quoted\" it's.mdb"_s, u" blank ends .mdb"_s, u"plain.mdb"_s}) {
        const QString path = dir.filePath(name);
        ASSERT_NO_THROW(Connection::CreateDatabaseFile(path));
        Connection c;
        EXPECT_EQ(descriptionOf([&] { c.Open(FileConnectionString(path)); }), u"<no error>"_s) << name.toStdString();
        EXPECT_TRUE(c.IsOpen());
    }
    // A path that needs no quotes is written as the suite writes it.
    EXPECT_EQ(FileConnectionString(u"C:\\db\\Zentrix.mdb"_s),
              u"PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=C:\\db\\Zentrix.mdb;"_s);
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
        DB_ASSERT(conn.Execute(
            u"CREATE TABLE tItem (iItemKey %1, sItemName %2, iItemCount integer)"_s.arg(db->autoKeyType(), db->textType())));
    }

    void add(const QString& name, int count = 0)
    {
        Recordset rs(u"SELECT * FROM tItem WHERE iItemKey=0"_s, conn);
        rs.AddNew();
        rs.SetValue(u"sItemName"_s, name);
        rs.SetValue(u"iItemCount"_s, count);
        rs.Update();
    }

    qint32 count(Connection& c, const QString& where = QString())
    {
        Recordset rs(u"SELECT * FROM tItem "_s + where, c);
        return rs.RecordCount();
    }

    std::unique_ptr<TestDatabase> db;
    Connection conn;
};

TEST_P(ConnectionTest, ExecuteReportsAffectedRowsAndTranslatesJetSyntax)
{
    DB_ASSERT(add(u"alpha"_s));
    DB_ASSERT(add(u"beta"_s));
    DB_ASSERT(add(u"[bracketed]"_s));
    DB_ASSERT(add(u"DELETE * FROM tItem"_s));

    // Brackets name columns and tables, but not inside a literal.
    EXPECT_EQ(count(conn, u"WHERE [sItemName] = '[BRACKETED]'"_s), 1);
    qint64 affected = -2;
    DB_ASSERT(affected = conn.Execute(u"UPDATE [tItem] SET [iItemCount] = 5 WHERE sItemName <> 'alpha'"_s));
    EXPECT_EQ(affected, 3);

    DB_ASSERT(affected = conn.Execute(u"DELETE * FROM tItem WHERE sItemName = 'DELETE * FROM tItem'"_s));
    EXPECT_EQ(affected, 1);
    DB_ASSERT(affected = conn.Execute(u"delete * from [tItem] where [iItemCount]=5"_s));
    EXPECT_EQ(affected, 2);
    EXPECT_EQ(count(conn), 1);
}

TEST_P(ConnectionTest, ErrorsCarryTheDatabaseText)
{
    const QString syntax = descriptionOf([&] { conn.Execute(u"SELEC 1"_s); });
    EXPECT_TRUE(syntax.contains(u"syntax error"_s)) << syntax.toStdString();
    EXPECT_TRUE(syntax.contains(u"SELEC"_s)) << syntax.toStdString();

    const QString table = descriptionOf([&] { conn.Execute(u"DELETE * FROM tNothing"_s); });
    EXPECT_TRUE(table.contains(u"tnothing"_s, Qt::CaseInsensitive)) << table.toStdString();
    EXPECT_TRUE(table.contains(u"no such table"_s) || table.contains(u"does not exist"_s)) << table.toStdString();

    // A record set reports it on its first read, with the same text.
    Recordset rs(u"SELECT * FROM tNothing WHERE iNothingKey = 1"_s, conn);
    const QString read = descriptionOf([&] { rs.Eof(); });
    EXPECT_TRUE(read.contains(u"tnothing"_s, Qt::CaseInsensitive)) << read.toStdString();

    // The connection stays usable.
    DB_ASSERT(add(u"after"_s));
    EXPECT_EQ(count(conn), 1);
}

TEST_P(ConnectionTest, RollbackAfterAFailedStatementRemovesEverything)
{
    DB_ASSERT(conn.BeginTrans());
    DB_ASSERT(add(u"first"_s));
    EXPECT_THROW(conn.Execute(u"INSERT INTO tNothing (x) VALUES (1)"_s), DbError);
    // The transaction goes on after the failure (on PostgreSQL only the
    // failed statement was undone) until the caller rolls it back.
    DB_ASSERT(add(u"second"_s));
    EXPECT_TRUE(conn.InTransaction());
    DB_ASSERT(conn.RollbackTrans());
    EXPECT_EQ(count(conn), 0);
}

TEST_P(ConnectionTest, TransactionCallsOutOfOrderFail)
{
    EXPECT_EQ(descriptionOf([&] { conn.CommitTrans(); }), u"No transaction is active."_s);
    EXPECT_EQ(descriptionOf([&] { conn.RollbackTrans(); }), u"No transaction is active."_s);
    DB_ASSERT(conn.BeginTrans());
    EXPECT_EQ(descriptionOf([&] { conn.BeginTrans(); }), u"Cannot start more transactions on this session."_s);
    DB_ASSERT(add(u"still in the first"_s));
    DB_ASSERT(conn.RollbackTrans());
    EXPECT_EQ(count(conn), 0);

    // Closing with an open transaction rolls it back.
    DB_ASSERT(conn.BeginTrans());
    DB_ASSERT(add(u"never committed"_s));
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
