#include "users/UserRecords.h"
#include "repository/Connection.h"
#include "repository/Globals.h"
#include "repository/Installation.h"
#include "repository/Recordset.h"
#include "support/TestSupport.h"

#include <memory>

using namespace dorvane;
using namespace dorvane::test;

namespace {

UserFields validFields()
{
    UserFields f;
    f.UserID = QStringLiteral("jsmith");
    f.FirstName = QStringLiteral("Jane");
    f.LastName = QStringLiteral("Smith");
    f.Email = QStringLiteral("jane@example.com");
    f.Extension = QStringLiteral("4711");
    f.Department = QStringLiteral("QA");
    f.Password = QStringLiteral("Secret1");
    f.VerifyPassword = QStringLiteral("Secret1");
    return f;
}

const QString kNoCurrent = QStringLiteral("Either BOF or EOF is True, or the current record has been deleted. "
                                          "Requested operation requires a current record.");

} // namespace

class UserRecordsTest : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        db = std::make_unique<TestDatabase>(GetParam());
        DB_ASSERT(conn.Open(db->connectionString()));
        DB_ASSERT(BuildDatabase(conn, SchemaVariant::Repository, RepositoryContent::ReferenceData));
    }

    // Saves a new user through the editor and returns its key.
    qint32 saveNew(const UserFields& fields)
    {
        editor.New();
        const UserSaveOutcome outcome = editor.Save(fields, conn, messages);
        EXPECT_TRUE(outcome.SaveOk) << messages.shown.join(u'\n').toStdString();
        Recordset rs(QStringLiteral("SELECT * FROM tUser WHERE sUserID='%1'").arg(QuoteSql(fields.UserID)), conn);
        return rs.Int(QStringLiteral("iUserKey"));
    }

    qint32 addEnvironment(const QString& name)
    {
        Recordset rs(QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey=0"), conn);
        rs.AddNew();
        rs.SetValue(QStringLiteral("sEnvironmentName"), name);
        rs.Update();
        return rs.Int(QStringLiteral("iEnvironmentKey"));
    }

    void register_(qint32 environment, qint32 user)
    {
        DB_ASSERT(conn.Execute(QStringLiteral("INSERT INTO tEnvironmentUser (iEnvironKey, iUserKey, bDorvane, bVantrel,"
                                              " bOmrik, bZulane, bKrestin) VALUES (%1, %2, -1, 0, -1, 0, 0)")
                                   .arg(environment)
                                   .arg(user)));
    }

    int count(const QString& sql) { return int(Rows(conn, sql).size()); }

    std::unique_ptr<TestDatabase> db;
    Connection conn;
    ScriptedMessages messages;
    CurrentUserKey currentKey;
    UserRecords editor{currentKey};
};

struct RequiredCase {
    const char* name;
    QString UserFields::*field;
    const char* message;
    const char* focus;
};

TEST_P(UserRecordsTest, EachRequiredFieldFailsAloneWithItsMessageAndFocus)
{
    const RequiredCase cases[] = {
        {"id", &UserFields::UserID, "User ID cannot be blank", "txtUserID"},
        {"first", &UserFields::FirstName, "First Name cannot be blank", "txtFirstName"},
        {"last", &UserFields::LastName, "Last Name cannot be blank", "txtLastName"},
        {"password", &UserFields::Password, "Password cannot be blank", "txtPassword"},
        {"verify", &UserFields::VerifyPassword, "Verify Password cannot be blank", "txtVerifyPassword"},
    };
    for (const RequiredCase& c : cases) {
        SCOPED_TRACE(c.name);
        messages.shown.clear();
        editor.New();
        UserFields fields = validFields();
        fields.*c.field = QString();
        const UserSaveOutcome outcome = editor.Save(fields, conn, messages);
        EXPECT_FALSE(outcome.SaveOk);
        EXPECT_EQ(messages.shown, QStringList({QString::fromLatin1(c.message)}));
        EXPECT_EQ(outcome.FocusField, QString::fromLatin1(c.focus));
        EXPECT_EQ(outcome.MainTab, kUsersTabIndex);
        EXPECT_FALSE(outcome.Form.has_value());
    }
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tUser")), 0);
}

TEST_P(UserRecordsTest, ChecksRunInOrderAndBlanksAreNotEmpty)
{
    UserFields fields = validFields();
    fields.FirstName.clear();
    fields.Password.clear();
    fields.VerifyPassword = QStringLiteral("other");
    editor.New();
    EXPECT_FALSE(editor.Save(fields, conn, messages).SaveOk);
    EXPECT_EQ(messages.shown, QStringList({"First Name cannot be blank"}));

    // A field holding only blanks is not blank.
    fields = validFields();
    fields.FirstName = QStringLiteral(" ");
    fields.Password = fields.VerifyPassword = QStringLiteral("  ");
    messages.shown.clear();
    EXPECT_TRUE(editor.Save(fields, conn, messages).SaveOk) << messages.shown.join(u'\n').toStdString();
}

