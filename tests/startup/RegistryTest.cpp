#include "startup/Registry.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <functional>
#include <vector>

namespace dorvane {
namespace {

using namespace Qt::StringLiterals;

const QString kV5 = QStringLiteral("Windows Registry Editor Version 5.00\r\n\r\n");
const QString kV4 = QStringLiteral("REGEDIT4\r\n\r\n");
const QString kSection = QStringLiteral("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\Zentrix]\r\n");

// "T" -> "54,00" as regedit writes string data in a version 5 file.
QString HexUtf16(const QString& text)
{
    QStringList bytes;
    for (const QChar c : text) {
        bytes << QString::asprintf("%02x", c.unicode() & 0xFF) << QString::asprintf("%02x", c.unicode() >> 8);
    }
    return bytes.join(u',');
}

QByteArray Utf16LeWithBom(const QString& text)
{
    QByteArray bytes("\xFF\xFE");
    for (const QChar c : text) {
        bytes.append(static_cast<char>(c.unicode() & 0xFF));
        bytes.append(static_cast<char>(c.unicode() >> 8));
    }
    return bytes;
}

class RegistryTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        m_savedEnv = qgetenv("ZENTRIX_REGISTRY");
        m_hadEnv = qEnvironmentVariableIsSet("ZENTRIX_REGISTRY");
        qunsetenv("ZENTRIX_REGISTRY");
        SetSettingsFileOverride(path());
    }

    void TearDown() override
    {
        SetSettingsFileOverride(QString());
        if (m_hadEnv)
            qputenv("ZENTRIX_REGISTRY", m_savedEnv);
        else
            qunsetenv("ZENTRIX_REGISTRY");
    }

    QString path(const QString& name = QStringLiteral("zentrix.reg")) const { return m_dir.filePath(name); }

