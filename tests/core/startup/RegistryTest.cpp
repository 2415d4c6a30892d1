// The settings file read with the registry's rules, and as Windows imports
// an export; the mode the settings choose and the order in which start-up
// opens its databases.

#include "core/startup/Registry.h"
#include "core/startup/Startup.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace dorvane {
namespace {

using namespace Qt::StringLiterals;

const QString kV5 = u"Windows Registry Editor Version 5.00\r\n\r\n"_s;
const QString kKey = uR"([HKEY_LOCAL_MACHINE\SOFTWARE\Bramlund\Zentrix])"_s;
const QString kOther = uR"([HKEY_LOCAL_MACHINE\SOFTWARE\Bramlund\Other])"_s;

// "T" -> "54,00", as regedit writes string data in a version 5 file.
QString HexUtf16(const QString& text)
{
    QStringList bytes;
    for (const QChar c : text)
        bytes << QString::asprintf("%02x,%02x", c.unicode() & 0xFF, c.unicode() >> 8);
    return bytes.join(u',');
}

// A version 5 export of the lines ('|' between), or of the Zentrix key's values.
QByteArray Export(QString lines) { return (kV5 + lines.replace(u'|', u"\r\n"_s) + u"\r\n"_s).toUtf8(); }
QByteArray Values(const QString& lines) { return Export(kKey + u'|' + lines); }

// What the Zentrix key reads of the values that `want` names: "no key" when
// it cannot be opened, then per value Name="text"/dword ("-" for the
// registry's empty result), '|' between.
QString Reads(const QString& want)
{
    QStringList seen = RegOpenKey(HKEY_LOCAL_MACHINE, kZentrixKey).isNull() ? QStringList{u"no key"_s} : QStringList();
    for (const QString& entry : QString(want).remove(u"no key"_s).split(u'|', Qt::SkipEmptyParts)) {
        const QString name = entry.section(u'=', 0, 0);
        const std::optional<QString> text = GetSettingString(HKEY_LOCAL_MACHINE, kZentrixKey, name);
        const std::optional<qint32> dword = GetSettingDword(HKEY_LOCAL_MACHINE, kZentrixKey, name);
        EXPECT_EQ(SettingString(name), text.value_or(QString()));
        EXPECT_EQ(SettingDword(name), dword.value_or(0));
        seen << name + u'=' + (text ? u'"' + *text + u'"' : u"-"_s) + u'/' + (dword ? QString::number(*dword) : u"-"_s);
    }
    return seen.join(u'|');
}

class RegistryTest : public ::testing::Test {
protected:
    void SetUp() override { SetSettingsFileOverride(path()); }
    void TearDown() override { SetSettingsFileOverride(QString()); }

    QString path() const { return m_dir.filePath(u"zentrix.reg"_s); }

    void write(const QByteArray& bytes) { ASSERT_TRUE(test::WriteFile(path(), bytes)); }

