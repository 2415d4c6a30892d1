// The settings file read with the registry's rules, and as Windows imports
// an export.

#include "startup/Registry.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <functional>

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

QByteArray Export(const QStringList& lines) { return (kV5 + lines.join(u"\r\n"_s) + u"\r\n"_s).toUtf8(); }

// What the Zentrix key reads: "no key" when it cannot be opened, then per
// value Name="text"/dword, "-" for the registry's empty result.
QStringList Reads(const QStringList& names)
{
    QStringList seen;
    if (RegOpenKey(HKEY_LOCAL_MACHINE, kZentrixKey).isNull())
        seen << u"no key"_s;
    for (const QString& name : names) {
        const std::optional<QString> text = GetSettingString(HKEY_LOCAL_MACHINE, kZentrixKey, name);
        const std::optional<qint32> dword = GetSettingDword(HKEY_LOCAL_MACHINE, kZentrixKey, name);
        EXPECT_EQ(SettingString(name), text.value_or(QString()));
        EXPECT_EQ(SettingDword(name), dword.value_or(0));
        seen << name + u'=' + (text ? u'"' + *text + u'"' : u"-"_s) + u'/' + (dword ? QString::number(*dword) : u"-"_s);
    }
    return seen;
}

class RegistryTest : public ::testing::Test {
protected:
    void SetUp() override { SetSettingsFileOverride(path()); }
    void TearDown() override { SetSettingsFileOverride(QString()); }

    QString path() const { return m_dir.filePath(u"zentrix.reg"_s); }

    void write(const QByteArray& bytes)
    {
        QFile file(path());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        ASSERT_EQ(file.write(bytes), bytes.size());
    }

    QTemporaryDir m_dir;
};

