#include "core/applications/ApplicationRecords.h"
#include "core/applications/SystemScreen.h"
#include "core/installation/DataFiles.h"
#include "core/installation/Installation.h"
#include "core/repository/Schema.h"
#include "core/repository/RepositoryFixture.h"

#include <QDate>
#include <QDateTime>
#include <QFile>
#include <QTime>

namespace dorvane {
namespace {

using test::addRow;
using test::Rows;
using test::TestBackends;

using DataFilesTest = test::BackendTest;

// The tutorial's rows keep the keys its data files give them (the rows
// that refer to them are checked by TutorialTest and used by the window
// and command tests).
TEST_P(DataFilesTest, TheTutorialKeepsItsKeysAndItsSystemScreensAreThoseTheProgramMakes)
{
    DB_ASSERT(BuildDatabase(conn, SchemaVariant::Repository, RepositoryContent::Tutorial));
    // Each version's system screen has the keys the other rows refer to,
    // and is what the version editor makes for a new version of its
    // application.
    EXPECT_EQ(Rows(conn, u"SELECT w.iWindowVerKey, w.iWindowKey, o.iObjectKey, w.iWindowClassKey FROM tWindow w, tObject o "
                         "WHERE o.iObjectWindowKey = w.iWindowKey AND w.sWindowPhysicalName = '[System Screen]' ORDER BY w.iWindowVerKey"_s),
              (QStringList{u"1|1|1|0"_s, u"2|4|5|0"_s, u"3|9|14|1"_s, u"4|13|19|100"_s}));
    const QString window = u"SELECT * FROM tWindow WHERE iWindowVerKey = %1 AND sWindowPhysicalName = '[System Screen]'"_s;
    const QString object = u"SELECT * FROM tObject WHERE iObjectVersionKey = %1 AND iObjectWindowKey IN "
                           "(SELECT iWindowKey FROM tWindow WHERE sWindowPhysicalName = '[System Screen]')"_s;
    const QStringList windowKeys = {u"iWindowKey"_s, u"iWindowVerKey"_s};
    const QStringList objectKeys = {u"iObjectKey"_s, u"iObjectWindowKey"_s, u"iObjectVersionKey"_s};
    for (int version = 1; version <= 4; ++version) {
        SCOPED_TRACE(version);
        const QStringList app = Rows(conn, u"SELECT a.iAppKey, a.iAppPlatform FROM tApp a, tVersion v WHERE a.iAppKey = v.iVersionAppKey "
                                           "AND v.iVersionKey = %1"_s.arg(version)).value(0).split(u'|');
        ASSERT_EQ(app.size(), 2);
        qint32 made = 0;
        DB_ASSERT(made = addRow(conn, u"SELECT * FROM tVersion WHERE 1=0"_s, {{u"iVersionAppKey"_s, app[0].toInt()}, {u"sVersionID"_s, u"new"_s}});
                  CreateSystemScreen(conn, made, PlatformIsHost(conn, app[1].toInt()), app[1].toInt()));
        EXPECT_EQ(Rows(conn, window.arg(version), windowKeys), Rows(conn, window.arg(made), windowKeys));
        const QStringList objects = Rows(conn, object.arg(version), objectKeys);
        EXPECT_TRUE(objects.size() == 1 && objects == Rows(conn, object.arg(made), objectKeys));
    }
}

TEST_P(DataFilesTest, RowsTheProgramAddsAfterTheLoadGetKeysAboveTheLoadedOnes)
{
    DB_ASSERT(BuildDatabase(conn, SchemaVariant::Repository, RepositoryContent::Tutorial));
    int tables = 0;
    for (const TableDef& table : RepositoryTables()) {
        SCOPED_TRACE(table.name.toStdString());
        const qint32 highest = Rows(conn, u"SELECT MAX(%1) AS high FROM %2"_s.arg(table.key, table.name)).value(0).toInt();
        if (highest == 0)
            continue;
        // Any column but the key, with a value of its type.
        const QString column = table.columns.at(1);
        QVariant value = QVariant(0);
        if (ColumnTypeOf(column) == ColumnType::Text || ColumnTypeOf(column) == ColumnType::Memo)
            value = u"new"_s;
        else if (ColumnTypeOf(column) == ColumnType::DateTime)
            value = QDateTime(QDate(2025, 1, 2), QTime(3, 4));
        qint32 key = 0;
        DB_ASSERT(key = addRow(conn, u"SELECT * FROM %1 WHERE 1=0"_s.arg(table.name), {{column, value}}));
        EXPECT_GT(key, highest);
        ++tables;
    }
    EXPECT_EQ(tables, int(RepositoryTables().size()));
}

TEST_P(DataFilesTest, ValuesAreStoredAsTheProgramStoresThemAndAValueOfAnotherTypeIsNamed)
{
    DB_ASSERT(BuildDatabase(conn, SchemaVariant::Repository, RepositoryContent::ReferenceData));
    const auto load = [&](const QByteArray& text) {
        EXPECT_TRUE(test::WriteFile(db->tempPath() + u"/data.json"_s, text));
        return test::descriptionOf([&] { LoadDataFile(conn, db->tempPath() + u"/data.json"_s); });
    };
    EXPECT_EQ(load(R"({"about": "two rows", "sections": [
        {"table": "tFileInstance", "columns": ["iFileInstanceKey", "iFileInstanceRecordKey", "sFileInstanceName", "sFileInstanceDesc",
                                               "dFileInstanceCreated", "dFileInstanceCreatedBy", "dFileInstanceModified"],
         "rows": [[7, -2, "a\tb\r\nc \\ \"d\"", "", "2024-02-21 11:00:00", "Jane", null]]},
        {"table": "tEnvironmentUser", "columns": ["iEnvironmentUserKey", "bDorvane", "bVantrel", "bOmrik"], "rows": [[5, true, false, null]]}]})"),
              u"<no error>"_s);
    // The same rows as the program writes them.
    DB_ASSERT(addRow(conn, u"SELECT * FROM tFileInstance WHERE 1=0"_s,
                     {{u"iFileInstanceKey"_s, 8}, {u"iFileInstanceRecordKey"_s, -2}, {u"sFileInstanceName"_s, u"a\tb\r\nc \\ \"d\""_s},
                      {u"sFileInstanceDesc"_s, QString()}, {u"dFileInstanceCreated"_s, QDateTime(QDate(2024, 2, 21), QTime(11, 0))},
                      {u"dFileInstanceCreatedBy"_s, u"Jane"_s}, {u"dFileInstanceModified"_s, QVariant()}});
              addRow(conn, u"SELECT * FROM tEnvironmentUser WHERE 1=0"_s,
                     {{u"iEnvironmentUserKey"_s, 6}, {u"bDorvane"_s, -1}, {u"bVantrel"_s, 0}, {u"bOmrik"_s, QVariant()}}));
    for (const QString& table : {u"tFileInstance"_s, u"tEnvironmentUser"_s}) {
        const TableDef& def = *FindTable(table);
        const QStringList rows = Rows(conn, table, {def.key});
        ASSERT_EQ(rows.size(), 2);
        EXPECT_EQ(rows[0], rows[1]) << table.toStdString();
    }
    if (db->isOdbc()) {
        EXPECT_EQ(Rows(conn, u"SELECT CAST(dFileInstanceCreated AS varchar) AS d, CAST(bOmrik AS varchar) AS b FROM tFileInstance, "
                             "tEnvironmentUser WHERE iFileInstanceKey = 7 AND iEnvironmentUserKey = 5"_s),
                  QStringList{u"2024-02-21 11:00:00|<null>"_s});
    } else {
        EXPECT_EQ(Rows(conn, u"SELECT typeof(iFileInstanceRecordKey) || typeof(sFileInstanceDesc) || typeof(dFileInstanceModified) || "
                             "dFileInstanceCreated AS t FROM tFileInstance WHERE iFileInstanceKey = 7"_s),
                  QStringList{u"integertextnull2024-02-21T11:00:00.000"_s});
    }