    QTemporaryDir m_dir;
};

TEST_F(RegistryTest, ValuesReadWithTheRegistrysRules)
{
    // Hex data broken after every 8th byte, as regedit does after about 80 columns.
    QStringList bytes = HexUtf16(u"C:\\Program Files\\Bramlund\\Zentrix"_s + QChar(0)).split(u',');
    for (qsizetype i = 8; i < bytes.size(); i += 8)
        bytes[i] = u"\\|  "_s + bytes[i];
    QByteArray utf16("\xFF\xFE");
    for (const QChar c : QString::fromUtf8(Values(uR"("ExePath"="C:\\Zürich"|"ActiveDB"=hex(1):)"_s + HexUtf16(u"Ärger"_s))))
        utf16.append(static_cast<char>(c.unicode() & 0xFF)).append(static_cast<char>(c.unicode() >> 8));
    const QString wow = uR"([HKEY_LOCAL_MACHINE\SOFTWARE\WOW6432Node\Bramlund\Zentrix])"_s;
    const QByteArray tutorial = Values(uR"("ActiveDB"="Tutorial")"_s).mid(kV5.size()); // without the header
    const QString noKey = u"no key|ActiveDB=-/-"_s;
    struct Case { QByteArray file; QString reads; };
    const std::vector<Case> cases = {
        // Text and numbers; a missing value is empty.
        {Values(uR"("ActiveDB"="Tutorial"|"ExePath"="C:\\Program Files"|"IsLocalDatabase"=dword:00000001|"M"=dword:fffffffe|"S"=dword:2a)"_s),
         uR"(ActiveDB="Tutorial"/-|ExePath="C:\Program Files"/-|IsLocalDatabase=-/1|M=-/-2|S=-/42|Missing=-/-)"_s},
        // A number stored as text is no number.
        {Values(uR"("IsLocalDatabase"="1")"_s), uR"(IsLocalDatabase="1"/-)"_s},
        // Binary data reads as a little-endian number: fewer than four bytes
        // fill a zero's low bytes, more than four read 0.
        {Values(u"\"A\"=hex:2a,01,00,00|\"B\"=hex:fe,ff,ff,ff|\"C\"=hex:2a,01|\"D\"=hex(4):07|\"E\"=hex:|\"F\"=hex:01,00,00,00,00|"
                u"\"G\"=hex(4):01,00,00,00,00,00,00,00"_s), u"A=-/298|B=-/-2|C=-/298|D=-/7|E=-/0|F=-/0|G=-/0"_s},
        // Strings cut at the first NUL.
        {Values(u"\"A\"=hex(1):%1|\"B\"=hex(1):%2|\"C\"=hex(1):%3|\"D\"=\"\"|\"E\"=hex(1):"_s.arg(HexUtf16(u"Tutorial"_s + QChar(0)),
                HexUtf16(u"Tutorial"_s), HexUtf16(u"Tut"_s + QChar(0) + u"orial"_s + QChar(0)))), uR"(A="Tutorial"/-|B="Tutorial"/-|C="Tut"/-|D=""/-|E=""/-)"_s},
        // Only plain strings are text: not REG_EXPAND_SZ, REG_MULTI_SZ, REG_QWORD or REG_NONE.
        {Values(u"\"A\"=hex(2):%1|\"B\"=hex(7):%2|\"C\"=hex(b):01,00,00,00,00,00,00,00|\"D\"=hex(0):01"_s.arg(
             HexUtf16(u"Tutorial"_s + QChar(0)), HexUtf16(u"C:\\Z"_s + QChar(0) + QChar(0)))), u"A=-/-|B=-/-|C=-/-|D=-/-"_s},
        // Comments, escapes and blank lines; a backslash that escapes nothing stays.
        {Values(uR"(; set-up||   ; indented|"ActiveDSN"="Z \"live\""|"SharedResourcePath"="\\\\srv\\share"|"LocalDatabasePath"="C:\Data"|"ActiveDB"="; no")"_s),
         uR"(ActiveDSN="Z "live""/-|SharedResourcePath="\\srv\share"/-|LocalDatabasePath="C:\Data"/-|ActiveDB="; no"/-)"_s},
        // A ';' comment may follow a value, at once or after blanks; anything
        // else after it makes the value unreadable ('#' starts no comment).
        {Values(u"\"ExePath\"=\"C:\\\\Zentrix\";old path|\"ActiveDB\"=\"Tutorial\"  ;was \"Server\"|\"ActiveDSN\"=\"Z\"\t;tab|"
                u"\"LocalDatabasePath\"=\"C:\\Data\" #old|\"LocalDatabaseName\"=\"a\" \"b\"|\"SharedResourcePath\"=\"s\"x"_s),
         uR"(ExePath="C:\Zentrix"/-|ActiveDB="Tutorial"/-|ActiveDSN="Z"/-|LocalDatabasePath=-/-|LocalDatabaseName=-/-|SharedResourcePath=-/-)"_s},
        // A dword is one to eight hex digits, then only blanks or a comment:
        // no "0x", no sign, no ninth digit (not even a leading zero).
        {Values(u"\"A\"=dword:1234;5678|\"B\"=dword:0000002a  ; answer|\"C\"=dword:FFFFFFFF \t|\"D\"=dword:0x1|\"E\"=dword:+1|"
                u"\"F\"=dword:123456789|\"G\"=dword:000000001|\"H\"=dword:12345678abc|\"I\"=dword:123 456|\"J\"=dword:1234#5678|"
                u"\"K\"=dword:|\"L\"=dword:;none"_s),
         u"A=-/4660|B=-/42|C=-/-1|D=-/-|E=-/-|F=-/-|G=-/-|H=-/-|I=-/-|J=-/-|K=-/-|L=-/-"_s},
        // Comments after a deletion, and after hex data, also after the
        // backslash that continues it.
        {Values(uR"("ActiveDB"="T"|"ActiveDB"=- ;gone|"ExePath"="/z"|"ExePath"=-#kept|"IsLocalDatabase"=hex:01,\ ;low byte|  00,00,00 ;rest)"_s),
         uR"(ActiveDB=-/-|ExePath="/z"/-|IsLocalDatabase=-/1)"_s},
        // Hex data continued over indented lines.
        {Values(u"\"ExePath\"=hex(1):"_s + bytes.join(u',') + uR"(|"IsLocalDatabase"=hex:01,\|  00,00,\|  00|"ActiveDB"="After")"_s),
         uR"(ExePath="C:\Program Files\Bramlund\Zentrix"/-|IsLocalDatabase=-/1|ActiveDB="After"/-)"_s},
        // Key and value names in any case.
        {Export(uR"([hklm\software\BRAMLUND\zentrix]|"activedb"="T"|[HKEY_local_MACHINE\Software\Bramlund\Zentrix]|"ISLOCALDATABASE"=dword:1)"_s),
         uR"(ActiveDB="T"/-|IsLocalDatabase=-/1)"_s},
        // UTF-16 with its byte order mark, as regedit writes, and UTF-8 with one.
        {utf16, uR"(ExePath="C:\Zürich"/-|ActiveDB="Ärger"/-)"_s},
        {"\xEF\xBB\xBF" + Values(uR"("ActiveDB"="Zürich")"_s), uR"(ActiveDB="Zürich"/-)"_s},
        // Only other keys.
        {Export(kOther + uR"(|"ActiveDB"="T"|[HKEY_CURRENT_USER\SOFTWARE\Bramlund\Zentrix]|"ActiveDB"="T"|)"
                         uR"([HKEY_LOCAL_MACHINE\SOFTWARE\Bramlund\ZentrixOld]|"ActiveDB"="T")"_s), u"no key|ActiveDB=-/-|IsLocalDatabase=-/-"_s},
        // No export: no header, another version's, after a blank line, REGEDIT5, empty, binary.
        {tutorial, noKey}, {"Windows Registry Editor Version 4.00\r\n" + tutorial, noKey}, {"\r\nREGEDIT4\r\n" + tutorial, noKey},
        {"REGEDIT5\r\n" + tutorial, noKey}, {QByteArray(), noKey}, {QByteArray("\x00\x01\xFF\xFE\x00", 5), noKey},
        // A bracket line ends the section before it, even unclosed; a header
        // followed by a comment opens its key, by anything else nothing.
        {Values(uR"("ActiveDB"="T"|[HKEY_LOCAL_MACHINE\SOFTWARE\Bramlund\Other|"ExePath"="/o")"_s), uR"(ActiveDB="T"/-|ExePath=-/-)"_s},
        {Export(kOther + uR"(|"ExePath"="/o"|)"_s + kKey + uR"( ; the suite|"ActiveDB"="T")"_s), uR"(ActiveDB="T"/-|ExePath=-/-)"_s},
        {Values(uR"("ActiveDB"="T"|)"_s + kKey + uR"( x|"ExePath"="/z")"_s), uR"(ActiveDB="T"/-|ExePath=-/-)"_s},
        // "Name"=- deletes a value read before it, in its own key only.
        {Values(uR"("ActiveDB"="T"|"ExePath"="/z"|"ActiveDB" = -)"_s), uR"(ActiveDB=-/-|ExePath="/z"/-)"_s},
        {Values(uR"("ActiveDB"=-|"ActiveDB"="Local")"_s), uR"(ActiveDB="Local"/-)"_s},
        {Values(uR"("ActiveDB"="T"|)"_s + kOther + uR"(|"ActiveDB"=-)"_s), uR"(ActiveDB="T"/-)"_s},
        // [-KEY] deletes the key, or its parent; created again, it has only its
        // new values; a subkey's deletion leaves it (and creates nothing);
        // values after a deletion line belong to no key.
        {Values(uR"("ActiveDB"="T"|[-HKEY_LOCAL_MACHINE\SOFTWARE\Bramlund\Zentrix])"_s), u"no key|ActiveDB=-/-"_s},
        {Values(uR"("ActiveDB"="T"|[-HKEY_LOCAL_MACHINE\SOFTWARE\Bramlund])"_s), u"no key|ActiveDB=-/-"_s},
        {Values(uR"("ActiveDB"="T"|[-HKEY_LOCAL_MACHINE\SOFTWARE\Bramlund\Zentrix]|)"_s + kKey + uR"(|"ExePath"="/z")"_s),
         uR"(ActiveDB=-/-|ExePath="/z"/-)"_s},
        {Values(uR"("ActiveDB"="T"|[-HKEY_LOCAL_MACHINE\SOFTWARE\Bramlund\Zentrix\Sub])"_s), uR"(ActiveDB="T"/-)"_s},
        {Export(uR"([-HKEY_LOCAL_MACHINE\SOFTWARE\Bramlund\Zentrix\Sub])"_s), u"no key"_s},
        {Values(uR"("ActiveDB"="T"|[-HKEY_LOCAL_MACHINE\SOFTWARE\Bramlund\Other]|"ExePath"="/z")"_s), uR"(ActiveDB="T"/-|ExePath=-/-)"_s},
        // A 64-bit machine's export: the suite's key is below WOW6432Node,
        // read when the plain key is absent; the two are never mixed; only
        // the machine's SOFTWARE has the 32-bit view.
        {Export(wow + uR"(|"ActiveDB"="T"|"IsLocalDatabase"=dword:00000001)"_s), uR"(ActiveDB="T"/-|IsLocalDatabase=-/1)"_s},
        {Export(wow + uR"(|"ActiveDB"="T"|"ExePath"="/wow"|)"_s + kKey + uR"(|"ActiveDB"="Local")"_s), uR"(ActiveDB="Local"/-|ExePath=-/-)"_s},
        {Export(uR"([HKEY_CURRENT_USER\SOFTWARE\WOW6432Node\Bramlund\Zentrix]|"ActiveDB"="T")"_s), u"no key|ActiveDB=-/-"_s},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file.toStdString());
        write(c.file);
        EXPECT_EQ(Reads(c.reads), c.reads);
    }
    // The last file above has the user's WOW6432Node.
    EXPECT_EQ(GetSettingString(HKEY_CURRENT_USER, kZentrixKey, u"ActiveDB"_s), std::nullopt);
    write(Values(uR"("ActiveDB"="Tutorial")"_s));
    EXPECT_EQ(GetSettingString(HKEY_LOCAL_MACHINE, uR"(software\bramlund\ZENTRIX)"_s, u"ACTIVEDB"_s), u"Tutorial"_s);
    EXPECT_TRUE(!QueryValueString(RegKey(), u"ActiveDB"_s) && !QueryValueDword(RegKey(), u"IsLocalDatabase"_s));
    // A device in the file's place: read up to a limit, never forever.
    SetSettingsFileOverride(u"/dev/zero"_s);
    EXPECT_TRUE(RegOpenKey(HKEY_LOCAL_MACHINE, kZentrixKey).isNull() && SettingsFileProblem().value_or(QString()).contains(u"is too large for a settings file"_s));
}

