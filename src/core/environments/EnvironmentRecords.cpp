#include "core/environments/EnvironmentRecords.h"

#include "core/copyengine/EnvironmentCopy.h"
#include "core/copyengine/VersionBackup.h"
#include "core/repository/Connection.h"
#include "core/repository/Globals.h"
#include "core/repository/Interaction.h"
#include "core/repository/FilePaths.h"
#include "core/repository/OperationLocks.h"
#include "core/repository/Recordset.h"
#include "core/repository/Retry.h"
#include "core/repository/History.h"
#include "core/repository/Transaction.h"

#include <optional>

namespace dorvane {

namespace {

QString num(qint32 key) { return QString::number(key); }

const QString kBlankName = QStringLiteral("Environment name cannot be blank");
const QString kAlreadyExists = QStringLiteral(" already exists - please choose another ID");
const QString kSaveFailed = QStringLiteral("Error while saving environment definition : ");
const QString kOpenFailed = QStringLiteral("Error while opening environment : ");
const QString kDeleteFailed = QStringLiteral("Error while deleting environment: ");
const QString kReferenced = QStringLiteral("This environment is referenced in existing steps and cannot be deleted");

const QString kName = QStringLiteral("sEnvironmentName");
const QString kDesc = QStringLiteral("sEnvironmentDesc");
const QString kKey = QStringLiteral("iEnvironmentKey");

// Said after kAlreadyExists when the stored name that takes the folder
// differs from the one typed by more than the letter case that the
// databases ignore too.
QString sharedFolderNote(const QString& typed, const QString& holder)
{
    if (typed.toLower() == holder.toLower())
        return QString();
    return QStringLiteral(" (%1 has one backup folder with it)").arg(holder);
}

} // namespace

std::optional<QString> EnvironmentNameHolder(Connection& connection, const QString& name, qint32 exceptKey)
{
    Recordset environments(QStringLiteral("SELECT * FROM tEnvironment"), connection);
    for (; !environments.Eof(); environments.MoveNext()) {
        const QString stored = environments.Text(kName);
        if (environments.Int(kKey) != exceptKey && SameFolderName(stored, name))
            return stored;
    }
    return std::nullopt;
}

std::optional<QString> CollidingEnvironmentName(Connection& connection, qint32 environmentKey)
{
    Recordset own(QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey=") + num(environmentKey), connection);
    if (own.Eof())
        return std::nullopt;
    return EnvironmentNameHolder(connection, own.Text(kName), environmentKey);
}

namespace {

// What a Windows folder name cannot hold, beyond what the suite's own
// lists replace already.
QString replaceFolderUnsafe(const QString& name)
{
    return ReplaceChars(QStringLiteral("_"), name,
                        {QStringLiteral("\\"), QStringLiteral(":"), QStringLiteral("<"), QStringLiteral(">"),
                         QStringLiteral("|")},
                        QString())
        .trimmed();
}

} // namespace

QString NormaliseEnvironNameForSave(const QString& typedName)
{
    QString name = ReplaceChars(QStringLiteral("_"), typedName,
                                {QStringLiteral("?"), QStringLiteral("!"), QStringLiteral("/")}, QString());
    name = ReplaceChars(QStringLiteral("_"), name,
                        {QStringLiteral("\""), QStringLiteral("*"), QStringLiteral("'"), QStringLiteral("]"),
                         QStringLiteral("[")},
                        QString());
    return replaceFolderUnsafe(name);
}

QString NormaliseEnvironNameForSaveAs(const QString& typedName)
{
    QString name = ReplaceChars(QStringLiteral("_"), typedName,
                                {QStringLiteral("?"), QStringLiteral("!"), QStringLiteral("."), QStringLiteral("/")},
                                QString());
    name = ReplaceChars(QStringLiteral("_"), name,
                        {QStringLiteral("\""), QStringLiteral("*"), QStringLiteral("'"), QStringLiteral("]"),
                         QStringLiteral("[")},
                        QString());
    return replaceFolderUnsafe(name);
}

QString EnvironFolderNameProblem(const QString& name)
{
    if (name.trimmed().isEmpty())
        return kBlankName;
    for (const QChar c : name) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7f)
            return QStringLiteral("Environment name cannot contain control characters");
    }
    for (const QChar c : QStringView(u"\\/:*?\"<>|")) {
        if (name.contains(c))
            return QStringLiteral("Environment name cannot contain any of \\ / : * ? \" < > |");
    }
    if (name.trimmed() != name)
        return QStringLiteral("Environment name cannot begin or end with a blank");
    if (name.count(QLatin1Char('.')) == name.size())
        return QStringLiteral("Environment name cannot consist of full stops only");
    if (name.endsWith(QLatin1Char('.')))
        return QStringLiteral("Environment name cannot end with a full stop");
    if (name.toUtf8().size() > 255)
        return QStringLiteral("Environment name is too long for a folder name");
    static const QStringList devices = {
        QStringLiteral("CON"),  QStringLiteral("PRN"),  QStringLiteral("AUX"),  QStringLiteral("NUL"),
        QStringLiteral("COM1"), QStringLiteral("COM2"), QStringLiteral("COM3"), QStringLiteral("COM4"),
        QStringLiteral("COM5"), QStringLiteral("COM6"), QStringLiteral("COM7"), QStringLiteral("COM8"),
        QStringLiteral("COM9"), QStringLiteral("LPT1"), QStringLiteral("LPT2"), QStringLiteral("LPT3"),
        QStringLiteral("LPT4"), QStringLiteral("LPT5"), QStringLiteral("LPT6"), QStringLiteral("LPT7"),
        QStringLiteral("LPT8"), QStringLiteral("LPT9")};
    const QString stem = name.section(QLatin1Char('.'), 0, 0).trimmed();
    if (devices.contains(stem, Qt::CaseInsensitive))
        return QStringLiteral("Environment name cannot be %1: Windows keeps that name for a device").arg(stem);
    return QString();
}

