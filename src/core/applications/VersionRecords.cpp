#include "core/applications/VersionRecords.h"

#include "core/applications/AppFolders.h"
#include "core/applications/SystemScreen.h"
#include "core/repository/Connection.h"
#include "core/repository/Globals.h"
#include "core/repository/Interaction.h"
#include "core/repository/Recordset.h"
#include "core/repository/Transaction.h"

namespace dorvane {

namespace {

constexpr int kApplicationsTab = 2;
constexpr int kVersionsPage = 1;
constexpr qint32 kTrue = -1;

QString Key(qint32 key) { return QString::number(key); }

std::optional<qint32> Selection(qint32 storedKey)
{
    return storedKey != 0 ? std::optional<qint32>(storedKey) : std::nullopt;
}

VersionLinks ReadLinks(Recordset& version)
{
    VersionLinks links;
    links.loadProcess = Selection(version.Int(QStringLiteral("iVersionLoadProcess")));
    links.loginProcess = Selection(version.Int(QStringLiteral("iVersionLoginProcess")));
    links.logoutProcess = Selection(version.Int(QStringLiteral("iVersionLogoutProcess")));
    links.terminateProcess = Selection(version.Int(QStringLiteral("iVersionTerminateProcess")));
    links.recoverProcess = Selection(version.Int(QStringLiteral("iVersionRecoverProcess")));
    links.initialWindow = Selection(version.Int(QStringLiteral("iVersionInitialWindow")));
    links.mainWindow = Selection(version.Int(QStringLiteral("iVersionMainWindow")));
    return links;
}

void WriteLinks(Recordset& version, const VersionLinks& links)
{
    version.SetValue(QStringLiteral("iVersionLoadProcess"), links.loadProcess.value_or(0));
    version.SetValue(QStringLiteral("iVersionLoginProcess"), links.loginProcess.value_or(0));
    version.SetValue(QStringLiteral("iVersionLogoutProcess"), links.logoutProcess.value_or(0));
    version.SetValue(QStringLiteral("iVersionTerminateProcess"), links.terminateProcess.value_or(0));
    version.SetValue(QStringLiteral("iVersionRecoverProcess"), links.recoverProcess.value_or(0));
    version.SetValue(QStringLiteral("iVersionInitialWindow"), links.initialWindow.value_or(0));
    version.SetValue(QStringLiteral("iVersionMainWindow"), links.mainWindow.value_or(0));
}

// The fields that Save and Save As write alike. Every write empties the
// list-handling attributes; the attributes dialog writes them again.
// The fields the form edits. The list-handling attributes are the
// Attributes dialog's, which writes them itself: a Save leaves them.
void WriteFields(Recordset& version, const QString& storedId, const VersionInput& input)
{
    version.SetValue(QStringLiteral("sVersionID"), storedId);
    version.SetValue(QStringLiteral("sVersionDesc"), input.description);
    version.SetValue(QStringLiteral("iMapType"), input.mapTypeKey.value_or(0));
}

qint32 KeyOfVersion(Connection& connection, const QString& storedId, qint32 appKey)
{
    Recordset byId(QStringLiteral("SELECT * FROM tVersion WHERE sVersionID='") + QuoteSql(storedId)
            + QStringLiteral("' AND iVersionAppKey=") + Key(appKey),
        connection);
    return byId.Int(QStringLiteral("iVersionKey"));
}

} // namespace

QString NormaliseVersionId(const QString& typedId)
{
    const QString first = ReplaceChars(QStringLiteral("_"), CleanFolderId(typedId),
        {QStringLiteral(" "), QStringLiteral("/"), QStringLiteral("!"), QStringLiteral("?")}, QString());
    return ReplaceChars(QStringLiteral("_"), first,
        {QStringLiteral(" "), QStringLiteral("["), QStringLiteral("]"), QStringLiteral("'"), QStringLiteral("*"),
            QStringLiteral("\"")},
        QString());
}

VersionRecords::VersionRecords(Connection& connection, MessageSink& messages, QString sharedResourcePath)
    : m_connection(connection)
    , m_messages(messages)
    , m_sharedResourcePath(std::move(sharedResourcePath))
{
}

std::optional<VersionRecord> VersionRecords::Open(qint32 versionKey)
{
    try {
        Recordset version(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=") + Key(versionKey), m_connection);
        VersionRecord record;
        record.windows = VersionWindowEntries(m_connection, versionKey).all();
        record.processes = VersionProcessEntries(m_connection, versionKey).all();
        record.id = version.Text(QStringLiteral("sVersionID"));
        record.description = version.Text(QStringLiteral("sVersionDesc"));

        // A copy made by Save As points at its source's processes and
        // windows until its own content arrives (at most its system screen,
        // as the version update tells an empty version); a source that has
        // been deleted since leaves the version's own lists.
        const qint32 sourceKey = version.Int(QStringLiteral("iVersionSourceVersion"));
        Recordset ownWindows(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey=") + Key(versionKey), m_connection);
        if (sourceKey > 0 && CountRecords(&ownWindows) <= 1) {
            Recordset source(
                QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=") + Key(sourceKey), m_connection);
            if (!source.Eof()) {
                record.processes = VersionProcessEntries(m_connection, sourceKey).all();
                record.windows = VersionWindowEntries(m_connection, sourceKey).all();
            }
        }

        record.mapTypeKey = version.Int(QStringLiteral("iMapType"));
        record.links = ReadLinks(version);
        return record;
    } catch (const DbError& e) {
        m_messages.Inform(QStringLiteral("Error while opening Version:") + e.description());
        return std::nullopt;
    }
}

VersionSaveOutcome VersionRecords::Refuse(VersionSaveOutcome out, const QString& message, const char* field)
{
    out.mainTab = kApplicationsTab;
    out.appTab = kVersionsPage;
    out.focusField = QString::fromLatin1(field);
    m_messages.Inform(message);
    return out;
}

QString VersionRecords::AppFolder(const VersionApplication& app) const
{
    return m_sharedResourcePath + QStringLiteral("\\Apps\\") + app.AppFolderName;
}

void VersionRecords::CreateVersionFolders(const QString& versionFolder)
{
    CreateFolderIfMissing(versionFolder);
    CreateFolderIfMissing(versionFolder + QStringLiteral("\\Primary Map Source"));
    CreateFolderIfMissing(versionFolder + QStringLiteral("\\Secondary Map Source"));
}

VersionSaveOutcome VersionRecords::Save(
    const VersionInput& input, const VersionApplication& app, const VersionState& state)
{
    VersionSaveOutcome out;
    out.state = state;

    if (input.id.isEmpty())
        return Refuse(out, QStringLiteral("Version ID cannot be blank"), "txtVersionID");
    if (!input.mapTypeKey)
        return Refuse(out, QStringLiteral("You must select a valid map type for this Version."), "cbVersionMapType");

    // An ID left as stored is saved as stored.
    const bool idUnchanged = !state.VersionIsNew && input.id == state.VersionFolderName;
    const QString folder = idUnchanged ? input.id : NormaliseVersionId(input.id);
    if (!idUnchanged) {
        if (const QString problem = FolderIdProblem(QStringLiteral("version ID"), folder); !problem.isEmpty())
            return Refuse(out, problem, "txtVersionID");
    }
    std::optional<Transaction> transaction;
    try {
        Recordset sameId(QStringLiteral("SELECT * FROM tVersion WHERE sVersionID = '") + QuoteSql(folder)
                + QStringLiteral("' AND iVersionAppKey=") + Key(app.CurrentAppKey)
                + QStringLiteral(" AND iVersionKey <>") + Key(state.CurrentVersionKey),
            m_connection);
        if (!sameId.Eof())
            return Refuse(out, input.id + QStringLiteral(" already exists - please choose another ID"), "txtVersionID");

        Recordset version(
            QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey =") + Key(state.CurrentVersionKey), m_connection);
        std::optional<QString> oldFolder;
        if (!state.VersionIsNew && version.Text(QStringLiteral("sVersionID")) != folder)
            oldFolder = version.Text(QStringLiteral("sVersionID"));

        transaction.emplace(m_connection);
        // A stored version keeps its source version: only what the form
        // edits is written.
        if (state.VersionIsNew) {
            version.AddNew();
            version.SetValue(QStringLiteral("iVersionAppKey"), app.CurrentAppKey);
            version.SetValue(QStringLiteral("iVersionSourceVersion"), 0);
            version.SetValue(QStringLiteral("sVersionAttributes"), QStringLiteral(""));
        }
        WriteFields(version, folder, input);
        // A new version has no processes or windows yet: its pointers keep
        // the table's defaults.
        if (!state.VersionIsNew)
            WriteLinks(version, input.links);
        version.SetValue(QStringLiteral("bVersionActive"), kTrue);
        version.Update();
        version.Close();

        out.state.CurrentVersionKey = KeyOfVersion(m_connection, folder, app.CurrentAppKey);
        out.dirtyCleared = true;
        CreateSystemScreen(m_connection, out.state.CurrentVersionKey, app.AppIsHost, app.CurrentPlatformKey);
        transaction->Commit();
        transaction.reset();
        // The version is a stored one now, also when the folder work below
        // fails: Save again updates this row.
        out.state.VersionIsNew = false;
        out.state.VersionFolderName = folder;

        const QString versionFolder = AppFolder(app) + u'\\' + folder;
        const QString previousFolder = oldFolder ? AppFolder(app) + u'\\' + *oldFolder : QString();
        // A stored ID that named no folder inside the application's (another
        // program wrote it) leaves whatever it named alone: the new ID gets
        // new folders.
        if (oldFolder && FolderIdProblem(QString(), *oldFolder).isEmpty() && FolderExists(previousFolder)) {
            RenameFolder(previousFolder, versionFolder);
        } else {
            CreateFolderIfMissing(AppFolder(app));
            CreateVersionFolders(versionFolder);
        }
    } catch (const DbError& e) {
        m_messages.Inform(QStringLiteral("Error during Version save: ") + e.description());
        if (transaction) {
            transaction.reset();
            // Nothing of the write is left.
            out.state.CurrentVersionKey = state.CurrentVersionKey;
            out.dirtyCleared = false;
        }
        return out;
    }

    out.SaveOk = true;
    return out;
}

VersionSaveOutcome VersionRecords::SaveAs(
    const VersionInput& input, const VersionApplication& app, const VersionState& state)
{
    VersionSaveOutcome out;
    out.state = state;

    if (input.id.isEmpty())
        return Refuse(out, QStringLiteral("Version ID cannot be blank"), "txtVersionID");

    const QString folder = NormaliseVersionId(input.id);
    if (const QString problem = FolderIdProblem(QStringLiteral("version ID"), folder); !problem.isEmpty())
        return Refuse(out, problem, "txtVersionID");
    try {
        // No key is excluded: the ID must differ from the shown version's.
        Recordset version(QStringLiteral("SELECT * FROM tVersion WHERE sVersionID='") + QuoteSql(folder)
                + QStringLiteral("' AND iVersionAppKey=") + Key(app.CurrentAppKey),
            m_connection);
        if (!version.Eof())
            return Refuse(out, input.id + QStringLiteral(" already exists - please choose another ID"), "txtVersionID");

        version.AddNew();
        version.SetValue(QStringLiteral("iVersionAppKey"), app.CurrentAppKey);
        WriteFields(version, folder, input);
        version.SetValue(QStringLiteral("sVersionAttributes"), QStringLiteral(""));
        WriteLinks(version, input.links);
        version.SetValue(QStringLiteral("iVersionSourceVersion"), state.CurrentVersionKey);
        version.SetValue(QStringLiteral("bVersionActive"), kTrue);
        version.Update();
        version.Close();

        out.state.CurrentVersionKey = KeyOfVersion(m_connection, folder, app.CurrentAppKey);
        out.state.VersionFolderName = folder;
        out.dirtyCleared = true;
        CreateSystemScreen(m_connection, out.state.CurrentVersionKey, app.AppIsHost, app.CurrentPlatformKey);
        CreateVersionFolders(AppFolder(app) + u'\\' + folder);
    } catch (const DbError& e) {
        m_messages.Inform(QStringLiteral("Error while saving version as : ") + e.description());
        return out;
    }

    out.SaveOk = true;
    return out;
}

bool VersionDeleteEnabled(const VersionState& state) { return !state.VersionIsNew && state.CurrentVersionKey != 0; }

bool AttributesEnabled(const std::optional<qint32>& emulatorSelection) { return emulatorSelection.has_value(); }

} // namespace dorvane