TEST_P(UserRecordsTest, UserIdIsUniqueIgnoringCase)
{
    DB_ASSERT(saveNew(validFields()));
    UserFields fields = validFields();
    fields.UserID = QStringLiteral("JSMITH");
    fields.VerifyPassword = QStringLiteral("mismatch");
    editor.New();
    messages.shown.clear();
    const UserSaveOutcome outcome = editor.Save(fields, conn, messages);
    EXPECT_FALSE(outcome.SaveOk);
    // The duplicate is found before the passwords are compared.
    EXPECT_EQ(messages.shown, QStringList({"JSMITH already exists - please choose another ID"}));
    EXPECT_EQ(outcome.FocusField, QStringLiteral("txtUserID"));
    EXPECT_EQ(outcome.MainTab, -1);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tUser")), 1);
}

TEST_P(UserRecordsTest, ResavingAUserKeepsItsOwnId)
{
    qint32 key = 0;
    DB_ASSERT(key = saveNew(validFields()));
    ASSERT_TRUE(editor.Open(0, key, conn, messages).Ok);
    UserFields fields = validFields();
    fields.UserID = QStringLiteral("JSmith");  // only the case changes
    fields.LastName = QStringLiteral("Smith-Jones");
    editor.MarkDirty();
    const UserSaveOutcome outcome = editor.Save(fields, conn, messages);
    ASSERT_TRUE(outcome.SaveOk) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(Rows(conn, QStringLiteral("SELECT iUserKey, sUserID, sUserLast FROM tUser")),
              QStringList{QStringLiteral("%1|JSmith|Smith-Jones").arg(key)});
}

TEST_P(UserRecordsTest, AnIdWithAQuoteIsSavedAndFound)
{
    UserFields fields = validFields();
    fields.UserID = QStringLiteral("O'Brien");
    DB_ASSERT(saveNew(fields));
    fields.UserID = QStringLiteral("o'brien");
    editor.New();
    messages.shown.clear();
    EXPECT_FALSE(editor.Save(fields, conn, messages).SaveOk);
    EXPECT_EQ(messages.shown, QStringList({"o'brien already exists - please choose another ID"}));
}

TEST_P(UserRecordsTest, SavedUserComesBackWithBlankDepartmentAndEmptyOptionals)
{
    UserFields fields = validFields();
    fields.Email.clear();
    fields.Extension.clear();
    fields.Department.clear();
    editor.New();
    editor.MarkDirty();
    const UserSaveOutcome outcome = editor.Save(fields, conn, messages);
    ASSERT_TRUE(outcome.SaveOk) << messages.shown.join(u'\n').toStdString();

    // The editor stands on an empty new user.
    EXPECT_TRUE(outcome.RefreshUserList);
    ASSERT_TRUE(outcome.Form.has_value());
    EXPECT_EQ(outcome.Form->Fields, UserFields{});
    EXPECT_FALSE(outcome.Form->SaveEnabled);
    EXPECT_FALSE(outcome.Form->DeleteEnabled);
    EXPECT_EQ(outcome.Form->FocusField, QStringLiteral("txtUserID"));
    EXPECT_TRUE(editor.UserIsNew());
    EXPECT_FALSE(editor.UserDirty());
    EXPECT_EQ(editor.CurrentKey(), 0);
    EXPECT_EQ(editor.UserListIndex(), -1);

    const std::vector<UserListItem> list = ReadUserList(conn, messages);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].Text, QStringLiteral("Jane Smith"));
    // Empty, not Null.
    EXPECT_EQ(Rows(conn, QStringLiteral("SELECT sUserDepartment, sUserEmail, sUserExtension FROM tUser")),
              QStringList{QStringLiteral(" ||")});

    const UserOpenOutcome opened = editor.Open(3, list[0].Key, conn, messages);
    ASSERT_TRUE(opened.Ok);
    ASSERT_TRUE(opened.Form.has_value());
    UserFields expected = fields;
    expected.Department = QStringLiteral(" ");
    EXPECT_EQ(opened.Form->Fields, expected);
    EXPECT_TRUE(opened.Form->DeleteEnabled);
    EXPECT_FALSE(opened.Form->SaveEnabled);
    EXPECT_EQ(editor.CurrentKey(), list[0].Key);
    EXPECT_EQ(editor.UserListIndex(), 3);
    EXPECT_FALSE(editor.UserIsNew());
    EXPECT_TRUE(messages.shown.isEmpty());
}