    // A value the column cannot take, an unknown column, a row without its
    // key: named, and the file's earlier rows stay the caller's to roll back.
    const std::pair<const char*, QString> refusals[] = { // the file, what its refusal says after "The data file FILE"
        {R"({"sections": [{"table": "tRole", "columns": ["iRoleKey", "sRoleName"], "rows": [[1, "Tester"], [2, 3]]}]})",
         u", section 1 (tRole): row 2, column sRoleName: 3 is not a text or null."_s},
        {R"({"sections": [{"table": "tRole", "columns": ["iRoleKey", "sRoleTitle"], "rows": []}]})",
         u", section 1 (tRole): the table has no column sRoleTitle, or the section names it twice."_s},
        {R"({"sections": [{"table": "tRole", "columns": ["sRoleName"], "rows": []}]})", u", section 1 (tRole): no column iRoleKey: every row needs its key."_s},
        {R"({"sections": [{"table": "tRole", "colums": ["iRoleKey"], "rows": []}]})", u", section 1 (tRole): \"colums\" is none of note, columns, rows, table."_s},
        {R"({"sections": [{"table": "tFileInstance", "columns": ["iFileInstanceKey", "dFileInstanceCreated"], "rows": [[9, "2024-02-30 10:00:00"]]}]})",
         u", section 1 (tFileInstance): row 1, column dFileInstanceCreated: \"2024-02-30 10:00:00\" is not a time written yyyy-MM-dd HH:mm:ss or null."_s},
        {R"({"sections": [{"table": "tRole", "columns": ["iRoleKey"]}]})", u", section 1 (tRole): a section needs its columns and its rows."_s},
        {R"([{"table": "tRole", "columns": ["iRoleKey"], "rows": [[1]]}])", u": not an object with a list of sections."_s},
        {R"({"sections": [{"program": "CreateSystemScreen", "columns": ["iVersionKey", "iWindowKey", "iObjectKey"], "rows": [[9, 1, 1]]}]})",
         u", section 1 (CreateSystemScreen): row 1: version 9 has no application."_s},
    };
    for (const auto& [text, says] : refusals)
        EXPECT_EQ(load(text), u"The data file "_s + db->tempPath() + u"/data.json"_s + says) << text;
    EXPECT_EQ(count(u"SELECT * FROM tRole"_s), 1);
}

INSTANTIATE_TEST_SUITE_P(Backends, DataFilesTest, ::testing::ValuesIn(TestBackends()), test::backendName);

} // namespace
} // namespace dorvane