// Unlike a missing key, a settings file that cannot be used is reported,
// naming the file; the reads themselves stay silent.
TEST_F(RegistryTest, AnUnusableSettingsFileIsReportedByName)
{
    write(Values(uR"("ActiveDB"="Tutorial")"_s));
    EXPECT_EQ(SettingsFileProblem(), std::nullopt);
    write("REGEDIT4\r\n");
    EXPECT_EQ(SettingsFileProblem(), std::nullopt) << "an export without the key is still an export";
    const auto expectProblem = [&](const QString& says) {
        const std::optional<QString> problem = SettingsFileProblem();
        EXPECT_TRUE(problem && problem->startsWith(u"The settings file "_s + path() + u' ') && problem->contains(says)) << says.toStdString();
        EXPECT_EQ(Reads(u"no key|ActiveDB=-/-|IsLocalDatabase=-/-"_s), u"no key|ActiveDB=-/-|IsLocalDatabase=-/-"_s);
    };
    QFile::remove(path());
    expectProblem(u"does not exist"_s);
    // An .ini file: CliSettings.AnUnusableSettingsFileIsNamed.
    write(QByteArray());
    expectProblem(u"is not a registry export"_s);
    // An export followed by anything that makes it larger than any
    // settings file is too large, not another kind of file.
    write(Values(uR"("ActiveDB"="Tutorial")"_s));
    ASSERT_TRUE(QFile::resize(path(), 16 * 1024 * 1024 + 1));
    expectProblem(u"is too large for a settings file: it holds more than 16 MB."_s);
    QFile::remove(path());
    QDir(m_dir.path()).mkdir(u"zentrix.reg"_s);
    expectProblem(u"cannot be read"_s);
}