TEST_F(RegistryTest, ValuesReadWithTheRegistrysRules)
{
    // Hex data broken after every 8th byte, as regedit does after about 80 columns.
    QStringList bytes = HexUtf16(u"C:\\Program Files\\Bramlund\\Zentrix"_s + QChar(0)).split(u',');
    for (qsizetype i = 8; i < bytes.size(); i += 8)
        bytes[i] = u"\\\r\n  "_s + bytes[i];
    const QString wrapped = bytes.join(u',');
    QByteArray utf16("\xFF\xFE");
    for (const QChar c : QString::fromUtf8(Export({kKey, uR"("ExePath"="C:\\Zürich")"_s, u"\"ActiveDB\"=hex(1):"_s + HexUtf16(u"Ärger"_s)})))
        utf16.append(static_cast<char>(c.unicode() & 0xFF)).append(static_cast<char>(c.unicode() >> 8));
    struct Case {
        const char* name;
        QByteArray file;
        QStringList reads;
    };
    const std::vector<Case> cases = {
        {"text and numbers",
         Export({kKey, uR"("ActiveDB"="Tutorial")"_s, uR"("ExePath"="C:\\Program Files\\Zentrix")"_s,
                 u"\"IsLocalDatabase\"=dword:00000001"_s, u"\"Minus\"=dword:fffffffe"_s, u"\"Short\"=dword:2a"_s}),
         {uR"(ActiveDB="Tutorial"/-)"_s, uR"(ExePath="C:\Program Files\Zentrix"/-)"_s, u"IsLocalDatabase=-/1"_s,
          u"Minus=-/-2"_s, u"Short=-/42"_s, u"Missing=-/-"_s}},
        {"a number stored as text is no number", Export({kKey, uR"("IsLocalDatabase"="1")"_s}), {uR"(IsLocalDatabase="1"/-)"_s}},
        // Binary data reads as a little-endian number: fewer than four bytes
        // fill a zero's low bytes, more than four read 0.
        {"binary numbers",
         Export({kKey, u"\"A\"=hex:2a,01,00,00"_s, u"\"B\"=hex:fe,ff,ff,ff"_s, u"\"C\"=hex:2a,01"_s, u"\"D\"=hex(4):07"_s,
                 u"\"E\"=hex:"_s, u"\"F\"=hex:01,00,00,00,00"_s, u"\"G\"=hex(4):01,00,00,00,00,00,00,00"_s}),
         {u"A=-/298"_s, u"B=-/-2"_s, u"C=-/298"_s, u"D=-/7"_s, u"E=-/0"_s, u"F=-/0"_s, u"G=-/0"_s}},
        {"strings cut at the first NUL",
         Export({kKey, u"\"A\"=hex(1):"_s + HexUtf16(u"Tutorial"_s + QChar(0)), u"\"B\"=hex(1):"_s + HexUtf16(u"Tutorial"_s),
                 u"\"C\"=hex(1):"_s + HexUtf16(u"Tut"_s + QChar(0) + u"orial"_s + QChar(0)), u"\"D\"=\"\""_s, u"\"E\"=hex(1):"_s}),
         {uR"(A="Tutorial"/-)"_s, uR"(B="Tutorial"/-)"_s, uR"(C="Tut"/-)"_s, uR"(D=""/-)"_s, uR"(E=""/-)"_s}},
        {"only plain strings are text",
         Export({kKey, u"\"A\"=hex(2):"_s + HexUtf16(u"Tutorial"_s + QChar(0)), u"\"B\"=hex(7):"_s + HexUtf16(u"C:\\Z"_s + QChar(0) + QChar(0)),
                 u"\"C\"=hex(b):01,00,00,00,00,00,00,00"_s, u"\"D\"=hex(0):01"_s}),
         {u"A=-/-"_s, u"B=-/-"_s, u"C=-/-"_s, u"D=-/-"_s}},
        {"comments, escapes and blank lines",
         Export({kKey, u"; installed by the suite's set-up"_s, QString(), u"   ; indented comment"_s,
                 uR"("ActiveDSN"="Zentrix \"live\"")"_s, uR"("SharedResourcePath"="\\\\server\\share")"_s,
                 uR"("LocalDatabasePath"="C:\Data")"_s, uR"("ActiveDB"="; not a comment")"_s}),
         {uR"(ActiveDSN="Zentrix "live""/-)"_s, uR"(SharedResourcePath="\\server\share"/-)"_s,
          uR"(LocalDatabasePath="C:\Data"/-)"_s, uR"(ActiveDB="; not a comment"/-)"_s}},
        {"hex data continued over indented lines",
         Export({kKey, u"\"ExePath\"=hex(1):"_s + wrapped, u"\"IsLocalDatabase\"=hex:01,\\"_s, u"  00,00,\\"_s, u"  00"_s,
                 uR"("ActiveDB"="After")"_s}),
         {uR"(ExePath="C:\Program Files\Bramlund\Zentrix"/-)"_s, u"IsLocalDatabase=-/1"_s, uR"(ActiveDB="After"/-)"_s}},
        {"key and value names in any case",
         Export({uR"([hklm\software\BRAMLUND\zentrix])"_s, uR"("activedb"="Tutorial")"_s,
                 uR"([HKEY_local_MACHINE\Software\Bramlund\Zentrix])"_s, u"\"ISLOCALDATABASE\"=dword:00000001"_s}),
         {uR"(ActiveDB="Tutorial"/-)"_s, u"IsLocalDatabase=-/1"_s}},
        {"UTF-16 with its byte order mark, as regedit writes", utf16, {uR"(ExePath="C:\Zürich"/-)"_s, uR"(ActiveDB="Ärger"/-)"_s}},
        {"UTF-8 with its byte order mark", "\xEF\xBB\xBF" + Export({kKey, uR"("ActiveDB"="Zürich")"_s}), {uR"(ActiveDB="Zürich"/-)"_s}},
        {"only other keys",
         Export({kOther, uR"("ActiveDB"="Tutorial")"_s, uR"([HKEY_CURRENT_USER\SOFTWARE\Bramlund\Zentrix])"_s,
                 uR"("ActiveDB"="Tutorial")"_s, uR"([HKEY_LOCAL_MACHINE\SOFTWARE\Bramlund\ZentrixOld])"_s, uR"("ActiveDB"="Tutorial")"_s}),
         {u"no key"_s, u"ActiveDB=-/-"_s, u"IsLocalDatabase=-/-"_s}},
        {"no header", (kKey + u"\r\n\"ActiveDB\"=\"Tutorial\"\r\n"_s).toUtf8(), {u"no key"_s, u"ActiveDB=-/-"_s}},
        {"header of version 4.00", "Windows Registry Editor Version 4.00\r\n" + Export({kKey, uR"("ActiveDB"="Tutorial")"_s}).mid(kV5.size()),
         {u"no key"_s, u"ActiveDB=-/-"_s}},
        {"header after a blank line", "\r\nREGEDIT4\r\n" + Export({kKey, uR"("ActiveDB"="Tutorial")"_s}).mid(kV5.size()),
         {u"no key"_s, u"ActiveDB=-/-"_s}},
        {"header REGEDIT5", "REGEDIT5\r\n" + Export({kKey, uR"("ActiveDB"="Tutorial")"_s}).mid(kV5.size()), {u"no key"_s, u"ActiveDB=-/-"_s}},
        {"empty", QByteArray(), {u"no key"_s, u"ActiveDB=-/-"_s}},
        {"binary garbage", QByteArray("\x00\x01\xFF\xFE\x00", 5), {u"no key"_s, u"ActiveDB=-/-"_s}},
        // A bracket line ends the section before it; [-KEY] and "Name"=- delete.
        {"an unclosed header ends the section",
         Export({kKey, uR"("ActiveDB"="Tutorial")"_s, uR"([HKEY_LOCAL_MACHINE\SOFTWARE\Bramlund\Other)"_s, uR"("ExePath"="/other")"_s}),
         {uR"(ActiveDB="Tutorial"/-)"_s, u"ExePath=-/-"_s}},
        {"a header followed by a comment opens its key",
         Export({kOther, uR"("ExePath"="/other")"_s, kKey + u" ; the suite"_s, uR"("ActiveDB"="Tutorial")"_s}),
         {uR"(ActiveDB="Tutorial"/-)"_s, u"ExePath=-/-"_s}},
        {"a header followed by anything else opens nothing",
         Export({kKey, uR"("ActiveDB"="Tutorial")"_s, kKey + u" x"_s, uR"("ExePath"="/zentrix")"_s}),
         {uR"(ActiveDB="Tutorial"/-)"_s, u"ExePath=-/-"_s}},
        {"a value deletion", Export({kKey, uR"("ActiveDB"="Tutorial")"_s, uR"("ExePath"="/zentrix")"_s, uR"("ActiveDB" = -)"_s}),
         {u"ActiveDB=-/-"_s, uR"(ExePath="/zentrix"/-)"_s}},
        {"a value deleted and set again", Export({kKey, uR"("ActiveDB"=-)"_s, uR"("ActiveDB"="Local")"_s}), {uR"(ActiveDB="Local"/-)"_s}},
        {"a value deletion in another key", Export({kKey, uR"("ActiveDB"="Tutorial")"_s, kOther, uR"("ActiveDB"=-)"_s}),
         {uR"(ActiveDB="Tutorial"/-)"_s}},
        {"a key deletion", Export({kKey, uR"("ActiveDB"="Tutorial")"_s, uR"([-HKEY_LOCAL_MACHINE\SOFTWARE\Bramlund\Zentrix])"_s}),
         {u"no key"_s, u"ActiveDB=-/-"_s}},
        {"a parent's deletion", Export({kKey, uR"("ActiveDB"="Tutorial")"_s, uR"([-HKEY_LOCAL_MACHINE\SOFTWARE\Bramlund])"_s}),
         {u"no key"_s, u"ActiveDB=-/-"_s}},
        {"a deleted key created again",
         Export({kKey, uR"("ActiveDB"="Tutorial")"_s, uR"([-HKEY_LOCAL_MACHINE\SOFTWARE\Bramlund\Zentrix])"_s, kKey, uR"("ExePath"="/z")"_s}),
         {u"ActiveDB=-/-"_s, uR"(ExePath="/z"/-)"_s}},
        {"a subkey's deletion", Export({kKey, uR"("ActiveDB"="Tutorial")"_s, uR"([-HKEY_LOCAL_MACHINE\SOFTWARE\Bramlund\Zentrix\Sub])"_s}),
         {uR"(ActiveDB="Tutorial"/-)"_s}},
        {"a subkey's deletion alone", Export({uR"([-HKEY_LOCAL_MACHINE\SOFTWARE\Bramlund\Zentrix\Sub])"_s}), {u"no key"_s}},
        {"values after a deletion line",
         Export({kKey, uR"("ActiveDB"="Tutorial")"_s, uR"([-HKEY_LOCAL_MACHINE\SOFTWARE\Bramlund\Other])"_s, uR"("ExePath"="/z")"_s}),
         {uR"(ActiveDB="Tutorial"/-)"_s, u"ExePath=-/-"_s}},
        // A 64-bit machine's export: the suite's key is below WOW6432Node,
        // read when the plain key is absent; the two are never mixed.
        {"64-bit export",
         Export({uR"([HKEY_LOCAL_MACHINE\SOFTWARE\WOW6432Node\Bramlund\Zentrix])"_s, uR"("ActiveDB"="Tutorial")"_s,
                 u"\"IsLocalDatabase\"=dword:00000001"_s}),
         {uR"(ActiveDB="Tutorial"/-)"_s, u"IsLocalDatabase=-/1"_s}},
        {"64-bit export with the plain key",
         Export({uR"([HKEY_LOCAL_MACHINE\SOFTWARE\WOW6432Node\Bramlund\Zentrix])"_s, uR"("ActiveDB"="Tutorial")"_s,
                 uR"("ExePath"="/wow")"_s, kKey, uR"("ActiveDB"="Local")"_s}),
         {uR"(ActiveDB="Local"/-)"_s, u"ExePath=-/-"_s}},
        {"the user's WOW6432Node",
         Export({uR"([HKEY_CURRENT_USER\SOFTWARE\WOW6432Node\Bramlund\Zentrix])"_s, uR"("ActiveDB"="Tutorial")"_s}),
         {u"no key"_s, u"ActiveDB=-/-"_s}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        write(c.file);
        QStringList names;
        for (const QString& read : c.reads)
            if (read != u"no key"_s)
                names << read.section(u'=', 0, 0);
        EXPECT_EQ(Reads(names), c.reads);
    }
    // Only the machine's SOFTWARE has the 32-bit view (the last file above).
    EXPECT_EQ(GetSettingString(HKEY_CURRENT_USER, kZentrixKey, u"ActiveDB"_s), std::nullopt);
    write(Export({kKey, uR"("ActiveDB"="Tutorial")"_s}));
    EXPECT_EQ(GetSettingString(HKEY_LOCAL_MACHINE, uR"(software\bramlund\ZENTRIX)"_s, u"ACTIVEDB"_s), u"Tutorial"_s);
    EXPECT_EQ(QueryValueString(RegKey(), u"ActiveDB"_s), std::nullopt);
    EXPECT_EQ(QueryValueDword(RegKey(), u"IsLocalDatabase"_s), std::nullopt);
    // A device in the file's place: read up to a limit, never forever.
    SetSettingsFileOverride(u"/dev/zero"_s);
    EXPECT_TRUE(RegOpenKey(HKEY_LOCAL_MACHINE, kZentrixKey).isNull());
}

