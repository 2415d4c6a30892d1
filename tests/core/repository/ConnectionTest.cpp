#include "core/repository/Dialect.h"
#include "core/repository/RepositoryFixture.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

using namespace dorvane;
using namespace dorvane::test;

static QString jetString(const QString& file) { return u"PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=%1;"_s.arg(file); }

// --- Opening files: no backend needed -------------------------------------

TEST(ConnectionFileTest, OpenFailuresNameTheirCauseAndCreateNothing)
{
    QTemporaryDir dir;
    // The connection string carries a Windows-style path; the message
    // repeats it as given.
    const QString given = dir.path() + u"\\Missing.mdb"_s;
    Connection c;
    EXPECT_EQ(descriptionOf([&] { c.Open(jetString(given)); }), u"Could not find file '%1'."_s.arg(given));
    EXPECT_EQ(descriptionOf([&] { c.OpenFile(dir.path() + u"/UserData.mdb"_s); }), u"Could not find file '%1/UserData.mdb'."_s.arg(dir.path()));
    EXPECT_TRUE(QDir(dir.path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries).isEmpty());
    EXPECT_EQ(descriptionOf([&] { c.Open(u"PROVIDER=SQLOLEDB;Data Source=server;"_s); }),
              u"Provider cannot be found. It may not be properly installed."_s);
    // An unknown data source fails with the driver manager's text. (For an
    // empty name unixODBC may try an installed driver, whose text it is then.)
    const QString empty = descriptionOf([&] { c.Open(u"PROVIDER=MSDASQL;DSN="_s); });
    EXPECT_TRUE(empty != u"<no error>"_s && !empty.isEmpty());
    EXPECT_TRUE(descriptionOf([&] { c.Open(u"PROVIDER=MSDASQL;DSN=NoSuchSource"_s); }).contains(u"Data source name not found"_s));
    EXPECT_EQ(descriptionOf([&] { c.Execute(u"SELECT 1"_s); }), u"Operation is not allowed when the object is closed."_s);
}

TEST(ConnectionFileTest, RefusesFilesThatAreNotSqlite)
{
    QTemporaryDir dir;
    const QByteArray padding(2048, '\0');
    const struct { const char* name; QByteArray bytes; const char* expected; } cases[] = {
        {"jet3.mdb", QByteArray("\x00\x01\x00\x00Standard Jet DB\x00", 20) + padding, "Microsoft Access (Jet)"},
        {"ace.accdb", QByteArray("\x00\x01\x00\x00Standard ACE DB\x00", 20) + padding, "Microsoft Access (Jet)"},
        {"notes.mdb", QByteArray("just some text, not a database\n"), "not an SQLite database"},
        {"empty.mdb", QByteArray(), "not an SQLite database"},
    };
    for (const auto& tc : cases) {
        SCOPED_TRACE(tc.name);
        const QString file = dir.filePath(QString::fromLatin1(tc.name));
        ASSERT_TRUE(WriteFile(file, tc.bytes));
        Connection c;
        const QString description = descriptionOf([&] { c.Open(jetString(file)); });
        EXPECT_TRUE(description.contains(QLatin1String(tc.expected)) && description.contains(file)) << description.toStdString();
        EXPECT_FALSE(c.IsOpen());
        // The file is left exactly as it was.
        EXPECT_EQ(ReadFile(file), tc.bytes);
    }
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
    }
    // A path that needs no quotes is written as the suite writes it.
    EXPECT_EQ(FileConnectionString(u"C:\\db\\Zentrix.mdb"_s), jetString(u"C:\\db\\Zentrix.mdb"_s));
}

