#pragma once

#include "core/copyengine/CopyEngineFixture.h"
#include "core/copyengine/EnvironmentCopy.h"
#include "core/environments/EnvironmentRecords.h"

#include <deque>
#include <functional>
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
        if (whileAsked)
            whileAsked();
        while (!answers.empty()) {
            const std::optional<QString> answer = answers.front();
            answers.pop_front();
            if (!answer || okCheck(*answer))
                return answer;
        }
        ADD_FAILURE() << "unexpected prompt: " << labelText.toStdString();
        return std::nullopt;
    }

    std::deque<std::optional<QString>> answers;
    QStringList labels;
    std::function<void()> whileAsked;  // runs while the prompt is open
};

// What populate() builds, by key.
struct Release {
    qint32 env, billing, ledger, billing10, billing20, ledger42, jo, al;
    qint32 screen, main, invoice, ledgerMain, login, post, cycle, keyword, layout, instance;
};

inline const QString kDataTable = u"Customer Order"_s;

// A repository with the reference data, the copy engine on it, a test data
// database beside it, and builders of rows.
class EnvironmentTest : public CopyEngineTest {
protected:
    void SetUp() override
    {
        CopyEngineTest::SetUp();
        const QString path = db->tempPath() + u"/testdata.mdb"_s;
        DB_ASSERT(MakeDatabaseFile(path); testData.OpenFile(path));
    }

    // Every message a test provokes is checked (and cleared) by the test.
    void TearDown() override
    {
        EXPECT_TRUE(messages.shown.isEmpty()) << "messages left unchecked: " << shown();
        testData.Close();
        CopyEngineTest::TearDown();
    }

    EnvironmentCopy& copier()
    {
        if (!m_copy)
            m_copy = std::make_unique<EnvironmentCopy>(*backup, conn, prompt, &testData);
        return *m_copy;
    }

    qint32 addEnvironment(const QString& name, const QString& description = QString())
    {
        return add(u"tEnvironment"_s, {{u"sEnvironmentName"_s, name}, {u"sEnvironmentDesc"_s, description}});
    }
    qint32 addUser(const QString& id, const QString& first = u"F"_s, const QString& last = u"L"_s)
    {
        return add(u"tUser"_s, {{u"sUserID"_s, id}, {u"sUserFirst"_s, first}, {u"sUserLast"_s, last}});
    }
    // Registers a user with the five rights, "10101" in the boxes' order.
    void registerUser(qint32 environment, qint32 user, const QString& rights = u"00000"_s)
    {
        Values values = {{u"iEnvironKey"_s, environment}, {u"iUserKey"_s, user}};
        for (const QString& column : {u"bDorvane"_s, u"bOmrik"_s, u"bZulane"_s, u"bVantrel"_s, u"bKrestin"_s})
            values.emplace_back(column, rights[qsizetype(values.size()) - 2] == u'1' ? -1 : 0);
        add(u"tEnvironmentUser"_s, values);
    }
    // A process of a version with one step window on `window`, run in `environment`.
    qint32 addProcessOn(qint32 version, qint32 window, qint32 environment, const QString& name, qint32 layout = 0)
    {
        const qint32 p = add(u"tProcess"_s, {{u"iProcessVerKey"_s, version}, {u"sProcessName"_s, name}, {u"iProcessType"_s, 1}, {u"iProcessRecordKey"_s, layout}});
        addStepWindow(p, version, window, environment);
        return p;
    }
    // Points the version's five processes at `process`, its initial and main windows at `window`.
    void setPointers(qint32 version, qint32 process, qint32 window)
    {
        QString sql = u"UPDATE tVersion SET iVersionInitialWindow=%1, iVersionMainWindow=%1"_s.arg(window);
        for (const char* column : {"Load", "Login", "Logout", "Terminate", "Recover"})
            sql += u", iVersion%1Process=%2"_s.arg(QLatin1String(column)).arg(process);
        conn.Execute(sql + u" WHERE iVersionKey=%1"_s.arg(version));
    }