EnvironDefinitionControls EnvironControlsAfterNew() { return {}; }

EnvironDefinitionControls EnvironControlsAfterOpen()
{
    EnvironDefinitionControls controls;
    controls.DeleteEnabled = true;
    controls.TabsEnabled = true;
    return controls;
}

EnvironDefinitionControls EnvironControlsAfterEdit(const EnvironDefinitionControls& before, EnvironField field,
                                                   bool environIsNew)
{
    EnvironDefinitionControls controls = before;
    controls.SaveEnabled = true;
    if (field == EnvironField::Name && !environIsNew)
        controls.SaveAsEnabled = true;
    return controls;
}

EnvironDefinitionControls EnvironControlsAfterSave(const EnvironDefinitionControls& before)
{
    EnvironDefinitionControls controls = before;
    controls.SaveEnabled = false;
    controls.SaveAsEnabled = false;
    controls.TabsEnabled = true;
    return controls;
}

EnvironDefinitionControls EnvironmentRecords::TextChanged(EnvironField field, bool editLoading)
{
    if (!editLoading) {
        m_dirty = true;
        m_controls = EnvironControlsAfterEdit(m_controls, field, m_isNew);
    }
    return m_controls;
}

EnvironOutcome EnvironmentRecords::New()
{
    m_currentKey = 0;
    m_isNew = true;
    m_dirty = false;
    m_controls = EnvironControlsAfterNew();

    EnvironOutcome outcome;
    outcome.Ok = true;
    outcome.ClearForm = true;
    outcome.FocusField = kTxtEnvironName;
    outcome.Controls = m_controls;
    return outcome;
}

