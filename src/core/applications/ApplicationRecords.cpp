#include "core/applications/ApplicationRecords.h"

#include "core/applications/AppFolders.h"
#include "core/repository/Globals.h"
#include "core/repository/Interaction.h"
#include "core/repository/Recordset.h"

namespace dorvane {

namespace {

constexpr int kApplicationsTab = 2;
constexpr int kDefinitionPage = 0;
constexpr int kVersionsPage = 1;

// Empty optional texts are stored as a single blank, as the suite's other
// modules expect.
QString BlankIfEmpty(const QString& text) { return text.isEmpty() ? QStringLiteral(" ") : text; }

} // namespace

QString NormaliseAppId(const QString& typedId)
{
    const QString first = ReplaceChars(QStringLiteral("_"), CleanFolderId(typedId),
        {QStringLiteral(" "), QStringLiteral("/"), QStringLiteral("."), QStringLiteral("!"), QStringLiteral("-"),
            QStringLiteral("?")},
        QString());
    return ReplaceChars(QStringLiteral("_"), first,
        {QStringLiteral(" "), QStringLiteral("["), QStringLiteral("]"), QStringLiteral(":"), QStringLiteral("*"),
            QStringLiteral("\"")},
        QString());
}

bool PlatformIsHost(Connection& connection, qint32 platformKey)
{
    Recordset platform(
        QStringLiteral("SELECT * FROM tPlatform WHERE iPlatformKey=") + QString::number(platformKey), connection);
    return !platform.Eof() && platform.Int(QStringLiteral("bPlatformIs3270")) != 0;
}

ApplicationRecords::ApplicationRecords(Connection& connection, MessageSink& messages, QString sharedResourcePath)
    : m_connection(connection)
    , m_messages(messages)
    , m_sharedResourcePath(std::move(sharedResourcePath))
{
}

std::optional<ApplicationRecord> ApplicationRecords::Open(qint32 appKey)
{
    try {
        Recordset app(QStringLiteral("SELECT * FROM tApp WHERE iAppKey=") + QString::number(appKey), m_connection);
        ApplicationRecord record;
        record.name = app.Text(QStringLiteral("sAppName"));
        record.environ = app.Text(QStringLiteral("mAppEnviron"));
        if (!app.IsNull(QStringLiteral("iAppPlatform"))) {
            record.platformKey = app.Int(QStringLiteral("iAppPlatform"));
            record.AppIsHost = PlatformIsHost(m_connection, *record.platformKey);
            if (record.AppIsHost)
                record.emulatorKey = app.Int(QStringLiteral("iApp3270Key"));
        }
        record.id = app.Text(QStringLiteral("sAppID"));
        record.AppFolderName = record.id;
        record.description = app.Text(QStringLiteral("sAppDesc"));
        return record;
    } catch (const DbError& e) {
        m_messages.Inform(QStringLiteral("Error while opening application:") + e.description());
        return std::nullopt;
    }
}

ApplicationSaveOutcome ApplicationRecords::Save(const ApplicationInput& input, const ApplicationState& state)
{
    ApplicationSaveOutcome out;
    out.state = state;
    auto refuse = [&](const QString& message, const char* field) {
        out.mainTab = kApplicationsTab;
        out.appTab = kDefinitionPage;
        out.focusField = QString::fromLatin1(field);
        m_messages.Inform(message);
        return out;
    };

    if (input.name.isEmpty())
        return refuse(QStringLiteral("Application Name cannot be blank"), "txtAppName");
    if (input.id.isEmpty())
        return refuse(QStringLiteral("You must specify an ID for this application."), "txtAppID");
    if (!input.platformKey)
        return refuse(QStringLiteral("You must select a valid platform type for this application."), "cbPlatform");

    try {
        // An ID left as stored is saved as stored, also one the suite's
        // other modules wrote in a form this editor would normalise.
        const bool idUnchanged = !state.AppIsNew && input.id == state.AppFolderName;
        const QString folder = idUnchanged ? input.id : NormaliseAppId(input.id);
        const QString otherKeys = QStringLiteral("' AND iAppKey <>") + QString::number(state.CurrentAppKey);

        Recordset sameName(
            QStringLiteral("SELECT * FROM tApp WHERE sAppName='") + QuoteSql(input.name) + otherKeys, m_connection);
        if (!sameName.Eof())
            return refuse(input.name + QStringLiteral(" already exists - please choose another Name"), "txtAppName");

        Recordset sameId(
            QStringLiteral("SELECT * FROM tApp WHERE sAppID='") + QuoteSql(folder) + otherKeys, m_connection);
        if (!sameId.Eof())
            return refuse(input.id + QStringLiteral(" already exists - please choose another ID"), "txtAppID");

        Recordset app(
            QStringLiteral("SELECT * FROM tApp WHERE iAppKey=") + QString::number(state.CurrentAppKey), m_connection);
        // The ID is the folder name, so comparing keeps the letter case:
        // a change of case alone renames the folder.
        std::optional<QString> oldFolder;
        if (!state.AppIsNew && app.Text(QStringLiteral("sAppID")) != folder)
            oldFolder = app.Text(QStringLiteral("sAppID"));

        out.state.CurrentPlatformKey = *input.platformKey;
        if (PlatformIsHost(m_connection, *input.platformKey) && !input.emulatorKey)
            return refuse(
                QStringLiteral("You must select a supported emulator for a host-based platform"), "cbEmulator");

        if (state.AppIsNew)
            app.AddNew();
        app.SetValue(QStringLiteral("sAppName"), input.name);
        app.SetValue(QStringLiteral("sAppID"), folder);
        app.SetValue(QStringLiteral("iAppPlatform"), *input.platformKey);
        out.state.AppIsHost = !input.emulatorText.isEmpty();
        app.SetValue(QStringLiteral("iApp3270Key"), out.state.AppIsHost ? input.emulatorKey.value_or(0) : 0);
        app.SetValue(QStringLiteral("mAppEnviron"), BlankIfEmpty(input.environ));
        app.SetValue(QStringLiteral("sAppDesc"), BlankIfEmpty(input.description));
        app.Update();
        app.Close();

        // A new row's key is learnt by its ID, which is unique. From here on
        // the application is a stored one with this ID as its folder name,
        // also when the folder work below fails: Save again updates the row.
        Recordset byId(QStringLiteral("SELECT * FROM tApp WHERE sAppID='") + QuoteSql(folder) + u'\'', m_connection);
        out.state.CurrentAppKey = byId.Int(QStringLiteral("iAppKey"));
        out.state.AppIsNew = false;
        out.state.AppFolderName = folder;
        out.dirtyCleared = true;

        // The folder is created whenever it is missing, so that a Save
        // retried after a failed folder creation still creates it.
        const QString apps = m_sharedResourcePath + QStringLiteral("\\Apps");
        CreateFolderIfMissing(apps);
        // A stored ID that named no folder inside Apps (another program
        // wrote it) leaves whatever it named alone.
        if (oldFolder && !FolderIdProblem(QString(), *oldFolder).isEmpty())
            oldFolder.reset();
        if (oldFolder)
            RenameFolder(apps + u'\\' + *oldFolder, apps + u'\\' + folder);
        else
            CreateFolderIfMissing(apps + u'\\' + folder);
    } catch (const DbError& e) {
        m_messages.Inform(QStringLiteral("Error during app save: ") + e.description());
        return out;
    }

    out.SaveOk = true;
    out.appTab = kVersionsPage;
    out.focusField = QStringLiteral("txtVersionID");
    return out;
}

} // namespace dorvane