// A settings file of value lines ('|' between, <D> the temporary folder),
// with the databases start-up opens beside it.
class StartupTest : public RegistryTest {
protected:
    QString path(const QString& name) const { return m_dir.filePath(name); }
    void settings(const QString& values) { test::WriteSettings(RegistryTest::path(), fill(values)); }
    QString fill(QString text) const { return text.replace(u"<D>"_s, m_dir.path()); }
    void makeDatabase(const QString& name) { test::MakeDatabaseFile(path(name)); }
};


// The plan for the settings: mode, connection, shared resources, test and
// user data, installation, and the repository as the window names it.
TEST_F(StartupTest, TheSettingsChooseTheMode)
{
    makeDatabase(u"Tutorial/Database/Tutorial.mdb"_s);
    const std::vector<std::pair<QString, QString>> cases = {
        // Tutorial before a local database.
        {uR"("ActiveDB"="Tutorial"|"ExePath"="<D>"|"IsLocalDatabase"=dword:00000001|"SharedResourcePath"="/x")"_s,
         uR"(Tutorial|PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=<D>\Tutorial\Database\Tutorial.mdb;|<D>\Tutorial|<D>\Tutorial\TestData.mdb|<D>\Tutorial\database\UserData.mdb|<D>|<D>/Tutorial/Database/Tutorial.mdb|Tutorial.mdb)"_s},
        // Tutorial in another case is a local repository.
        {uR"("ActiveDB"="tutorial"|"ExePath"="/z"|"IsLocalDatabase"=dword:00000001|"LocalDatabasePath"="/db"|"LocalDatabaseName"="Z.mdb"|"SharedResourcePath"="/s")"_s,
         uR"(Local|PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=/db\Z.mdb;|/s|/s\testdata.mdb|/z\UserData.mdb|/z|/db/Z.mdb|Z.mdb)"_s},
        // IsLocalDatabase as text means a server; a data source with settings
        // of its own is passed on as it stands, and named without them.
        {uR"("IsLocalDatabase"="1"|"ActiveDSN"="zentrix;UID=admin;PWD=secret")"_s,
         uR"(Server|PROVIDER=MSDASQL;DSN=zentrix;UID=admin;PWD=secret||\testdata.mdb|\UserData.mdb||zentrix|zentrix)"_s},
        {QString(), uR"(Server|PROVIDER=MSDASQL;DSN=||\testdata.mdb|\UserData.mdb|||)"_s},
    };
    for (const auto& [values, want] : cases) {
        settings(values);
        const StartupPlan p = PlanStartup();
        EXPECT_EQ((QStringList{ModeName(p.mode), p.connectionString, p.sharedResourcePath, p.testDataPath, p.userDataPath,
                               p.installationPath, RepositoryLocation(p), RepositoryTitle(p)}).join(u'|'), fill(want));
    }
}