TEST_P(UserRecordsTest, SaveWritesTheUserTheSharedKeyNames)
{
    qint32 jane = 0;
    qint32 ann = 0;
    DB_ASSERT(jane = saveNew(validFields()));
    UserFields annFields = validFields();
    annFields.UserID = QStringLiteral("alee");
    annFields.FirstName = QStringLiteral("Ann");
    annFields.LastName = QStringLiteral("Lee");
    DB_ASSERT(ann = saveNew(annFields));

    ASSERT_TRUE(editor.Open(0, jane, conn, messages).Ok);
    // The environment users page highlights Ann.
    currentKey.Set(ann);
    UserFields typed = annFields;
    typed.Department = QStringLiteral("Ops");
    const UserSaveOutcome outcome = editor.Save(typed, conn, messages);
    ASSERT_TRUE(outcome.SaveOk) << messages.shown.join(u'\n').toStdString();

    EXPECT_EQ(Rows(conn, QStringLiteral("SELECT iUserKey, sUserID, sUserDepartment FROM tUser ORDER BY iUserKey")),
              (QStringList{QStringLiteral("%1|jsmith|QA").arg(jane), QStringLiteral("%1|alee|Ops").arg(ann)}));
}

TEST_P(UserRecordsTest, SaveOfAVanishedUserReportsTheDatabaseError)
{
    qint32 key = 0;
    DB_ASSERT(key = saveNew(validFields()));
    ASSERT_TRUE(editor.Open(0, key, conn, messages).Ok);
    editor.MarkDirty();
    DB_ASSERT(conn.Execute(QStringLiteral("DELETE * FROM tUser")));

    const UserSaveOutcome outcome = editor.Save(validFields(), conn, messages);
    EXPECT_FALSE(outcome.SaveOk);
    EXPECT_EQ(messages.shown, QStringList({"Error while saving user: " + kNoCurrent}));
    EXPECT_TRUE(outcome.FocusField.isEmpty());
    EXPECT_FALSE(outcome.Form.has_value());
    EXPECT_TRUE(editor.UserDirty());
    EXPECT_EQ(editor.CurrentKey(), key);
}

TEST_P(UserRecordsTest, DeleteAsksThenRemovesRegistrationsBeforeTheUser)
{
    qint32 jane = 0;
    qint32 ann = 0;
    DB_ASSERT(jane = saveNew(validFields()));
    UserFields annFields = validFields();
    annFields.UserID = QStringLiteral("alee");
    DB_ASSERT(ann = saveNew(annFields));
    qint32 test = 0;
    qint32 prod = 0;
    DB_ASSERT(test = addEnvironment(QStringLiteral("Test")));
    DB_ASSERT(prod = addEnvironment(QStringLiteral("Prod")));
    register_(test, jane);
    register_(prod, jane);
    register_(test, ann);

    ASSERT_TRUE(editor.Open(0, jane, conn, messages).Ok);
    messages.Queue(Answer::No);
    UserDeleteOutcome outcome = editor.Delete(validFields(), conn, messages);
    EXPECT_FALSE(outcome.Deleted);
    EXPECT_EQ(messages.shown, QStringList({"Are you sure you want to delete Jane Smith?"}));
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironmentUser")), 3);

    messages.Queue(Answer::Yes);
    outcome = editor.Delete(validFields(), conn, messages);
    EXPECT_TRUE(outcome.Deleted);
    EXPECT_TRUE(outcome.RefreshUserList);
    EXPECT_TRUE(outcome.RefreshEnvironUsers);
    ASSERT_TRUE(outcome.Form.has_value());
    EXPECT_EQ(outcome.Form->Fields, UserFields{});
    EXPECT_EQ(editor.CurrentKey(), 0);
    EXPECT_TRUE(editor.UserIsNew());
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iUserKey = %1").arg(jane)), 0);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iUserKey = %1").arg(ann)), 1);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tUser")), 1);
    EXPECT_EQ(messages.shown.size(), 2);
}

TEST_P(UserRecordsTest, DeleteIsNotUndoneWhenTheUserRowFails)
{
    // The registrations go first and nothing rolls them back: a key whose
    // user row is missing loses its registrations and reports the error.
    qint32 env = 0;
    DB_ASSERT(env = addEnvironment(QStringLiteral("Test")));
    register_(env, 777);
    currentKey.Set(777);
    messages.Queue(Answer::Yes);
    const UserDeleteOutcome outcome = editor.Delete(validFields(), conn, messages);
    EXPECT_FALSE(outcome.Deleted);
    EXPECT_FALSE(outcome.Form.has_value());
    EXPECT_EQ(messages.shown, QStringList({"Are you sure you want to delete Jane Smith?", kNoCurrent}));
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironmentUser")), 0);
    EXPECT_EQ(editor.CurrentKey(), 777);
}

INSTANTIATE_TEST_SUITE_P(Backends, UserRecordsTest, ::testing::ValuesIn(TestBackends()));