// Unlike a missing key, a settings file that cannot be used is reported,
// naming the file; the reads themselves stay silent.
TEST_F(RegistryTest, AnUnusableSettingsFileIsReportedByName)
{
    write(Export({kKey, uR"("ActiveDB"="Tutorial")"_s}));
    EXPECT_EQ(SettingsFileProblem(), std::nullopt);
    write("REGEDIT4\r\n");
    EXPECT_EQ(SettingsFileProblem(), std::nullopt) << "an export without the key is still an export";
    const std::vector<std::pair<std::function<void()>, QString>> cases = {
        {[&] { QFile::remove(path()); }, u"does not exist"_s},
        {[&] { write(QByteArray()); }, u"is not a registry export"_s},
        {[&] { write("[Zentrix]\nActiveDB=Tutorial\n"); }, u"is not a registry export"_s},
        {[&] { QFile::remove(path());
               QDir(m_dir.path()).mkdir(u"zentrix.reg"_s); }, u"cannot be read"_s},
    };
    for (const auto& [make, says] : cases) {
        SCOPED_TRACE(says.toStdString());
        make();
        const std::optional<QString> problem = SettingsFileProblem();
        ASSERT_TRUE(problem.has_value());
        EXPECT_TRUE(problem->startsWith(u"The settings file "_s + path() + u' ') && problem->contains(says)) << problem->toStdString();
        EXPECT_EQ(Reads({u"ActiveDB"_s, u"IsLocalDatabase"_s}), (QStringList{u"no key"_s, u"ActiveDB=-/-"_s, u"IsLocalDatabase=-/-"_s}));
    }
}

} // namespace
} // namespace dorvane
