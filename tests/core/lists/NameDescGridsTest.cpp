// The in-memory list behind the roles, projects and keywords grids, and the
// grids' reads, name checks, saves and deletions against the repository;
// keyword export and import: the file's bytes, the reader's messages and
// what stays in the repository when a read fails.

#include "core/applications/AppTestFixture.h"
#include "core/lists/KeywordFiles.h"
#include "core/lists/NameDescGrids.h"

#include <QDir>
#include <QRegularExpression>

#include <stdexcept>

namespace dorvane::test {
namespace {

// Each entry as "name|description", with "#" for a key (stored row),
// "+" when new and "*" when dirty.
QString state(const clsNameDescPair& list)
{
    QStringList out;
    for (int i = 0; i < list.Count(); ++i)
        out << list.GetValue(i, 0) + u'|' + list.GetValue(i, 1) + (list.GetValue(i, 2) != u"0"_s ? u"#"_s : QString()) +
                   (list.IsNew(i) ? u"+"_s : QString()) + (list.IsDirty(i) ? u"*"_s : QString());
    return out.join(u", "_s);
}

// Types into a cell as a user would.
bool type(NameDescGrid& grid, int row, int column, const QString& text) { return grid.Model().setData(grid.Model().index(row, column), text, Qt::EditRole); }

TEST(NameDescPairTest, EditsFlagsRemovalTheSpareSlotNameChecksAndTheModel)
{
    // Name clashes (IsUnique) are pinned through the grids' name check.
    clsNameDescPair list;
    list.Add(u"Admin"_s, u"a"_s, 11, false);
    list.Add(u"Tester"_s, u"t"_s, 12, false);
    list.Add(u"Lead"_s, u" "_s, 0, true);
    EXPECT_EQ(list.GetValue(2, 2), u"0"_s) << "a row not yet stored reads key 0";
    // The same text still marks an entry dirty; a key does not make it
    // stored; outside the list (the spare slot included) nothing is read or changed.
    list.SetValue(0, 0, u"Admin"_s);
    list.SetValue(2, 2, u"42"_s);
    for (const auto& [index, field] : {std::pair{-1, 0}, std::pair{3, 0}, std::pair{0, 3}}) {
        EXPECT_EQ(list.GetValue(index, field), QString());
        list.SetValue(index, field, u"x"_s);
    }
    list.Remove(3);
    list.Remove(-1);
    EXPECT_EQ(std::pair(state(list), list.IsDirty(3)), std::pair(u"Admin|a#*, Tester|t#, Lead| #+*"_s, false));
    // The flags reach the spare slot but not beyond the storage.
    list.Initialize(3);
    EXPECT_THROW(list.IsDirty(4), std::out_of_range);
    EXPECT_THROW(list.Initialize(-1), std::out_of_range);
    // Remove shifts the later entries down with their flags and keys; the
    // storage does not shrink; an entry added later takes the place clean.
    list.SetValue(1, 1, u"t2"_s);
    list.Remove(0);
    EXPECT_EQ(std::pair(state(list), list.GetValue(0, 2)), std::pair(u"Tester|t2#*, Lead| #+*"_s, u"12"_s));
    list.Remove(1);
    list.Add(u"Viewer"_s, u"v"_s, 9, false);
    EXPECT_EQ(state(list), u"Tester|t2#*, Viewer|v#"_s);
    list.Clear(); // back to the single spare slot
    EXPECT_THROW(list.IsNew(1), std::out_of_range);

    // Blank names and names another row has exactly are refused, in all three
    // grids; letter case makes another name and a row keeps its own name. The
    // model adds rows on its adding row and reports every edit.
    ScriptedMessages messages;
    const std::pair<NameDescGridKind, QString> kinds[] = {{NameDescGridKind::Roles, u"Role name cannot be blank"_s},
        {NameDescGridKind::Projects, u"Project name cannot be blank"_s}, {NameDescGridKind::Keywords, u"Keyword cannot be blank"_s}};
    for (const auto& [kind, blank] : kinds) {
        NameDescGrid grid(kind, messages);
        grid.List().Add(u"Admin"_s, u"a"_s, 1, false);
        grid.List().Add(u"Tester"_s, u"t"_s, 2, false);
        messages.shown.clear();
        EXPECT_FALSE(type(grid, 1, 0, QString()) || type(grid, 1, 0, u"Admin"_s));
        EXPECT_TRUE(type(grid, 1, 0, u"admin"_s) && grid.CheckName(0, u"Admin"_s, messages));
        EXPECT_EQ(std::pair(messages.shown, state(grid.List())), std::pair(QStringList({blank, u"Admin already exists!"_s}), u"Admin|a#, admin|t#*"_s));
    }

    messages.shown.clear();
    NameDescGrid grid(NameDescGridKind::Roles, messages);
    NameDescTableModel& model = grid.Model();
    int changes = 0;
    QObject::connect(&model, &NameDescTableModel::changed, [&changes] { ++changes; });
    EXPECT_EQ(model.headerData(0, Qt::Horizontal).toString() + model.headerData(1, Qt::Horizontal).toString(), u"RoleDescription"_s);
    // Leaving the adding row untouched adds nothing and says nothing.
    EXPECT_FALSE(type(grid, 0, 0, QString()) || grid.Dirty() || changes);
    // A description alone makes no row: the name is blank.
    EXPECT_FALSE(type(grid, 0, 1, u"orphan"_s));
    EXPECT_EQ(messages.shown, QStringList({"Role name cannot be blank"}));
    EXPECT_TRUE(grid.List().Count() == 0 && grid.Dirty()) << "the change event comes before the check";
    ASSERT_TRUE(type(grid, 0, 0, u"Auditor"_s));
    EXPECT_EQ(state(grid.List()), u"Auditor| +"_s) << "a missing description is one blank";
    EXPECT_EQ(model.headerData(1, Qt::Vertical).toString(), u"*"_s) << "the adding row's marker";
    EXPECT_TRUE(type(grid, 0, 1, u"Reads everything"_s) && model.data(model.index(0, 1)).toString() == u"Reads everything"_s);
    EXPECT_FALSE(type(grid, 1, 0, u"Auditor"_s));
    EXPECT_EQ(std::pair(messages.shown.last(), changes), std::pair(u"Auditor already exists!"_s, 4));
}

class NameDescGridsTest : public AppRepositoryTest {
protected:
    void SetUp() override { AppRepositoryTest::SetUp(); appA = addApp(u"Billing"_s, u"BILL"_s, kPlatformWindows); appB = addApp(u"Claims"_s, u"CLAIMS"_s, kPlatformWindows); }