// What the program shows of a connection string: the database it names,
// and the string with every password masked, however it is written.
TEST(ConnectionStringTest, NamesTheDatabaseAndMasksPasswords)
{
    const struct { const char* given; const char* masked; const char* source; bool isFile; } cases[] = {
        {"PROVIDER=MSDASQL;DSN=zentrix", "PROVIDER=MSDASQL;DSN=zentrix", "zentrix", false},
        {"PROVIDER=MSDASQL;DSN=zentrix;UID=admin;PWD=s3cret", "PROVIDER=MSDASQL;DSN=zentrix;UID=admin;PWD=********", "zentrix", false},
        {"PROVIDER=MSDASQL;DSN=z;pwd=a;Password = b;UID=c", "PROVIDER=MSDASQL;DSN=z;pwd=********;Password = ********;UID=c", "z", false},
        // ODBC braces may hold semicolons; quotes likewise.
        {"PROVIDER=MSDASQL;DSN=z;PWD={se;cr}}et};UID=u", "PROVIDER=MSDASQL;DSN=z;PWD=********;UID=u", "z", false},
        {"PROVIDER=MSDASQL;DSN=z;Passwd=\"a;\"\"b\"", "PROVIDER=MSDASQL;DSN=z;Passwd=********", "z", false},
        {"PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=/db\\Z.mdb;Jet OLEDB:Database Password=x;",
         "PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=/db\\Z.mdb;Jet OLEDB:Database Password=********;", "/db\\Z.mdb", true},
        {"PROVIDER=MSDASQL;DSN=", "PROVIDER=MSDASQL;DSN=", "", false},
        {"PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=\"/db/Semi;colon.mdb\";",
         "PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=\"/db/Semi;colon.mdb\";", "/db/Semi;colon.mdb", true},
    };
    for (const auto& c : cases) {
        const QString given = QString::fromLatin1(c.given);
        EXPECT_EQ(std::tuple(MaskPasswords(given), ConnectionDataSource(given).name, ConnectionDataSource(given).isFile),
                  std::tuple(QString::fromLatin1(c.masked), QString::fromLatin1(c.source), c.isFile)) << c.given;
    }
}

TEST(DialectTest, TranslatesJetSyntaxOutsideLiterals)
{
    // nullptr: as given.
    const struct { const char* jet; const char* sqlite; const char* postgres; } cases[] = {
        {"DELETE * FROM tObject WHERE iObjectWindowKey = 3", "DELETE FROM tObject WHERE iObjectWindowKey = 3", "DELETE FROM tObject WHERE iObjectWindowKey = 3"},
        {"  delete   *from tStep", "DELETE FROM tStep", "DELETE FROM tStep"},
        {"SELECT * FROM [tField] WHERE [iFieldLen] > 1", nullptr, "SELECT * FROM tfield WHERE ifieldlen > 1"},
        {"SELECT * FROM [Data Table] WHERE s = 'O''Neil [x]' AND [t]=1", nullptr, "SELECT * FROM \"Data Table\" WHERE s = 'O''Neil [x]' AND t=1"},
    };
    for (const auto& tc : cases) {
        const QString jet = QString::fromLatin1(tc.jet);
        EXPECT_EQ(SqliteDialect().Translate(jet), tc.sqlite ? QString::fromLatin1(tc.sqlite) : jet) << tc.jet;
        EXPECT_EQ(PostgresDialect().Translate(jet), tc.postgres ? QString::fromLatin1(tc.postgres) : jet) << tc.jet;
    }
}

// --- Both backends --------------------------------------------------------

class ConnectionTest : public ItemTest {
protected:
    qint32 items(const QString& where = QString()) { return count(u"SELECT * FROM tItem "_s + where); }
};