    void WriteBytes(const QByteArray& bytes, const QString& name = QStringLiteral("zentrix.reg"))
    {
        QFile file(path(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        ASSERT_EQ(file.write(bytes), bytes.size());
    }

    void Write(const QString& text, const QString& name = QStringLiteral("zentrix.reg")) { WriteBytes(text.toUtf8(), name); }

    // A version 5 file with the Zentrix key holding `values` (one per line).
    void WriteValues(const QString& values) { Write(kV5 + kSection + values); }

    QTemporaryDir m_dir;
    QByteArray m_savedEnv;
    bool m_hadEnv = false;
};

TEST_F(RegistryTest, ReadsTextAndDwordSettings)
{
    WriteValues(QStringLiteral("\"ActiveDB\"=\"Tutorial\"\r\n"
                               "\"ExePath\"=\"C:\\\\Program Files\\\\Bramlund\\\\Zentrix\"\r\n"
                               "\"IsLocalDatabase\"=dword:00000001\r\n"
                               "\"Minus\"=dword:fffffffe\r\n"
                               "\"Short\"=dword:2a\r\n"));
    EXPECT_EQ(SettingString(QStringLiteral("ActiveDB")), QStringLiteral("Tutorial"));
    EXPECT_EQ(SettingString(QStringLiteral("ExePath")), QStringLiteral("C:\\Program Files\\Bramlund\\Zentrix"));
    EXPECT_EQ(SettingDword(QStringLiteral("IsLocalDatabase")), 1);
    EXPECT_EQ(SettingDword(QStringLiteral("Minus")), -2);
    EXPECT_EQ(SettingDword(QStringLiteral("Short")), 42);
    EXPECT_EQ(GetSettingString(HKEY_LOCAL_MACHINE, kZentrixKey, QStringLiteral("ActiveDB")),
              std::optional<QString>(QStringLiteral("Tutorial")));
}

TEST_F(RegistryTest, MissingOrTextIsLocalDatabaseReadsZero)
{
    WriteValues(QStringLiteral("\"ActiveDB\"=\"Tutorial\"\r\n"));
    EXPECT_EQ(GetSettingDword(HKEY_LOCAL_MACHINE, kZentrixKey, QStringLiteral("IsLocalDatabase")), std::nullopt);
    EXPECT_EQ(SettingDword(QStringLiteral("IsLocalDatabase")), 0);

    WriteValues(QStringLiteral("\"IsLocalDatabase\"=\"1\"\r\n"));
    EXPECT_EQ(GetSettingDword(HKEY_LOCAL_MACHINE, kZentrixKey, QStringLiteral("IsLocalDatabase")), std::nullopt);
    EXPECT_EQ(SettingDword(QStringLiteral("IsLocalDatabase")), 0);
}

TEST_F(RegistryTest, BinaryReadsAsLittleEndianDword)
{
    WriteValues(QStringLiteral("\"IsLocalDatabase\"=hex:2a,01,00,00\r\n"
                               "\"Negative\"=hex:fe,ff,ff,ff\r\n"
                               "\"TwoBytes\"=hex:2a,01\r\n"
                               "\"NoBytes\"=hex:\r\n"
                               "\"FiveBytes\"=hex:01,00,00,00,00\r\n"
                               "\"ShortDword\"=hex(4):07\r\n"
                               "\"LongDword\"=hex(4):01,00,00,00,00,00,00,00\r\n"));
    EXPECT_EQ(SettingDword(QStringLiteral("IsLocalDatabase")), 0x12a);
    EXPECT_EQ(SettingDword(QStringLiteral("Negative")), -2);
    // Fewer than four bytes fill the low bytes of a zero.
    EXPECT_EQ(SettingDword(QStringLiteral("TwoBytes")), 0x12a);
    EXPECT_EQ(SettingDword(QStringLiteral("ShortDword")), 7);
    EXPECT_EQ(GetSettingDword(HKEY_LOCAL_MACHINE, kZentrixKey, QStringLiteral("NoBytes")), std::optional<qint32>(0));
    // More than four bytes do not fit: the number 0, not the empty result.
    EXPECT_EQ(GetSettingDword(HKEY_LOCAL_MACHINE, kZentrixKey, QStringLiteral("FiveBytes")),
              std::optional<qint32>(0));
    EXPECT_EQ(GetSettingDword(HKEY_LOCAL_MACHINE, kZentrixKey, QStringLiteral("LongDword")),
              std::optional<qint32>(0));
    // A binary value is no text.
    EXPECT_EQ(GetSettingString(HKEY_LOCAL_MACHINE, kZentrixKey, QStringLiteral("IsLocalDatabase")), std::nullopt);
}

TEST_F(RegistryTest, StringsComeBackCutAtTheFirstNul)
{
    WriteValues(QStringLiteral("\"WithNul\"=hex(1):%1\r\n"
                               "\"WithoutNul\"=hex(1):%2\r\n"
                               "\"Embedded\"=hex(1):%3\r\n"
                               "\"Empty\"=\"\"\r\n"
                               "\"NoBytes\"=hex(1):\r\n")
                    .arg(HexUtf16(QStringLiteral("Tutorial") + QChar(0)), HexUtf16(QStringLiteral("Tutorial")),
                         HexUtf16(QStringLiteral("Tut") + QChar(0) + QStringLiteral("orial") + QChar(0))));
    EXPECT_EQ(SettingString(QStringLiteral("WithNul")), QStringLiteral("Tutorial"));
    EXPECT_EQ(SettingString(QStringLiteral("WithoutNul")), QStringLiteral("Tutorial"));
    EXPECT_EQ(SettingString(QStringLiteral("Embedded")), QStringLiteral("Tut"));
    EXPECT_EQ(GetSettingString(HKEY_LOCAL_MACHINE, kZentrixKey, QStringLiteral("Empty")),
              std::optional<QString>(QString()));
    EXPECT_EQ(GetSettingString(HKEY_LOCAL_MACHINE, kZentrixKey, QStringLiteral("NoBytes")),
              std::optional<QString>(QString()));
    // A text value is no number.
    EXPECT_EQ(GetSettingDword(HKEY_LOCAL_MACHINE, kZentrixKey, QStringLiteral("WithNul")), std::nullopt);
}

TEST_F(RegistryTest, OnlyPlainStringsAreReadAsText)
{
    WriteValues(QStringLiteral("\"ActiveDB\"=hex(2):%1\r\n"
                               "\"ExePath\"=hex(7):%2\r\n"
                               "\"IsLocalDatabase\"=dword:00000001\r\n"
                               "\"Other\"=hex(b):01,00,00,00,00,00,00,00\r\n"
                               "\"None\"=hex(0):01\r\n")
                    .arg(HexUtf16(QStringLiteral("Tutorial") + QChar(0)),
                         HexUtf16(QStringLiteral("C:\\Zentrix") + QChar(0) + QChar(0))));
    for (const char* name : {"ActiveDB", "ExePath", "IsLocalDatabase", "Other", "None"}) {
        EXPECT_EQ(GetSettingString(HKEY_LOCAL_MACHINE, kZentrixKey, QString::fromLatin1(name)), std::nullopt)
            << name;
        EXPECT_EQ(SettingString(QString::fromLatin1(name)), QString()) << name;
    }
    EXPECT_EQ(GetSettingDword(HKEY_LOCAL_MACHINE, kZentrixKey, QStringLiteral("ActiveDB")), std::nullopt);
    EXPECT_EQ(GetSettingDword(HKEY_LOCAL_MACHINE, kZentrixKey, QStringLiteral("Other")), std::nullopt);
}

TEST_F(RegistryTest, MissingKeyOrFileReadsEverythingEmpty)
{
    const QStringList names = {QStringLiteral("ActiveDB"),          QStringLiteral("ExePath"),
                               QStringLiteral("LocalDatabasePath"), QStringLiteral("LocalDatabaseName"),
                               QStringLiteral("SharedResourcePath"), QStringLiteral("ActiveDSN")};
    auto expectAllEmpty = [&](const char* what) {
        EXPECT_TRUE(RegOpenKey(HKEY_LOCAL_MACHINE, kZentrixKey).isNull()) << what;
        for (const QString& name : names)
            EXPECT_EQ(GetSettingString(HKEY_LOCAL_MACHINE, kZentrixKey, name), std::nullopt) << what;
        EXPECT_EQ(GetSettingDword(HKEY_LOCAL_MACHINE, kZentrixKey, QStringLiteral("IsLocalDatabase")),
                  std::nullopt)
            << what;
        EXPECT_EQ(SettingDword(QStringLiteral("IsLocalDatabase")), 0) << what;
        EXPECT_EQ(SettingString(QStringLiteral("ActiveDB")), QString()) << what;
    };

    Write(kV5 + QStringLiteral("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\Other]\r\n"
                               "\"ActiveDB\"=\"Tutorial\"\r\n"
                               "[HKEY_CURRENT_USER\\SOFTWARE\\Bramlund\\Zentrix]\r\n"
                               "\"ActiveDB\"=\"Tutorial\"\r\n"
                               "\"IsLocalDatabase\"=dword:00000001\r\n"
                               "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\ZentrixOld]\r\n"
                               "\"ActiveDB\"=\"Tutorial\"\r\n"));
    expectAllEmpty("other keys only");

    QFile::remove(path());
    expectAllEmpty("no file");

    ASSERT_TRUE(QDir(m_dir.path()).mkdir(QStringLiteral("zentrix.reg")));
    expectAllEmpty("a folder in the file's place");

    EXPECT_EQ(QueryValueString(RegKey(), QStringLiteral("ActiveDB")), std::nullopt);
    EXPECT_EQ(QueryValueDword(RegKey(), QStringLiteral("IsLocalDatabase")), std::nullopt);
}

TEST_F(RegistryTest, KeyAndValueNamesIgnoreCase)
{
    Write(kV5 + QStringLiteral("[hklm\\software\\BRAMLUND\\zentrix]\r\n"
                               "\"activedb\"=\"Tutorial\"\r\n"
                               "[HKEY_local_MACHINE\\Software\\Bramlund\\Zentrix]\r\n"
                               "\"ISLOCALDATABASE\"=dword:00000001\r\n"));
    EXPECT_EQ(SettingString(QStringLiteral("ActiveDB")), QStringLiteral("Tutorial"));
    EXPECT_EQ(SettingDword(QStringLiteral("IsLocalDatabase")), 1);
    EXPECT_EQ(GetSettingString(HKEY_LOCAL_MACHINE, QStringLiteral("software\\bramlund\\ZENTRIX"),
                               QStringLiteral("ACTIVEDB")),
              std::optional<QString>(QStringLiteral("Tutorial")));
}

TEST_F(RegistryTest, ReadsUtf16FileAsRegeditWritesIt)
{
    const QString text = kV5 + kSection
                         + QStringLiteral("\"ExePath\"=\"C:\\\\Programme\\\\Zürich\"\r\n"
                                          "\"ActiveDB\"=hex(1):%1\r\n"
                                          "\"IsLocalDatabase\"=dword:00000001\r\n")
                               .arg(HexUtf16(QStringLiteral("Ärger") + QChar(0)));
    WriteBytes(Utf16LeWithBom(text));
    EXPECT_EQ(SettingString(QStringLiteral("ExePath")), QStringLiteral("C:\\Programme\\Zürich"));
    EXPECT_EQ(SettingString(QStringLiteral("ActiveDB")), QStringLiteral("Ärger"));
    EXPECT_EQ(SettingDword(QStringLiteral("IsLocalDatabase")), 1);

    WriteBytes(QByteArray("\xEF\xBB\xBF") + (kV5 + kSection + QStringLiteral("\"ActiveDB\"=\"Zürich\"\r\n")).toUtf8());
    EXPECT_EQ(SettingString(QStringLiteral("ActiveDB")), QStringLiteral("Zürich"));
}

TEST_F(RegistryTest, HexDataContinuesOverIndentedLines)
{
    const QString hex = HexUtf16(QStringLiteral("C:\\Program Files\\Bramlund\\Zentrix") + QChar(0));
    // Break the list after every 8th byte, as regedit does after about 80 columns.
    QStringList bytes = hex.split(u',');
    QString wrapped;
    for (qsizetype i = 0; i < bytes.size(); ++i) {
        wrapped += bytes.at(i);
        if (i + 1 < bytes.size())
            wrapped += (i % 8 == 7) ? QStringLiteral(",\\\r\n  ") : QStringLiteral(",");
    }
    WriteValues(QStringLiteral("\"ExePath\"=hex(1):%1\r\n"
                               "\"IsLocalDatabase\"=hex:01,\\\r\n"
                               "  00,00,\\\r\n"
                               "  00\r\n"
                               "\"ActiveDB\"=\"After\"\r\n")
                    .arg(wrapped));
    ASSERT_GT(wrapped.count(u'\n'), 3);
    EXPECT_EQ(SettingString(QStringLiteral("ExePath")), QStringLiteral("C:\\Program Files\\Bramlund\\Zentrix"));
    EXPECT_EQ(SettingDword(QStringLiteral("IsLocalDatabase")), 1);
    EXPECT_EQ(SettingString(QStringLiteral("ActiveDB")), QStringLiteral("After"));
}

TEST_F(RegistryTest, CommentsEscapesAndBlankLines)
{
    WriteValues(QStringLiteral("; installed by the suite's set-up\r\n"
                               "\r\n"
                               "   ; indented comment\r\n"
                               "\"ActiveDSN\"=\"Zentrix \\\"live\\\"\"\r\n"
                               "\"SharedResourcePath\"=\"\\\\\\\\server\\\\share\"\r\n"
                               "\"LocalDatabasePath\"=\"C:\\Data\"\r\n"
                               "\"ActiveDB\"=\"; not a comment\"\r\n"));
    EXPECT_EQ(SettingString(QStringLiteral("ActiveDSN")), QStringLiteral("Zentrix \"live\""));
    EXPECT_EQ(SettingString(QStringLiteral("SharedResourcePath")), QStringLiteral("\\\\server\\share"));
    // A backslash that escapes nothing stays.
    EXPECT_EQ(SettingString(QStringLiteral("LocalDatabasePath")), QStringLiteral("C:\\Data"));
    EXPECT_EQ(SettingString(QStringLiteral("ActiveDB")), QStringLiteral("; not a comment"));
}

TEST_F(RegistryTest, MalformedFileReadsEverythingMissing)
{
    const QString body = kSection + QStringLiteral("\"ActiveDB\"=\"Tutorial\"\r\n");
    for (const QString& header :
         {QString(), QStringLiteral("Windows Registry Editor Version 4.00\r\n"), QStringLiteral("\r\nREGEDIT4\r\n"),
          QStringLiteral("REGEDIT5\r\n"), QStringLiteral("[HKEY_LOCAL_MACHINE\\SOFTWARE]\r\n")}) {
        Write(header + body);
        EXPECT_TRUE(RegOpenKey(HKEY_LOCAL_MACHINE, kZentrixKey).isNull()) << header.toStdString();
        EXPECT_EQ(SettingString(QStringLiteral("ActiveDB")), QString()) << header.toStdString();
    }
    WriteBytes(QByteArray());
    EXPECT_TRUE(RegOpenKey(HKEY_LOCAL_MACHINE, kZentrixKey).isNull());
    WriteBytes(QByteArray("\x00\x01\xFF\xFE\x00", 5));
    EXPECT_EQ(SettingString(QStringLiteral("ActiveDB")), QString());
    // A device in the file's place: read up to a limit, never forever.
    SetSettingsFileOverride(QStringLiteral("/dev/zero"));
    EXPECT_TRUE(RegOpenKey(HKEY_LOCAL_MACHINE, kZentrixKey).isNull());
}

// Files as regedit on Windows writes them and as administrators edit them:
// each case is the file after the header, and what ActiveDB and ExePath
// then read ("" for nothing).
TEST_F(RegistryTest, SectionsEndAndDeleteAsAnImportWould)
{
    const QString other = QStringLiteral("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\Other]\r\n");
    const QString zentrixSub = QStringLiteral("HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\Zentrix\\Sub");
    struct Case {
        const char* name;
        QString body;
        const char* activeDb;
        const char* exePath;
    };
    const std::vector<Case> cases = {
        {"an unclosed header ends the section before it",
         kSection + u"\"ActiveDB\"=\"Tutorial\"\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\Other\r\n"
                    u"\"ExePath\"=\"/other\"\r\n"_s,
         "Tutorial", ""},
        {"a header followed by a comment opens its key",
         other + u"\"ExePath\"=\"/other\"\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\Zentrix] ; the suite\r\n"
                 u"\"ActiveDB\"=\"Tutorial\"\r\n"_s,
         "Tutorial", ""},
        {"a header followed by anything else opens nothing",
         kSection + u"\"ActiveDB\"=\"Tutorial\"\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\Zentrix] x\r\n"
                    u"\"ExePath\"=\"/zentrix\"\r\n"_s,
         "Tutorial", ""},
        {"a value deletion removes the value read before it",
         kSection + u"\"ActiveDB\"=\"Tutorial\"\r\n\"ExePath\"=\"/zentrix\"\r\n\"ActiveDB\" = -\r\n"_s, "",
         "/zentrix"},
        {"a value deleted and set again", kSection + u"\"ActiveDB\"=-\r\n\"ActiveDB\"=\"Local\"\r\n"_s, "Local", ""},
        {"a value deletion in another key changes nothing",
         kSection + u"\"ActiveDB\"=\"Tutorial\"\r\n"_s + other + u"\"ActiveDB\"=-\r\n"_s, "Tutorial", ""},
        {"a key deletion removes the key's values",
         kSection + u"\"ActiveDB\"=\"Tutorial\"\r\n[-HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\Zentrix]\r\n"_s, "", ""},
        {"a deleted parent takes the key with it",
         kSection + u"\"ActiveDB\"=\"Tutorial\"\r\n[-HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund]\r\n"_s, "", ""},
        {"a deleted key created again has only its new values",
         kSection + u"\"ActiveDB\"=\"Tutorial\"\r\n[-HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\Zentrix]\r\n"_s +
             kSection + u"\"ExePath\"=\"/zentrix\"\r\n"_s,
         "", "/zentrix"},
        {"a deleted subkey leaves the key's values",
         kSection + u"\"ActiveDB\"=\"Tutorial\"\r\n[-"_s + zentrixSub + u"]\r\n"_s, "Tutorial", ""},
        {"values after a deletion line belong to no key",
         kSection + u"\"ActiveDB\"=\"Tutorial\"\r\n[-HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\Other]\r\n"
                    u"\"ExePath\"=\"/zentrix\"\r\n"_s,
         "Tutorial", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Write(kV5 + c.body);
        EXPECT_EQ(SettingString(u"ActiveDB"_s), QString::fromLatin1(c.activeDb));
        EXPECT_EQ(SettingString(u"ExePath"_s), QString::fromLatin1(c.exePath));
    }

    Write(kV5 + kSection + u"\"ActiveDB\"=\"Tutorial\"\r\n[-HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\Zentrix]\r\n"_s);
    EXPECT_TRUE(RegOpenKey(HKEY_LOCAL_MACHINE, kZentrixKey).isNull()) << "a deleted key is missing";
    Write(kV5 + u"[-"_s + zentrixSub + u"]\r\n"_s);
    EXPECT_TRUE(RegOpenKey(HKEY_LOCAL_MACHINE, kZentrixKey).isNull()) << "deleting a subkey creates nothing";
}

// A 32-bit program on 64-bit Windows sees HKLM\SOFTWARE through
// WOW6432Node, so that is where a 64-bit machine's export has the suite.
TEST_F(RegistryTest, SixtyFourBitExportsAreReadFromWow6432Node)
{
    const QString wow = QStringLiteral("[HKEY_LOCAL_MACHINE\\SOFTWARE\\WOW6432Node\\Bramlund\\Zentrix]\r\n");
    Write(kV5 + wow + u"\"ActiveDB\"=\"Tutorial\"\r\n\"IsLocalDatabase\"=dword:00000001\r\n"_s);
    EXPECT_EQ(SettingString(u"ActiveDB"_s), u"Tutorial"_s);
    EXPECT_EQ(SettingDword(u"IsLocalDatabase"_s), 1);

    // The plain key wins when it exists, even without the value: the two
    // views are never mixed.
    Write(kV5 + wow + u"\"ActiveDB\"=\"Tutorial\"\r\n\"ExePath\"=\"/wow\"\r\n"_s + kSection +
          u"\"ActiveDB\"=\"Local\"\r\n"_s);
    EXPECT_EQ(SettingString(u"ActiveDB"_s), u"Local"_s);
    EXPECT_EQ(SettingString(u"ExePath"_s), QString());

    // Only the machine's SOFTWARE has the 32-bit view.
    Write(kV5 + u"[HKEY_CURRENT_USER\\SOFTWARE\\WOW6432Node\\Bramlund\\Zentrix]\r\n\"ActiveDB\"=\"Tutorial\"\r\n"_s);
    EXPECT_EQ(SettingString(u"ActiveDB"_s), QString());
    EXPECT_EQ(GetSettingString(HKEY_CURRENT_USER, kZentrixKey, u"ActiveDB"_s), std::nullopt);
}

// Unlike a missing key, a settings file that cannot be used is reported,
// naming the file; the reads themselves stay silent.
TEST_F(RegistryTest, AnUnusableSettingsFileIsReportedByName)
{
    WriteValues(u"\"ActiveDB\"=\"Tutorial\"\r\n"_s);
    EXPECT_EQ(SettingsFileProblem(), std::nullopt);
    Write(QStringLiteral("REGEDIT4\r\n"));
    EXPECT_EQ(SettingsFileProblem(), std::nullopt) << "an export without the key is still an export";

    struct Case {
        const char* name;
        std::function<void()> make;
        const char* says;
    };
    const std::vector<Case> cases = {
        {"missing", [&] { QFile::remove(path()); }, "does not exist"},
        {"empty", [&] { WriteBytes(QByteArray()); }, "is not a registry export"},
        {"an ini file", [&] { Write(u"[Zentrix]\nActiveDB=Tutorial\n"_s); }, "is not a registry export"},
        {"a folder",
         [&] {
             QFile::remove(path());
             QDir(m_dir.path()).mkdir(u"zentrix.reg"_s);
         },
         "cannot be read"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        c.make();
        const std::optional<QString> problem = SettingsFileProblem();
        ASSERT_TRUE(problem.has_value());
        EXPECT_TRUE(problem->startsWith(u"The settings file "_s + path() + u' ')) << problem->toStdString();
        EXPECT_TRUE(problem->contains(QString::fromLatin1(c.says))) << problem->toStdString();
        EXPECT_EQ(SettingString(u"ActiveDB"_s), QString());
    }
}

} // namespace
} // namespace dorvane