    qint32 addRow(NameDescGridKind kind, const QString& name, const QString& desc, qint32 app = 0)
    {
        const NameDescGridInfo& info = GridInfo(kind);
        Values cells = {{info.nameColumn, name}, {info.descriptionColumn, desc}};
        if (kind == NameDescGridKind::Keywords)
            cells.emplace_back(u"iKeywordAppKey"_s, app);
        return add(info.table, cells);
    }
    void useKeyword(qint32 keyword) { add(u"tKeywordRel"_s, {{u"iKeywordRelKeywordKey"_s, keyword}, {u"iKeywordRelProcessKey"_s, 0}, {u"iKeywordRelCycleKey"_s, 7}, {u"iKeywordRelScheduleKey"_s, 0}}); }
    // The grid's table as "name|description" in name order.
    QStringList stored(const NameDescGrid& grid, const QString& where = {})
    {
        const NameDescGridInfo& i = grid.Info();
        return Rows(conn, u"SELECT %1, %2 FROM %3 %4 ORDER BY %1"_s.arg(i.nameColumn, i.descriptionColumn, i.table, where));
    }

    qint32 appA = 0, appB = 0;
};

TEST_P(NameDescGridsTest, LoadersReadNameOrderAndSayWhyAListIsEmpty)
{
    addRow(NameDescGridKind::Roles, u"Zeta"_s, u"z"_s);
    const qint32 alpha = addRow(NameDescGridKind::Roles, u"alpha"_s, u"a"_s);
    addRow(NameDescGridKind::Roles, u"Beta"_s, u"b"_s);
    addRow(NameDescGridKind::Keywords, u"Smoke"_s, u"s"_s, appA);
    addRow(NameDescGridKind::Keywords, u"Regression"_s, u"r"_s, appB);
    NameDescGrid roles(NameDescGridKind::Roles, messages), keywords(NameDescGridKind::Keywords, messages);
    ASSERT_TRUE(RefreshRoleGrid(roles, conn, messages));
    // Three rows and the adding row.
    EXPECT_EQ(std::tuple(state(roles.List()), roles.List().GetValue(0, 2), roles.Model().rowCount()),
              std::tuple(u"alpha|a#, Beta|b#, Zeta|z#"_s, QString::number(alpha), 4));
    ASSERT_TRUE(RefreshKeywordGrid(keywords, conn, messages, appB) && state(keywords.List()) == u"Regression|r#"_s) << state(keywords.List()).toStdString();
    EXPECT_TRUE(RefreshKeywordGrid(keywords, conn, messages, 0) && keywords.List().Count() == 0 && messages.shown.isEmpty());

    NameDescGrid projects(NameDescGridKind::Projects, messages);
    projects.List().Add(u"Stale"_s, QString(), 0, true);
    DB_ASSERT(conn.Execute(u"DROP TABLE tProject"_s));
    EXPECT_TRUE(!RefreshProjectGrid(projects, conn, messages) && projects.List().Count() == 0 && messages.shown.size() == 1
                && messages.shown[0].startsWith(u"Error while reading Projects: "_s)) << Shown(messages);
}

// Save writes the new and changed entries (keywords for their application)
// and reloads the grid in name order with the keys; a second save writes
// nothing new.
TEST_P(NameDescGridsTest, SaveWritesNewAndChangedEntriesReloadGivesKeysAndAFailureKeepsWhatWasWritten)
{
    const qint32 admin = addRow(NameDescGridKind::Roles, u"Admin"_s, u"old"_s);
    addRow(NameDescGridKind::Roles, u"Tester"_s, u"t"_s);
    NameDescGrid grid(NameDescGridKind::Roles, messages), keywords(NameDescGridKind::Keywords, messages), projects(NameDescGridKind::Projects, messages);
    ASSERT_TRUE(grid.Refresh(conn, messages) && keywords.Refresh(conn, messages, appB) && projects.Refresh(conn, messages));
    ASSERT_TRUE(type(grid, 0, 1, u"new description"_s) && type(grid, 2, 0, u"Viewer"_s) && type(grid, 3, 0, u"Auditor"_s) && type(grid, 3, 1, u"Checks"_s));
    EXPECT_TRUE(grid.Save(conn, messages).SaveOk && !grid.Dirty());
    EXPECT_EQ(std::pair(state(grid.List()), grid.List().GetValue(0, 2)),
              std::pair(u"Admin|new description#, Auditor|Checks#, Tester|t#, Viewer| #"_s, QString::number(admin)));
    EXPECT_TRUE(grid.Save(conn, messages).SaveOk && stored(grid) == QStringList({"Admin|new description", "Auditor|Checks", "Tester|t", "Viewer| "}));

    ASSERT_TRUE(type(keywords, 0, 0, u"Smoke"_s) && keywords.Save(conn, messages, appB).SaveOk);
    EXPECT_EQ(std::tuple(stored(keywords, u"WHERE iKeywordAppKey = %1"_s.arg(appB)), stored(keywords, u"WHERE iKeywordAppKey = %1"_s.arg(appA)),
                         state(keywords.List())),
              std::tuple(QStringList({"Smoke| "}), QStringList(), u"Smoke| #"_s));
    ASSERT_TRUE(type(projects, 0, 0, u"Apollo"_s) && type(projects, 0, 1, u"Moon"_s) && projects.Save(conn, messages).SaveOk);
    EXPECT_EQ(std::pair(stored(projects), messages.shown), std::pair(QStringList({"Apollo|Moon"}), QStringList()));

    // A save stops at the first failure and keeps what it wrote.
    const qint32 gone = addRow(NameDescGridKind::Roles, u"Zulu"_s, u"z"_s);
    const QString mine = u"WHERE sRoleName IN ('Alpha', 'Zulu', 'Omega')"_s;
    clsNameDescPair& list = grid.List();
    list.Clear();
    list.Add(u"Alpha"_s, u" "_s, 0, true);
    list.Add(u"Zulu"_s, u"z"_s, gone, false);
    list.SetValue(1, 1, u"changed"_s);
    list.Add(u"Omega"_s, u" "_s, 0, true);
    grid.SetDirty(true);
    // Somebody else deletes the changed row before the save.
    DB_ASSERT(conn.Execute(u"DELETE * FROM tRole WHERE iRoleKey = %1"_s.arg(gone)));
    EXPECT_TRUE(!grid.Save(conn, messages).SaveOk && grid.Dirty());
    EXPECT_TRUE(messages.shown.size() == 1 && messages.shown[0].startsWith(u"Error while saving Roles: "_s) && messages.shown[0].size() > 26) << "and the reason";
    // The entry before the failure stays written, the one after it is not;
    // no reload: the written entry carries its key, so deleting it deletes that row.
    EXPECT_EQ(std::pair(stored(grid, mine), state(list)), std::pair(QStringList({"Alpha| "}), u"Alpha| #, Zulu|changed#*, Omega| +"_s));
    messages.shown.clear();
    EXPECT_TRUE(grid.DeleteRow(0, conn, messages) && stored(grid, mine).isEmpty() && messages.shown.isEmpty());
}

// The row deleted, and the row checked for use, is the one the grid shows,
// found by its key: a keyword of the same name in another application, or a
// role whose name differs only in letter case, is neither deleted nor asked
// about; an unsaved row touches no stored one; a stored project is never
// deleted (the suite's statement fails).
TEST_P(NameDescGridsTest, DeletionTakesTheRowShownByItsKey)
{
    useKeyword(addRow(NameDescGridKind::Keywords, u"Login"_s, u"of A"_s, appA));
    addRow(NameDescGridKind::Keywords, u"Login"_s, u"of B"_s, appB);
    useKeyword(addRow(NameDescGridKind::Keywords, u"Used"_s, u"u"_s, appB));
    NameDescGrid keywords(NameDescGridKind::Keywords, messages);
    ASSERT_TRUE(keywords.Refresh(conn, messages, appB));
    EXPECT_TRUE(!keywords.DeleteRow(1, conn, messages) && messages.shown == QStringList({"You can't delete this keyword because it is being used"})) << Shown(messages);
    EXPECT_TRUE(keywords.DeleteRow(0, conn, messages));
    EXPECT_EQ(std::pair(stored(keywords), state(keywords.List())), std::pair(QStringList({"Login|of A", "Used|u"}), u"Used|u#"_s));

    addRow(NameDescGridKind::Roles, u"Tester"_s, u"upper"_s);
    addRow(NameDescGridKind::Roles, u"tester"_s, u"lower"_s);
    addRow(NameDescGridKind::Roles, u"O'Brien's"_s, u"o"_s);
    NameDescGrid roles(NameDescGridKind::Roles, messages);
    ASSERT_TRUE(roles.Refresh(conn, messages));
    ASSERT_EQ(roles.List().GetValue(0, 0), u"O'Brien's"_s);
    EXPECT_TRUE(roles.DeleteRow(0, conn, messages) && roles.DeleteRow(roles.List().GetValue(0, 1) == u"lower"_s ? 0 : 1, conn, messages));
    ASSERT_TRUE(type(roles, roles.Model().AddingRow(), 0, u"TESTER"_s));
    EXPECT_TRUE(roles.DeleteRow(1, conn, messages));
    EXPECT_FALSE(roles.DeleteRow(roles.Model().AddingRow(), conn, messages)) << "the adding row holds no entry";
    EXPECT_EQ(std::tuple(state(roles.List()), stored(roles), roles.Model().rowCount(), messages.shown.size()),
              std::tuple(u"Tester|upper#"_s, QStringList({"Tester|upper"}), 2, 1));
    // A row gone from the repository fails and keeps its entry.
    DB_ASSERT(conn.Execute(u"DELETE * FROM tRole"_s));
    EXPECT_FALSE(roles.DeleteRow(0, conn, messages));
    EXPECT_TRUE(messages.shown.value(1).startsWith(u"Error removing Role: "_s) && state(roles.List()) == u"Tester|upper#"_s) << Shown(messages);

    addRow(NameDescGridKind::Projects, u"Apollo"_s, u"Moon"_s);
    NameDescGrid projects(NameDescGridKind::Projects, messages);
    ASSERT_TRUE(projects.Refresh(conn, messages) && type(projects, 1, 0, u"Gemini"_s));
    messages.shown.clear();
    EXPECT_TRUE(!projects.DeleteRow(0, conn, messages) && projects.DeleteRow(1, conn, messages)) << "one only added in the grid goes";
    EXPECT_TRUE(messages.shown.size() == 1 && messages.shown[0].startsWith(u"Error removing Project: "_s) && messages.shown[0].size() > 24) << Shown(messages);
    EXPECT_EQ(std::pair(stored(projects), state(projects.List())), std::pair(QStringList({"Apollo|Moon"}), u"Apollo|Moon#"_s));
}

INSTANTIATE_TEST_SUITE_P(Backends, NameDescGridsTest, ::testing::ValuesIn(TestBackends()));

// ---- keyword files ----

// The grids' two applications, appA and appB.
class KeywordFilesTest : public NameDescGridsTest {
protected:
    // "name|description" per keyword of the application, in key order.
    QStringList keywords(qint32 appKey)
    {
        return Rows(conn, u"SELECT sKeywordName, sKeywordDesc FROM tKeyword WHERE iKeywordAppKey=%1 ORDER BY iKeywordKey"_s.arg(appKey));
    }
    QString path(const QString& name) const { return db->tempPath() + u'/' + name; }
    static QByteArray bytes(const QString& file) { EXPECT_TRUE(QFileInfo(file).isReadable()) << file.toStdString(); return ReadFile(file); }
    QString write(const QByteArray& content, const QString& name = u"in.txt"_s) { EXPECT_TRUE(WriteFile(path(name), content)); return path(name); }
    bool exportTo(qint32 appKey, const QString& file) { return ExportKeywords(conn, messages, appKey, [file] { return std::optional(file); }); }
    KeywordImportOutcome importFrom(qint32 appKey, const QString& file) { return ImportKeywords(conn, messages, appKey, [file] { return std::optional(file); }); }
};

// Name TAB description CR LF in name order (letter case ignored), a TAB in
// a description as it stands, a Null description empty; an application
// without keywords exports an empty file, also over an existing one.
// Windows-1252 both ways: the characters of 0x80 to 0x9F are written as
// those bytes and read back, the undefined bytes stand for themselves, and
// only a character the code page lacks becomes "?".
TEST_P(KeywordFilesTest, ExportWritesNameTabDescriptionCrLfInWindows1252)
{
    const QString fresh = path(u"empty.txt"_s), earlier = write("Kept\tAs it was\r\n", u"earlier.txt"_s);
    EXPECT_TRUE(exportTo(appA, fresh) && exportTo(appA, earlier));
    EXPECT_EQ(std::pair(bytes(fresh), bytes(earlier)), std::pair(QByteArray(), QByteArray()));

    addKeyword(appA, u"Smoke"_s, u"Quick check"_s);
    addKeyword(appA, u"Orders"_s, u"Touches\torder data"_s);
    addKeyword(appA, u"billing"_s, QVariant());
    addKeyword(appB, u"Elsewhere"_s, u"Not this application"_s);
    ASSERT_TRUE(exportTo(appA, fresh) && messages.shown.isEmpty()) << Shown(messages);
    EXPECT_EQ(bytes(fresh), QByteArray("billing\t\r\nOrders\tTouches\torder data\r\nSmoke\tQuick check\r\n"));

    addKeyword(appB, u"Caf\u00e9 \u2013 \u20ac"_s, u"\u201cQuoted\u201d \u2018it\u2019s\u2019 \u2026 \u0160\u0178 \U0001F600 \u0100"_s);
    const QString file = path(u"cp1252.txt"_s);
    EXPECT_TRUE(exportTo(appB, file));
    EXPECT_EQ(bytes(file), QByteArray("Caf\xe9 \x96 \x80\t\x93Quoted\x94 \x91it\x92s\x92 \x85 \x8a\x9f ? ?\r\nElsewhere\tNot this application\r\n"));
    const qint32 third = addApp(u"Third"_s, u"THIRD"_s, kPlatformWindows);
    EXPECT_EQ(importFrom(third, file).result, KeywordImportResult::Imported);
    EXPECT_EQ(keywords(third), QStringList({u"Caf\u00e9 \u2013 \u20ac|\u201cQuoted\u201d \u2018it\u2019s\u2019 \u2026 \u0160\u0178 ? ?"_s, u"Elsewhere|Not this application"_s}));

    QByteArray high;
    for (int b = 0x80; b < 0xA0; ++b)
        high += static_cast<char>(b);
    EXPECT_EQ(KeywordFileText(high), u"\u20ac\u0081\u201a\u0192\u201e\u2026\u2020\u2021\u02c6\u2030\u0160\u2039\u0152\u008d"
                                     u"\u017d\u008f\u0090\u2018\u2019\u201c\u201d\u2022\u2013\u2014\u02dc\u2122\u0161\u203a"
                                     u"\u0153\u009d\u017e\u0178"_s);
    EXPECT_EQ(std::pair(KeywordFileBytes(KeywordFileText(high)), KeywordFileBytes(u"\u0080\u009f"_s)), std::pair(high, QByteArray("??")));
}

// A name the application has already, compared exactly as the grid
// compares names, is skipped, also when an earlier line of the same file
// added it; a second import adds nothing. A line splits at its first TAB;
// an empty description is stored as a blank. A failure adds nothing (the
// files that stop a read are in the table of keyword files below).
TEST_P(KeywordFilesTest, ImportSkipsNamesTheApplicationHasAndAFailureOrABadLineAddsNothing)
{
    addKeyword(appA, u"Smoke"_s, u"Stored"_s);
    addKeyword(appB, u"Nightly"_s, u"Other application"_s);
    const QString file = write("Smoke\tFrom the file\r\nsmoke\tOther case\r\nNightly\tNew\there\r\nNightly\tTwice\r\nBlank\t\r\n");
    KeywordImportOutcome outcome = importFrom(appA, file);
    EXPECT_EQ(std::tuple(outcome.result, outcome.rowsAdded, outcome.rowsSkipped, KeywordImportCounts(outcome)),
              std::tuple(KeywordImportResult::Imported, 3, 2, u"added: 3  skipped: 2"_s));
    EXPECT_EQ(keywords(appA), QStringList({"Smoke|Stored", "smoke|Other case", "Nightly|New\there", "Blank| "}));

    outcome = importFrom(appA, file);
    EXPECT_EQ(std::pair(outcome.result, KeywordImportCounts(outcome)), std::pair(KeywordImportResult::Imported, u"added: 0  skipped: 5"_s));
    EXPECT_EQ(std::pair(keywords(appA).size(), messages.shown), std::pair(qsizetype(4), QStringList()));

    // A file that cannot be opened fails (a missing one, and an export into
    // a missing folder, named in the message, are on the command test); a
    // row the repository refuses stops the import with the database's
    // reason, and the rows before it are not kept.
    const QString importPrefix = u"Error while Importing Keywords: "_s;
    const KeywordImportOutcome folder = importFrom(appB, db->tempPath());
    EXPECT_EQ(std::pair(folder.result, folder.ReloadGrid()), std::pair(KeywordImportResult::Failed, false));
    EXPECT_TRUE(messages.shown.size() == 1 && messages.shown[0].startsWith(importPrefix)) << Shown(messages);
    DB_ASSERT(conn.Execute(u"CREATE UNIQUE INDEX one_description ON tKeyword (iKeywordAppKey, sKeywordDesc)"_s));
    messages.shown.clear();
    outcome = importFrom(appB, write("One\tFirst\r\nTwo\tOther application\r\nThree\tThird\r\n"));
    EXPECT_EQ(std::pair(outcome.result, outcome.rowsAdded), std::pair(KeywordImportResult::Failed, 0));
    EXPECT_TRUE(messages.shown.size() == 1 && messages.shown.front().startsWith(importPrefix) && messages.shown.front().size() > 32
                && messages.shown.front().endsWith(kImportNothingAdded))
        << "and the database's reason: " << Shown(messages);
    EXPECT_EQ(keywords(appB), QStringList({"Nightly|Other application"}));
}

// An export replaces the chosen file whole: a longer file keeps no tail,
// its permissions stay, and a link leads to the file it names. An export
// that fails half-way, or cannot put its file in place, leaves the earlier
// file as it was and no file of its own behind.
TEST_P(KeywordFilesTest, ExportReplacesTheFileWholeAndAFailureLeavesItAsItWas)
{
    addKeyword(appA, u"Smoke"_s, u"Quick check"_s);
    QByteArray longer;
    for (int i = 0; i < 100000; ++i)
        longer += "Keyword " + QByteArray::number(i) + "\tOlder export\r\n";
    const QString file = write(longer, u"keywords.txt"_s);
    ASSERT_TRUE(QFile::setPermissions(file, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup));
    ASSERT_TRUE(QFile::link(file, path(u"link.txt"_s)));
    const QStringList folder = QDir(db->tempPath()).entryList(QDir::Files | QDir::System | QDir::Hidden);

    const QByteArray one("Smoke\tQuick check\r\n");
    ASSERT_TRUE(exportTo(appA, path(u"link.txt"_s))) << Shown(messages);
    EXPECT_EQ(std::tuple(bytes(file), QFileInfo(path(u"link.txt"_s)).isSymLink(), int(QFile::permissions(file))),
              std::tuple(one, true, int(QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser | QFile::WriteUser | QFile::ReadGroup)));

    // A record set without descriptions fails at its first line.
    ASSERT_TRUE(write(longer, u"keywords.txt"_s) == file);
    Recordset names(u"SELECT iKeywordKey, sKeywordName FROM tKeyword WHERE iKeywordAppKey=%1"_s.arg(appA), conn);
    EXPECT_THROW(WriteKeywordFile(file, names), DbError);
    // A folder in the file's place; a file in a folder that is not there.
    messages.shown.clear();
    EXPECT_FALSE(exportTo(appA, db->tempPath()) || exportTo(appA, path(u"missing/keywords.txt"_s)));
    EXPECT_TRUE(messages.shown.size() == 2 && messages.shown[0].startsWith(u"Error while exporting Keywords: "_s)
                && messages.shown[1].contains(u"missing/keywords.txt"_s)) << Shown(messages);
    EXPECT_EQ(std::pair(bytes(file) == longer, QDir(db->tempPath()).entryList(QDir::Files | QDir::System | QDir::Hidden)),
              std::pair(true, folder));
}

// Keyword files as administrators' editors save them, and what importing
// each must give: each file is imported into an application without
// keywords, and the application's keywords are then exported over it.
// (Names in two letter cases and Windows-1252 are on the tests above.)
// A case's rows are "name|description" in the order they were added; its
// message the counts of an import that completed, else why it stopped,
// which kImportNothingAdded follows.
TEST_P(KeywordFilesTest, KeywordFileCasesImportAndExportAsTheTableSays)
{
    const struct { const char* name; QByteArray file; QStringList rows; QString message; } cases[] = {
        {"CR LF", "One\tFirst\r\nTwo\tSecond\r\n", {"One|First", "Two|Second"}, u"added: 2  skipped: 0"_s},
        // LF alone ends a line as CR LF does, also between CR LF lines:
        // nothing is glued into the description before it.
        {"LF", "One\tFirst\nTwo\tSecond\n", {"One|First", "Two|Second"}, u"added: 2  skipped: 0"_s},
        {"LF between CR LF lines", "alpha\tfirst\nbeta\tsecond\r\ngamma\tthird\r\n", {"alpha|first", "beta|second", "gamma|third"},
         u"added: 3  skipped: 0"_s},
        {"CR LF after LF lines", "alpha\tfirst\nbeta\tsecond\r\n", {"alpha|first", "beta|second"}, u"added: 2  skipped: 0"_s},
        // A line splits at its first TAB; an empty description is stored as
        // a blank, a missing name as it stands.
        {"TAB in a description", "Orders\tTouches\torder data\nBlank\t\r\n\tNo name\n", {"Orders|Touches\torder data", "Blank| ", "|No name"},
         u"added: 3  skipped: 0"_s},
        // Empty lines at the end are no lines, with either line end.
        {"empty lines at the end", "One\tFirst\r\n\r\n\n\r\n", {"One|First"}, u"added: 1  skipped: 0"_s},
        {"empty file", "", {}, u"added: 0  skipped: 0"_s},
        // Where a read stops. Nothing of such a file is added.
        {"no line end on the last line", "One\tFirst\r\nTwo\tSecond", {}, kImportUnexpectedEnd},
        {"no line end on the last LF line", "One\tFirst\nTwo\tSecond", {}, kImportUnexpectedEnd},
        {"CR without its LF at the end", "One\tFirst\r\nTwo\tSecond\r", {}, kImportUnexpectedEnd},
        {"no TAB on the last line", "One\tFirst\r\nTwo", {}, kImportUnexpectedEnd},
        {"no TAB", "One\tFirst\r\nNoTab\r\nNext\tThird\r\n", {}, kImportNoTab.arg(2)},
        {"no TAB on an LF line", "One\tFirst\nTwo\tSecond\nNoTab\nNext\tFourth\n", {}, kImportNoTab.arg(3)},
        {"LF before the TAB", "One\tFirst\r\nNo\nTab\tSecond\r\n", {}, kImportNoTab.arg(2)},
        {"empty line", "One\tFirst\r\nTwo\tSecond\r\n\r\nThree\tThird\r\n", {}, kImportEmptyLine.arg(3)},
        {"empty LF line", "One\tFirst\n\nTwo\tSecond\n", {}, kImportEmptyLine.arg(2)},
        {"empty first line", "\r\nOne\tFirst\r\n", {}, kImportEmptyLine.arg(1)},
        {"CR without LF", "One\tFirst\r\nTwo\tSecond\rThree\tThird\r\n", {}, kImportBadFormat},
        {"CR CR LF", "One\tFirst\r\r\n", {}, kImportBadFormat},
    };
    int n = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ++n;
        const qint32 target = addApp(u"Case %1"_s.arg(n), u"CASE%1"_s.arg(n), kPlatformWindows);
        messages.shown.clear();
        const QString file = write(c.file);
        const KeywordImportOutcome outcome = importFrom(target, file);
        const bool imported = c.message.startsWith(u"added: "_s);
        EXPECT_EQ(std::tuple(outcome.result, outcome.rowsAdded, outcome.ReloadGrid()),
                  std::tuple(imported ? KeywordImportResult::Imported : KeywordImportResult::Failed, c.rows.size(), imported));
        EXPECT_EQ(imported ? QStringList{KeywordImportCounts(outcome)} : messages.shown, QStringList{imported ? c.message : c.message + kImportNothingAdded});
        EXPECT_EQ(keywords(target), c.rows);
        // The export over it, line by line, sorted: the order among names that
        // differ only in letter case is the database's, and the export test's
        // concern. What follows the last CR LF is a last, empty line.
        EXPECT_TRUE(exportTo(target, file)) << Shown(messages);
        QStringList exported = KeywordFileText(bytes(file)).split(u"\r\n"_s), wanted = c.rows;
        wanted.replaceInStrings(QRegularExpression(u"^([^|]*)\\|"_s), u"\\1\t"_s) << QString();
        exported.sort(), wanted.sort();
        EXPECT_EQ(exported, wanted);
    }
}

INSTANTIATE_TEST_SUITE_P(Backends, KeywordFilesTest, ::testing::ValuesIn(TestBackends()));

} // namespace
} // namespace dorvane::test