TEST_P(ConnectionTest, ExecuteReportsAffectedRowsTranslatesJetSyntaxAndCarriesTheDatabasesErrors)
{
    DB_ASSERT(for (const QString& name : {u"alpha"_s, u"beta"_s, u"[bracketed]"_s, u"DELETE * FROM tItem"_s}) add(name));
    // Brackets name columns and tables, but not inside a literal.
    EXPECT_EQ(items(u"WHERE [sItemName] = '[BRACKETED]'"_s), 1);
    qint64 updated = -2, deleted = -2, bracketed = -2;
    DB_ASSERT(updated = conn.Execute(u"UPDATE [tItem] SET [iItemCount] = 5 WHERE sItemName <> 'alpha'"_s));
    DB_ASSERT(deleted = conn.Execute(u"DELETE * FROM tItem WHERE sItemName = 'DELETE * FROM tItem'"_s));
    DB_ASSERT(bracketed = conn.Execute(u"delete * from [tItem] where [iItemCount]=5"_s));
    EXPECT_EQ(std::tuple(updated, deleted, bracketed, items()), std::tuple(3, 1, 2, 1));

    // Errors carry the database's text.
    const QString syntax = descriptionOf([&] { conn.Execute(u"SELEC 1"_s); });
    EXPECT_TRUE(syntax.contains(u"syntax error"_s) && syntax.contains(u"SELEC"_s)) << syntax.toStdString();
    const QString table = descriptionOf([&] { conn.Execute(u"DELETE * FROM tNothing"_s); });
    EXPECT_TRUE(table.contains(u"tnothing"_s, Qt::CaseInsensitive) && (table.contains(u"no such table"_s) || table.contains(u"does not exist"_s))) << table.toStdString();
    // As a value: the failing statement, the database's own text and its code.
    try {
        conn.Execute(u"DELETE * FROM tNothing"_s);
        ADD_FAILURE() << "no error raised";
    } catch (const DbError& e) {
        EXPECT_TRUE(e.statement() == u"DELETE FROM tNothing"_s && !e.databaseText().isEmpty() && !e.code().isEmpty())
            << e.statement().toStdString() << " / " << e.databaseText().toStdString() << " / " << e.code().toStdString();
    }

    // A record set reports it on its first read, with the same text.
    Recordset rs(u"SELECT * FROM tNothing WHERE iNothingKey = 1"_s, conn);
    const QString read = descriptionOf([&] { rs.Eof(); });
    EXPECT_TRUE(read.contains(u"tnothing"_s, Qt::CaseInsensitive)) << read.toStdString();

    // SQLite's refusal to write a read-only file names the file, both for
    // a statement and for a record set's new row.
    if (!db->isOdbc()) {
        DB_ASSERT(conn.Execute(u"PRAGMA query_only = ON"_s));
        const QString readonly = u"attempt to write a readonly database: the file '"_s + db->tempPath() + u'/';
        for (const QString& text : {descriptionOf([&] { conn.Execute(u"DELETE FROM tItem"_s); }), descriptionOf([&] { add(u"refused"_s); })})
            EXPECT_TRUE(text.startsWith(readonly) && text.endsWith(u".mdb' (or its folder, which holds the file's -wal and -shm files) cannot be written"_s))
                << text.toStdString();
        DB_ASSERT(conn.Execute(u"PRAGMA query_only = OFF"_s));
    }

    // The connection stays usable.
    DB_ASSERT(add(u"after"_s));
    EXPECT_EQ(items(), 2);
}

TEST_P(ConnectionTest, TransactionsRollBackAfterFailuresAndCallsOutOfOrderFail)
{
    DB_ASSERT(conn.BeginTrans(); add(u"first"_s));
    EXPECT_THROW(conn.Execute(u"INSERT INTO tNothing (x) VALUES (1)"_s), DbError);
    // The transaction goes on after the failure (on PostgreSQL only the
    // failed statement was undone) until the caller rolls it back.
    DB_ASSERT(add(u"second"_s));
    EXPECT_EQ(descriptionOf([&] { conn.BeginTrans(); }), u"Cannot start more transactions on this session."_s);
    DB_ASSERT(add(u"still in the first"_s); conn.RollbackTrans());
    EXPECT_EQ(items(), 0);
    EXPECT_EQ(std::pair(descriptionOf([&] { conn.CommitTrans(); }), descriptionOf([&] { conn.RollbackTrans(); })), std::pair(u"No transaction is active."_s, u"No transaction is active."_s));

    // Closing with an open transaction rolls it back.
    DB_ASSERT(conn.BeginTrans(); add(u"never committed"_s));
    conn.Close();
    DB_ASSERT(conn.Open(db->connectionString()));
    EXPECT_EQ(items(), 0);

    // A data source's text with settings of its own is passed on as it stands.
    Connection c;
    DB_ASSERT(c.Open(db->connectionString() + QLatin1Char(';')));
    EXPECT_TRUE(c.backend() == (db->isOdbc() ? BackendKind::Odbc : BackendKind::Sqlite) && count(u"SELECT * FROM tItem"_s, &c) == 0);
}

INSTANTIATE_TEST_SUITE_P(Backends, ConnectionTest, ::testing::ValuesIn(TestBackends()), backendName);
