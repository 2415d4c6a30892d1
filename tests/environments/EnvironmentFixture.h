#pragma once

#include "copyengine/CopyEngineFixture.h"
#include "copyengine/EnvironmentCopy.h"
#include "environments/EnvironmentRecords.h"


#include <deque>
#include <optional>

namespace dorvane::test {

// The new-version-ID prompt, answered from a queue: each entry is the text
// typed before OK, or nothing for Cancel. A text the OK check refuses
// leaves the prompt open for the next entry, as the dialog stays open.
class ScriptedVersionIds : public NewVersionIdPrompt {
public:
    std::optional<QString> Ask(const QString& labelText, const std::function<bool(const QString&)>& okCheck) override
    {
        labels << labelText;
        for (;;) {
            if (answers.empty()) {
                ADD_FAILURE() << "unexpected prompt: " << labelText.toStdString();
                return std::nullopt;
            }
            const std::optional<QString> answer = answers.front();
            answers.pop_front();
            if (!answer)
                return std::nullopt;
            if (okCheck(*answer))
                return answer;
        }
    }

    std::deque<std::optional<QString>> answers;
    QStringList labels;
};

// A repository with the reference data, the copy engine pointed at it by
// the settings, and a test data database beside it.
class EnvironmentTest : public CopyEngineTest {
protected:
    void SetUp() override
    {
        CopyEngineTest::SetUp();
        settingsForTestDatabase();
        const QString path = QDir(db->tempPath()).filePath(QStringLiteral("testdata.mdb"));
        DB_ASSERT(Connection::CreateDatabaseFile(path));
        DB_ASSERT(testData.OpenFile(path));
    }

    void TearDown() override
    {
        testData.Close();
        CopyEngineTest::TearDown();
    }

    // The environment copy on the repository connection and the test data.
    EnvironmentCopy& copier()
    {
        if (!m_copy)
            m_copy = std::make_unique<EnvironmentCopy>(*backup, conn, prompt, &testData);
        return *m_copy;
    }

    qint32 addEnvironment(const QString& name, const QString& description = QString())
    {
        return add(QStringLiteral("tEnvironment"),
                   {{QStringLiteral("sEnvironmentName"), name}, {QStringLiteral("sEnvironmentDesc"), description}});
    }

    qint32 addApp(const QString& name, qint32 platform = kPlatformWindows, qint32 emulator = 0)
    {
        return add(QStringLiteral("tApp"), {{QStringLiteral("sAppName"), name},
                                            {QStringLiteral("iAppPlatform"), platform},
                                            {QStringLiteral("iApp3270Key"), emulator}});
    }

    // A version with `windows` windows, the first its system screen.
    qint32 addVersion(qint32 app, const QString& id, int windows = 0)
    {
        const qint32 v = add(QStringLiteral("tVersion"), {{QStringLiteral("iVersionAppKey"), app},
                                                          {QStringLiteral("sVersionID"), id},
                                                          {QStringLiteral("iMapType"), 1}});
        for (int i = 0; i < windows; ++i)
            add(QStringLiteral("tWindow"), {{QStringLiteral("iWindowVerKey"), v},
                                            {QStringLiteral("sWindowPhysicalName"),
                                             i == 0 ? QStringLiteral("[System Screen]") : QStringLiteral("frmMain%1").arg(i)}});
        return v;
    }

    qint32 addDetail(qint32 environment, qint32 version, qint32 tool = 1, qint32 emulator = 0)
    {
        return add(QStringLiteral("tEnvironmentDetail"), {{QStringLiteral("iEnvironKey"), environment},
                                                          {QStringLiteral("iEnvironVerKey"), version},
                                                          {QStringLiteral("iEnvironTestToolKey"), tool},
                                                          {QStringLiteral("iEnviron3270Key"), emulator}});
    }

    qint32 addUser(const QString& id, const QString& first, const QString& last)
    {
        return add(QStringLiteral("tUser"), {{QStringLiteral("sUserID"), id},
                                             {QStringLiteral("sUserFirst"), first},
                                             {QStringLiteral("sUserLast"), last}});
    }

    // A process of a version with one step window on `window`, run in
    // `environment`.
    qint32 addProcessOn(qint32 version, qint32 window, qint32 environment, const QString& name)
    {
        const qint32 p = add(QStringLiteral("tProcess"), {{QStringLiteral("iProcessVerKey"), version},
                                                          {QStringLiteral("sProcessName"), name}});
        add(QStringLiteral("tStepWindow"), {{QStringLiteral("iStepWindowProcessKey"), p},
                                            {QStringLiteral("iStepWindowVerKey"), version},
                                            {QStringLiteral("iStepWindowWindowKey"), window},
                                            {QStringLiteral("iStepWindowEnvironmentKey"), environment},
                                            {QStringLiteral("iStepWindowSequenceNum"), 1}});
        return p;
    }

    // Points the version's five processes at `process` and its initial and
    // main windows at `window`.
    void setPointers(qint32 version, qint32 process, qint32 window)
    {
        Recordset rs(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=%1").arg(version), conn);
        for (const char* column : {"iVersionLoadProcess", "iVersionLoginProcess", "iVersionLogoutProcess",
                                   "iVersionTerminateProcess", "iVersionRecoverProcess"})
            rs.SetValue(QString::fromLatin1(column), process);
        rs.SetValue(QStringLiteral("iVersionInitialWindow"), window);
        rs.SetValue(QStringLiteral("iVersionMainWindow"), window);
        rs.Update();
    }

    QStringList rows(const QString& tableOrQuery, const QStringList& without = {}) { return Rows(conn, tableOrQuery, without); }

    // A copied row: every column but the key and `changed` as in the source
    // row, and `changed` holding `expected` (as Rows() shows it).
    void expectCopied(const QString& table, qint32 source, qint32 copy, const QStringList& changed, const QString& expected)
    {
        const QString key = keyOf(table);
        const QString row = QStringLiteral("SELECT * FROM %1 WHERE %2=%3").arg(table, key);
        EXPECT_EQ(rows(row.arg(copy), changed + QStringList{key}), rows(row.arg(source), changed + QStringList{key})) << table.toStdString();
        EXPECT_EQ(rows(QStringLiteral("SELECT %1 FROM %2 WHERE %3=%4").arg(changed.join(QStringLiteral(", ")), table, key).arg(copy)),
                  QStringList{expected})
            << table.toStdString();
    }

    // The key of the environment stored under `name`, 0 when none.
    qint32 environmentNamed(const QString& name)
    {
        const std::vector<qint32> keys =
            ints(QStringLiteral("SELECT * FROM tEnvironment WHERE sEnvironmentName='%1'").arg(QuoteSql(name)),
                 QStringLiteral("iEnvironmentKey"));
        return keys.empty() ? 0 : keys.front();
    }

    // Every row of the test data database's tables, for before-and-after
    // comparisons.
    QStringList testDataDump() { return TableRows(testData, FileTables(testData)); }

    Connection testData;
    ScriptedVersionIds prompt;
    EnvironmentRecords definition;

private:
    std::unique_ptr<EnvironmentCopy> m_copy;
};

} // namespace dorvane::test