    // "Release 1": Billing 1.0 (its application and version with every
    // column set) and 2.0, and Ledger 4.2 on a host; users jo (rights 10101)
    // and al (01010); Billing 1.0 with a system screen, frmMain with cmdOK,
    // frmInvoice, a process Login stepping on cmdOK, a cycle Smoke running
    // it, a keyword on both, a user variable and a requirement; Ledger's
    // process Post and its pointers visit Billing's invoice window
    // (`crossStep`: its step windows too); a schedule Nightly over Smoke; a
    // record layout with two fields and a file instance whose data rows
    // live in the test data database. Rows go in the order a restore writes them.
    Release populate(bool crossStep = true)
    {
        Release r{};
        r.env = addEnvironment(u"Release 1"_s, u"First release"_s);
        r.billing = addFull(u"tApp"_s, {{u"sAppName"_s, u"Billing"_s}});
        r.ledger = addApp(u"Ledger"_s, {}, kPlatform3270, 1);
        r.billing10 = addFull(u"tVersion"_s, {{u"iVersionAppKey"_s, r.billing}, {u"sVersionID"_s, u"1.0"_s}});
        r.billing20 = addVersion(r.billing, u"2.0"_s);
        r.ledger42 = addVersion(r.ledger, u"4.2"_s);
        addDetail(r.env, r.billing10, 2, 0);
        addDetail(r.env, r.billing20);
        addDetail(r.env, r.ledger42, 1, 1);
        registerUser(r.env, r.jo = addUser(u"jo"_s, u"Jo"_s, u"Doe"_s), u"10101"_s);
        registerUser(r.env, r.al = addUser(u"al"_s, u"Al"_s, u"Bee"_s), u"01010"_s);
        r.keyword = add(u"tKeyword"_s, {{u"iKeywordAppKey"_s, r.billing}, {u"sKeywordName"_s, u"smoke"_s}});
        r.layout = add(u"tRecord"_s, {{u"iRecordEnvironmentKey"_s, r.env}, {u"sRecordName"_s, kDataTable},
                                      {u"sRecordDesc"_s, u"Orders"_s}, {u"iRecordFileKey"_s, 7}, {u"iRecordKeyType"_s, 1},
                                      {u"iRecordSourceType"_s, 2}, {u"iRecordSourceKey"_s, 3}});

        r.screen = addWindow(r.billing10, u"[System Screen]"_s);
        r.main = addWindow(r.billing10, u"frmMain"_s);
        r.invoice = addWindow(r.billing10, u"frmInvoice"_s);
        const qint32 ok = add(u"tObject"_s, {{u"iObjectWindowKey"_s, r.main}, {u"iObjectVersionKey"_s, r.billing10},
                                             {u"sObjectPhysicalName"_s, u"cmdOK"_s}});
        r.login = addProcessOn(r.billing10, r.main, r.env, u"Login"_s, r.layout);
        add(u"tStep"_s, {{u"iStepWindowKey"_s, ints(u"SELECT * FROM tStepWindow WHERE iStepWindowProcessKey=%1"_s.arg(r.login), u"iStepWindowKey"_s).front()},
                         {u"iStepObjectKey"_s, ok}, {u"sStepArguments"_s, u"Click"_s}, {u"iStepSequenceNum"_s, 1}});
        add(u"tKeywordRel"_s, {{u"iKeywordRelKeywordKey"_s, r.keyword}, {u"iKeywordRelProcessKey"_s, r.login}});
        r.cycle = add(u"tCycle"_s, {{u"iCycleVerKey"_s, r.billing10}, {u"sCycleName"_s, u"Smoke"_s}, {u"iCycleRecordKey"_s, r.layout}});
        add(u"tCycleProcess"_s, {{u"iCycleKey"_s, r.cycle}, {u"iProcessKey"_s, r.login},
                                 {u"iCycleProcessRecordKey"_s, r.layout}, {u"iProcessSequenceNum"_s, 1}});
        add(u"tKeywordRel"_s, {{u"iKeywordRelKeywordKey"_s, r.keyword}, {u"iKeywordRelCycleKey"_s, r.cycle}});
        add(u"tUserVar"_s, {{u"iVarAppVerKey"_s, r.billing10}, {u"sVarName"_s, u"Customer"_s}});
        add(u"tRequirement"_s, {{u"iRequirementAppVerKey"_s, r.billing10}, {u"sRequirementName"_s, u"R1"_s}});
        setPointers(r.billing10, r.login, r.main);

        addWindow(r.billing20, u"frmMain"_s);
        r.ledgerMain = addWindow(r.ledger42, u"LEDG01"_s);
        r.post = addProcessOn(r.ledger42, r.ledgerMain, r.env, u"Post"_s);
        if (crossStep)
            addStepWindow(r.post, r.ledger42, r.invoice, r.env, 2);
        setPointers(r.ledger42, r.post, r.invoice);

        const qint32 schedule = add(u"tSchedule"_s, {{u"iScheduleEnvironKey"_s, r.env}, {u"sScheduleName"_s, u"Nightly"_s}});
        add(u"tScheduleCycles"_s, {{u"iScheduleKey"_s, schedule}, {u"iCycleKey"_s, r.cycle}, {u"iCycleSequenceNum"_s, 1}});
        add(u"tField"_s, {{u"iFieldRecordKey"_s, r.layout}, {u"sFieldName"_s, u"Qty"_s}, {u"iFieldSequenceNum"_s, 2}, {u"iFieldLen"_s, 5}});
        add(u"tField"_s, {{u"iFieldRecordKey"_s, r.layout}, {u"sFieldName"_s, u"Customer"_s}, {u"iFieldSequenceNum"_s, 1}, {u"iFieldLen"_s, 40}});
        r.instance = addFull(u"tFileInstance"_s, {{u"iFileInstanceRecordKey"_s, r.layout}});
        testData.Execute(u"CREATE TABLE [%1] (iRowKey INTEGER PRIMARY KEY AUTOINCREMENT, iRecordFileInstanceKey INTEGER, "
                         u"sCustomer TEXT, iQty INTEGER)"_s.arg(kDataTable));
        for (const auto& [instance, customer, quantity] : {std::tuple{r.instance, "Acme", 3}, std::tuple{r.instance, "Globex", 5},
                                                           std::tuple{r.instance + 100, "Other layout", 1}})
            testData.Execute(u"INSERT INTO [%1] (iRecordFileInstanceKey, sCustomer, iQty) VALUES (%2, '%3', %4)"_s
                                 .arg(kDataTable).arg(instance).arg(QLatin1String(customer)).arg(quantity));
        return r;
    }

    QStringList rows(const QString& tableOrQuery, const QStringList& without = {}) { return Rows(conn, tableOrQuery, without); }

    // The key of the environment stored under `name`, 0 when none.
    qint32 environmentNamed(const QString& name)
    {
        return firstKey(u"SELECT * FROM tEnvironment WHERE sEnvironmentName='%1'"_s.arg(QuoteSql(name)));
    }

    // Every row of the test data database's tables.
    QStringList testDataDump() { return TableRows(testData, FileTables(testData)); }

    Connection testData;
    ScriptedVersionIds prompt;
    EnvironmentRecords definition;

private:
    std::unique_ptr<EnvironmentCopy> m_copy;
};

} // namespace dorvane::test