// Tutorial opens user data before test data, the other modes test data
// first; file and folder names match in any case, and a missing database is
// never created.
TEST_F(StartupTest, DatabasesOpenInTheModesOrder)
{
    Session session;
    // Makes the database, then opens what the settings name.
    const auto step = [&](const QString& database, const QString& says) {
        session.Close();
        makeDatabase(database);
        EXPECT_TRUE(test::descriptionOf([&] { session.Open(PlanStartup()); }).contains(says)) << says.toStdString();
    };
    // A database without the repository's tables is no repository.
    const auto addTables = [&](const QString& database) {
        Connection repository;
        repository.OpenFile(path(database));
        BuildDatabase(repository, SchemaVariant::Repository, RepositoryContent::Empty);
    };
    settings(uR"("ActiveDB"="Tutorial"|"ExePath"="<D>")"_s);
    step(u"Tutorial/Database/Tutorial.mdb"_s, u"Tutorial.mdb holds no repository tables: it is not a Zentrix repository"_s);
    addTables(u"Tutorial/Database/Tutorial.mdb"_s);
    session.Close();
    EXPECT_TRUE(test::descriptionOf([&] { session.Open(PlanStartup()); }).contains(u"UserData.mdb"_s));
    step(u"Tutorial/Database/UserData.mdb"_s, u"TestData.mdb"_s); // the same folder as "database"
    step(u"Tutorial/TestData.mdb"_s, u"<no error>"_s);

    settings(uR"("IsLocalDatabase"=dword:00000001|"LocalDatabasePath"="<D>"|"LocalDatabaseName"="repo.mdb"|"SharedResourcePath"="<D>/shared"|"ExePath"="<D>/exe")"_s);
    makeDatabase(u"repo.mdb"_s);
    addTables(u"repo.mdb"_s);
    step(u"shared/unused.mdb"_s, u"testdata.mdb"_s);
    step(u"shared/TESTDATA.MDB"_s, u"UserData.mdb"_s);
    EXPECT_FALSE(QFile::exists(path(u"exe/UserData.mdb"_s)));
}

} // namespace
} // namespace dorvane