EnvironOutcome EnvironmentRecords::Open(int listIndex, qint32 environKey, Connection& connection,
                                        MessageSink& messages)
{
    EnvironOutcome outcome;
    m_listIndex = listIndex;
    try {
        // Key and name change together, once the row has been read: the
        // backup commands never pair one environment's key with another's
        // folder.
        Recordset rs(QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey=") + num(environKey), connection);
        outcome.Name = rs.Text(kName);
        outcome.Description = rs.IsNull(kDesc) ? QString() : rs.Text(kDesc);
        m_currentKey = environKey;
        m_currentName = *outcome.Name;
    } catch (const DbError& e) {
        messages.Inform(kOpenFailed + e.description());
        outcome.Controls = m_controls;
        return outcome;
    }
    outcome.RefreshEnvironAppVerList = true;
    outcome.RefreshEnvironUsers = true;
    m_controls = EnvironControlsAfterOpen();
    m_isNew = false;
    m_dirty = false;
    outcome.Ok = true;
    outcome.FocusField = kTxtEnvironName;
    outcome.Controls = m_controls;
    return outcome;
}

EnvironOutcome EnvironmentRecords::Save(const EnvironDefinitionInput& input, Connection& connection,
                                        MessageSink& messages, const BackupFolderMove& moveBackups)
{
    EnvironOutcome outcome;
    outcome.Controls = m_controls;
    if (input.Name.isEmpty()) {
        messages.Inform(kBlankName);
        outcome.FocusField = kTxtEnvironName;
        return outcome;
    }
    // The name and key stay those of the stored environment until the new
    // ones are committed: Backup and Restore work on the stored one's
    // folder whatever a refused Save left in the box.
    const QString name = NormaliseEnvironNameForSave(input.Name);
    if (const QString problem = EnvironFolderNameProblem(name); !problem.isEmpty()) {
        messages.Inform(problem);
        outcome.FocusField = kTxtEnvironName;
        return outcome;
    }
    qint32 key = m_currentKey;
    QString stored;  // the name before this Save, of a stored environment
    bool moved = false;
    try {
        const OperationLocks locks(connection, {{OperationLocks::Kind::EnvironmentNames, 0},
                                                {OperationLocks::Kind::Environment, m_currentKey}});
        Transaction transaction(connection);
        if (const std::optional<QString> holder = EnvironmentNameHolder(connection, name, m_currentKey)) {
            transaction.Rollback();
            messages.Inform(input.Name + kAlreadyExists + sharedFolderNote(name, *holder));
            outcome.FocusField = kTxtEnvironName;
            return outcome;
        }

        Recordset row(QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey =") + num(m_currentKey),
                      connection);
        if (m_isNew)
            row.AddNew();
        else
            stored = row.Text(kName);
        row.SetValue(kName, name);
        row.SetValue(kDesc, input.Description);
        row.Update();

        key = row.Int(kKey);

        if (m_isNew) {
            Recordset details(QStringLiteral("SELECT * FROM tEnvironmentDetail"), connection);
            for (const qint32 versionKey : input.ListedVersionKeys) {
                details.AddNew();
                details.SetValue(QStringLiteral("iEnvironKey"), key);
                details.SetValue(QStringLiteral("iEnvironVerKey"), versionKey);
                details.Update();
            }
        } else {
            // A version that any environment lists already gets no row.
            Recordset details;
            for (const qint32 versionKey : input.ListedVersionKeys) {
                details.Open(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironVerKey=") + num(versionKey),
                             connection);
                if (details.Eof()) {
                    details.AddNew();
                    details.SetValue(QStringLiteral("iEnvironKey"), key);
                    details.SetValue(QStringLiteral("iEnvironVerKey"), versionKey);
                    details.Update();
                }
            }
        }

        // The backups go with the name; the folder is moved back when the
        // new name is not committed after all.
        if (!m_isNew && moveBackups && stored != name) {
            moveBackups(stored, name);
            moved = true;
        }
        transaction.Commit();
    } catch (const DbError& e) {
        if (moved) {
            try {
                moveBackups(name, stored);
            } catch (const DbError&) {
                // The first failure is the one to report.
            }
        }
        messages.Inform(kSaveFailed + e.description());
        return outcome;
    }
    m_currentKey = key;
    m_currentName = name;

    // The environment is stored now: a later Save updates this row, and a
    // change of its name offers Save As.
    m_isNew = false;
    m_dirty = false;
    m_controls = EnvironControlsAfterSave(m_controls);
    outcome.Ok = true;
    outcome.Controls = m_controls;
    outcome.RefreshEnvironList = true;
    outcome.RefreshEnvironUsers = true;
    outcome.SelectEnvironKey = m_currentKey;
    outcome.ShowTab = kEnvironConfigurationTab;
    return outcome;
}

EnvironOutcome EnvironmentRecords::SaveAs(const EnvironDefinitionInput& input, EnvironmentCopy& copy,
                                          MessageSink& shown)
{
    Connection& connection = copy.MainConnection();
    HistoryRecord record(shown, connection.connectionString(), HistoryOperation::CopyEnvironment,
                         NormaliseEnvironNameForSaveAs(input.Name), QStringLiteral("from ") + m_currentName);
    MessageSink& messages = record;
    const auto engineMessages = copy.Engine().MessagesTo(record);
    EnvironOutcome outcome;
    outcome.Controls = m_controls;
    if (input.Name.isEmpty()) {
        messages.Inform(kBlankName);
        outcome.FocusField = kTxtEnvironName;
        record.Refused();
        return outcome;
    }
    Connection* testData = copy.TestData();
    if (testData && !testData->IsOpen())
        testData = nullptr;

    const QString name = NormaliseEnvironNameForSaveAs(input.Name);
    if (const QString problem = EnvironFolderNameProblem(name); !problem.isEmpty()) {
        messages.Inform(problem);
        outcome.FocusField = kTxtEnvironName;
        record.Refused();
        return outcome;
    }
    // No key is excluded: the shown environment's own name is taken.
    const auto nameTaken = [&](MessageSink& sink) {
        const std::optional<QString> holder = EnvironmentNameHolder(connection, name, 0);
        if (holder) {
            sink.Inform(name + kAlreadyExists + sharedFolderNote(name, *holder));
            outcome.FocusField = kTxtEnvironName;
            record.Refused();
        }
        return holder.has_value();
    };
    qint32 sourceKey = m_currentKey;
    try {
        if (nameTaken(messages))
            return outcome;
        // Every question first: no transaction is open while the
        // administrator answers.
        if (!copy.PlanCopy(sourceKey))
            return outcome;
    } catch (const DbError& e) {
        messages.Inform(kSaveFailed + e.description());
        return outcome;
    }
    const bool saved = RetryOnConcurrentChange(messages, [&](MessageSink& held) {
        const auto redirect = copy.Engine().MessagesTo(held);
        try {
            // The name, and the empty versions the copy fills, are held and
            // checked again: another operation may have taken them meanwhile.
            std::vector<OperationLocks::Target> targets = {{OperationLocks::Kind::EnvironmentNames, 0}};
            for (const qint32 version : copy.PlannedTargets())
                targets.push_back({OperationLocks::Kind::Version, version});
            const OperationLocks locks(connection, targets);
            Transaction transaction(connection);
            std::optional<Transaction> testDataTransaction;
            if (testData)
                testDataTransaction.emplace(*testData);
            if (nameTaken(held))
                return false;
            Recordset row(QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey=0"), connection);
            row.AddNew();
            row.SetValue(kName, name);
            row.SetValue(kDesc, input.Description);
            row.Update();
            qint32 newKey = row.Int(kKey);

            // The users are registered by the environment copy, once.
            if (!copy.CopyEnvironment(sourceKey, newKey))
                return false;
            transaction.Commit();
            if (testDataTransaction)
                testDataTransaction->Commit();
            return true;
        } catch (const DbError& e) {
            held.Inform(kSaveFailed + e.description());
            return false;
        }
    });
    if (!saved)
        return outcome;

    record.Done();
    EnvironOutcome fresh = New();
    fresh.Ok = true;
    fresh.RefreshEnvironList = true;
    fresh.RefreshEnvironAppVerList = true;
    fresh.RefreshEnvironUsers = true;
    return fresh;
}

QString EnvironmentDeletionRefusal(Connection& connection, qint32 environmentKey)
{
    Recordset stepWindows(QStringLiteral("SELECT * FROM tStepWindow where iStepWindowEnvironmentKey=") + num(environmentKey),
                          connection);
    return CountRecords(&stepWindows) >= 1 ? kReferenced : QString();
}

EnvironOutcome EnvironmentRecords::Delete(bool entrySelected, Connection& connection, MessageSink& shown)
{
    HistoryRecord record(shown, connection.connectionString(), HistoryOperation::DeleteEnvironment, m_currentName);
    MessageSink& messages = record;
    EnvironOutcome outcome;
    outcome.Controls = m_controls;
    if (!entrySelected)
        return outcome;
    const QString key = num(m_currentKey);
    try {
        const OperationLocks locks(connection, {{OperationLocks::Kind::Environment, m_currentKey}});
        Transaction transaction(connection);
        if (const QString refusal = EnvironmentDeletionRefusal(connection, m_currentKey); !refusal.isEmpty()) {
            transaction.Rollback();
            messages.Inform(refusal);
            record.Refused();
            return outcome;
        }
        for (const QString& sql : {QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey = "),
                                   QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iEnvironKey = ")}) {
            Recordset rows(sql + key, connection);
            while (!rows.Eof()) {
                rows.Delete();
                record.AddRows(1);
                rows.MoveNext();
            }
        }
        Recordset environment(QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey=") + key, connection);
        if (!environment.Eof()) {
            environment.Delete();
            record.AddRows(1);
        }
        transaction.Commit();
        record.Done();
    } catch (const DbError& e) {
        messages.Inform(kDeleteFailed + e.description());
        return outcome;
    }
    EnvironOutcome fresh = New();
    fresh.RefreshEnvironList = true;
    return fresh;
}

bool EnvironExitCancel(bool environDirty, bool configDirty, MessageSink& messages,
                       const std::function<bool()>& saveDefinition, const std::function<bool()>& saveConfiguration)
{
    if (!environDirty && !configDirty)
        return false;
    const Answer answer = messages.Show(QStringLiteral("Save changes to this Environment?"), Buttons::YesNoCancel);
    if (answer == Answer::Cancel)
        return true;
    if (answer != Answer::Yes)
        return false;
    bool cancel = false;
    if (environDirty)
        cancel = !saveDefinition();
    if (configDirty)
        cancel = !saveConfiguration();
    return cancel;
}

} // namespace dorvane
