// The user editor without its widgets: the checks, the saved row, the
// shared current key, and Delete with its registrations.

#include "core/users/UserRecords.h"
#include "support/RepositoryTest.h"

namespace dorvane::test {
namespace {

UserFields jane(const QString& id = u"jsmith"_s) { return {id, u"Jane"_s, u"Smith"_s, u"jane@example.com"_s, u"4711"_s, u"QA"_s, u"Secret1"_s, u"Secret1"_s}; }

const QString kNoCurrent = u"Either BOF or EOF is True, or the current record has been deleted. Requested operation requires a current record."_s;

class UserRecordsTest : public RepositoryTest {
protected:
    // New, the fields typed, Save.
    UserSaveOutcome saveNew(const UserFields& fields) { editor.New(); editor.MarkDirty(); return editor.Save(fields, conn, messages); }
    qint32 key(const QString& id) { return Rows(conn, u"SELECT iUserKey FROM tUser WHERE sUserID='%1'"_s.arg(id)).value(0).toInt(); }

    CurrentUserKey currentKey;
    UserRecords editor{currentKey};
};

// Each check in turn, from empty fields, each refusal followed by the next
// field typed: the blanks, then the ID (unique ignoring case), then the
// passwords.
TEST_P(UserRecordsTest, ChecksRefuseInOrderWithTheirMessageAndField)
{
    const struct { const char* message; const char* focus; int tab; QString UserFields::*next; const char* typed; } cases[] = {
        {"User ID cannot be blank", "txtUserID", kUsersTabIndex, &UserFields::UserID, "JSMITH"},
        {"First Name cannot be blank", "txtFirstName", kUsersTabIndex, &UserFields::FirstName, "Jane"},
        {"Last Name cannot be blank", "txtLastName", kUsersTabIndex, &UserFields::LastName, "Smith"},
        {"Password cannot be blank", "txtPassword", kUsersTabIndex, &UserFields::Password, "Secret1"},
        {"Verify Password cannot be blank", "txtVerifyPassword", kUsersTabIndex, &UserFields::VerifyPassword, "other"},
        {"JSMITH already exists - please choose another ID", "txtUserID", -1, &UserFields::UserID, "o'brien"},
        {"o'brien already exists - please choose another ID", "txtUserID", -1, &UserFields::UserID, "skim"},
        {"Passwords don't match - please re-enter", "txtPassword", -1, &UserFields::VerifyPassword, "Secret1"},
    };
    ASSERT_TRUE(saveNew(jane()).SaveOk && saveNew(jane(u"O'Brien"_s)).SaveOk) << Shown(messages);
    UserFields fields;
    for (const auto& c : cases) {
        messages.shown.clear();
        const UserSaveOutcome outcome = saveNew(fields);
        EXPECT_EQ(std::tuple(messages.shown, outcome.SaveOk, outcome.FocusField, outcome.MainTab, outcome.Form.has_value()),
                  std::tuple(QStringList{QString::fromUtf8(c.message)}, false, QString::fromLatin1(c.focus), c.tab, false));
        fields.*c.next = QString::fromUtf8(c.typed);
    }
    EXPECT_EQ(Rows(conn, u"SELECT COUNT(*) FROM tUser"_s), QStringList{u"2"_s});
}

TEST_P(UserRecordsTest, ASavedUserIsStoredAndOpensAsSaved)
{
    // Blanks are not empty; empty optionals are stored empty, the
    // department as one blank.
    UserFields fields = jane();
    fields.FirstName = u" "_s;
    fields.Password = fields.VerifyPassword = u"  "_s;
    fields.Email = fields.Extension = fields.Department = QString();
    const UserSaveOutcome outcome = saveNew(fields);
    ASSERT_TRUE(outcome.SaveOk) << Shown(messages);
    EXPECT_TRUE(outcome.RefreshUserList);
    EXPECT_EQ(Rows(conn, u"SELECT sUserFirst, sUserPassword, sUserDepartment, sUserEmail, sUserExtension FROM tUser"_s), QStringList{u" |  | ||"_s});

    const std::vector<UserListItem> list = ReadUserList(conn, messages);
    ASSERT_TRUE(list.size() == 1 && list[0].Text == u"  Smith"_s);
    const UserOpenOutcome opened = editor.Open(3, list[0].Key, conn, messages);
    fields.Department = u" "_s;
    ASSERT_TRUE(opened.Ok && opened.Form && opened.Form->Fields == fields);

    // Saved again, only the case of its ID changed: its own row does not count.
    fields.UserID = u"JSmith"_s;
    fields.LastName = u"Smith-Jones"_s;
    editor.MarkDirty();
    ASSERT_TRUE(editor.Save(fields, conn, messages).SaveOk && messages.shown.isEmpty()) << Shown(messages);
    EXPECT_EQ(Rows(conn, u"SELECT iUserKey, sUserID, sUserLast FROM tUser"_s), QStringList{u"%1|JSmith|Smith-Jones"_s.arg(list[0].Key)});
}

// Save and Delete act on the shared key: the environment users page sets it
// to the user it highlights, and Save then writes that user's row.
TEST_P(UserRecordsTest, SaveAndDeleteActOnTheSharedKey)
{
    UserFields ann = jane(u"alee"_s);
    ASSERT_TRUE(saveNew(jane()).SaveOk && saveNew(ann).SaveOk);
    const qint32 janeKey = key(u"jsmith"_s), annKey = key(u"alee"_s);
    ASSERT_TRUE(editor.Open(0, janeKey, conn, messages).Ok);
    currentKey.Set(annKey);
    ann.Department = u"Ops"_s;
    ASSERT_TRUE(editor.Save(ann, conn, messages).SaveOk);
    EXPECT_EQ(Rows(conn, u"SELECT sUserID, sUserDepartment FROM tUser ORDER BY iUserKey"_s), (QStringList{u"jsmith|QA"_s, u"alee|Ops"_s}));

    // Delete asks; Yes removes the registrations, then the user. Both are
    // registered for two environments.
    DB_ASSERT(conn.Execute(u"INSERT INTO tEnvironment (sEnvironmentName) VALUES ('Test'), ('Prod')"_s));
    DB_ASSERT(conn.Execute(u"INSERT INTO tEnvironmentUser (iEnvironKey, iUserKey, bDorvane, bVantrel, bOmrik, bZulane, bKrestin) "
                           "SELECT iEnvironmentKey, iUserKey, -1, 0, -1, 0, 0 FROM tEnvironment, tUser"_s));
    ASSERT_TRUE(editor.Open(0, janeKey, conn, messages).Ok);
    messages.Queue(Answer::No);
    EXPECT_FALSE(editor.Delete(jane(), conn, messages).Deleted);
    EXPECT_EQ(Rows(conn, u"SELECT COUNT(*) FROM tEnvironmentUser"_s), QStringList{u"4"_s});
    messages.Queue(Answer::Yes);
    const UserDeleteOutcome outcome = editor.Delete(jane(), conn, messages);
    EXPECT_TRUE(messages.shown == QStringList(2, u"Are you sure you want to delete Jane Smith?"_s) && outcome.Deleted && outcome.RefreshUserList && outcome.RefreshEnvironUsers) << shown();
    EXPECT_EQ(Rows(conn, u"SELECT iUserKey FROM tEnvironmentUser UNION ALL SELECT iUserKey FROM tUser"_s),
              QStringList(3, QString::number(annKey)));

    // Without a transaction: a user whose row is gone loses its
    // registrations, and the bare error is shown. Save says what failed.
    ASSERT_TRUE(editor.Open(0, annKey, conn, messages).Ok);
    DB_ASSERT(conn.Execute(u"DELETE FROM tUser"_s));
    messages.shown.clear();
    messages.Queue(Answer::Yes);
    const UserDeleteOutcome failed = editor.Delete(jane(), conn, messages);
    editor.MarkDirty();
    const UserSaveOutcome saved = editor.Save(jane(), conn, messages);
    EXPECT_EQ(messages.shown, (QStringList{u"Are you sure you want to delete Jane Smith?"_s, kNoCurrent, u"Error while saving user: "_s + kNoCurrent}));
    EXPECT_TRUE(!failed.Deleted && !saved.SaveOk && count(u"SELECT * FROM tEnvironmentUser"_s) == 0);
}

INSTANTIATE_TEST_SUITE_P(Backends, UserRecordsTest, ::testing::ValuesIn(TestBackends()));

} // namespace
} // namespace dorvane::test
