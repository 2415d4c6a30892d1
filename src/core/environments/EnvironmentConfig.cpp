#include "core/environments/EnvironmentConfig.h"

#include "core/environments/EnvironmentRecords.h"
#include "core/repository/Connection.h"
#include "core/repository/Globals.h"
#include "core/repository/Interaction.h"
#include "core/repository/Recordset.h"

namespace dorvane {

namespace {

QString num(qint32 key) { return QString::number(key); }

ListEntries versionsOf(qint32 appKey, Connection& connection)
{
    ListEntries entries;
    Recordset rs(QStringLiteral("SELECT * FROM tVersion WHERE iVersionAppKey=") + num(appKey), connection);
    for (; !rs.Eof(); rs.MoveNext())
        entries.push_back({rs.Text(QStringLiteral("sVersionID")), rs.Int(QStringLiteral("iVersionKey"))});
    return entries;
}

bool platformIsHost(qint32 platformKey, Connection& connection)
{
    Recordset platform(QStringLiteral("SELECT * FROM tPlatform WHERE iPlatformKey = ") + num(platformKey), connection);
    return !platform.Eof() && platform.Int(QStringLiteral("bPlatformIs3270")) != 0;
}

} // namespace

void EnvironmentConfig::VersionCommandDone()
{
    m_dirty = false;
    m_definition.ClearDirty();
}

ListEntries EnvironmentConfig::RefreshEnvironAppVerList(Connection& connection, MessageSink& messages)
{
    m_dirty = false;
    ListEntries entries;
    try {
        Recordset details(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey = ") +
                              num(m_definition.CurrentEnvironKey()),
                          connection);
        for (; !details.Eof(); details.MoveNext()) {
            Recordset version(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey = ") +
                                  num(details.Int(QStringLiteral("iEnvironVerKey"))),
                              connection);
            Recordset app(QStringLiteral("SELECT * FROM tApp WHERE iAppKey=") +
                              num(version.Int(QStringLiteral("iVersionAppKey"))),
                          connection);
            entries.push_back({app.Text(QStringLiteral("sAppName")) + QStringLiteral(" - ") +
                                   version.Text(QStringLiteral("sVersionID")),
                               version.Int(QStringLiteral("iVersionKey"))});
        }
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error while refreshing Environment detail: ") + e.description());
    }
    return entries;
}

EnvironAppChoice EnvironmentConfig::ChooseApp(qint32 appKey, Connection& connection, MessageSink& messages)
{
    EnvironAppChoice choice;
    m_dirty = true;
    try {
        Recordset app(QStringLiteral("SELECT * FROM tApp WHERE iAppKey=") + num(appKey), connection);
        if (platformIsHost(app.Int(QStringLiteral("iAppPlatform")), connection))
            choice.PreselectEmulator = app.Int(QStringLiteral("iApp3270Key"));
        choice.Versions = versionsOf(appKey, connection);
        choice.Ok = true;
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error while opening environment apps : ") + e.description());
    }
    return choice;
}

EnvironTestToolChoice EnvironmentConfig::ChooseTestTool(qint32 testToolKey, bool editLoading, Connection& connection,
                                                        MessageSink& messages)
{
    EnvironTestToolChoice choice;
    if (editLoading)
        return choice;
    m_dirty = true;
    try {
        Recordset tool(QStringLiteral("SELECT * FROM tTestTool WHERE iTestToolKey=") + num(testToolKey), connection);
        choice.EmulatorUsable = !tool.Eof() && tool.Text(QStringLiteral("sTestToolName")) == kHostTestTool;
        choice.Ok = true;
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error while setting App Test Tool in Environment Configuration: ") +
                        e.description());
    }
    return choice;
}

EnvironListedVersion EnvironmentConfig::HighlightListed(qint32 versionKey, bool editLoading, Connection& connection,
                                                        MessageSink& messages)
{
    EnvironListedVersion listed;
    if (editLoading)
        return listed;
    m_dirty = false;
    try {
        Recordset detail(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironVerKey=") + num(versionKey),
                         connection);
        const qint32 detailVersion = detail.Int(QStringLiteral("iEnvironVerKey"));
        Recordset version(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=") + num(detailVersion), connection);
        listed.AppKey = version.Int(QStringLiteral("iVersionAppKey"));
        listed.Versions = versionsOf(listed.AppKey, connection);
        listed.VersionKey = detailVersion;
        if (!detail.IsNull(QStringLiteral("iEnvironTestToolKey")))
            listed.TestToolKey = detail.Int(QStringLiteral("iEnvironTestToolKey"));
        Recordset app(QStringLiteral("SELECT * FROM tApp WHERE iAppKey=") + num(listed.AppKey), connection);
        if (platformIsHost(app.Int(QStringLiteral("iAppPlatform")), connection))
            listed.EmulatorKey = detail.Int(QStringLiteral("iEnviron3270Key"));
        listed.Ok = true;
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error while opening environment app/version: ") + e.description());
    }
    return listed;
}

EnvironAddOutcome EnvironmentConfig::Add(const EnvironConfigInput& input, Connection& connection,
                                         MessageSink& messages)
{
    EnvironAddOutcome outcome;
    if (!input.AppKey || !input.VersionKey) {
        messages.Inform(QStringLiteral("You must select an application and version to add"));
        return outcome;
    }
    if (input.TestToolText == kHostTestTool && input.EmulatorText.isEmpty()) {
        messages.Inform(QStringLiteral("You must select an emulator for host platforms"));
        return outcome;
    }
    if (input.TestToolText.isEmpty()) {
        messages.Inform(QStringLiteral("You must select a test tool for this application version"));
        return outcome;
    }
    const qint32 environKey = m_definition.CurrentEnvironKey();
    const qint32 versionKey = *input.VersionKey;
    try {
        Recordset detail(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironVerKey=") + num(versionKey),
                         connection);
        const bool stored = !detail.Eof();
        if (stored && detail.Int(QStringLiteral("iEnvironKey")) != environKey) {
            // A version belongs to at most one environment.
            Recordset other(QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey=") +
                                num(detail.Int(QStringLiteral("iEnvironKey"))),
                            connection);
            const QString otherName = other.Eof() ? QString() : other.Text(QStringLiteral("sEnvironmentName"));
            messages.Inform(QStringLiteral("This application version already exists in another environment (") +
                            otherName + QStringLiteral(")"));
            return outcome;
        }

        bool listed = false;
        for (const ListEntry& entry : input.Listed)
            listed = listed || entry.key == versionKey;
        if (!listed) {
            Recordset version;
            for (const ListEntry& entry : input.Listed) {
                version.Open(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=") + num(entry.key), connection);
                if (!version.Eof() && version.Int(QStringLiteral("iVersionAppKey")) == *input.AppKey &&
                    messages.Show(QStringLiteral("Are you sure you want multiple versions of this application in the "
                                                 "same environment?"),
                                  Buttons::YesNo) != Answer::Yes)
                    return outcome;
            }

            // The version's step windows run in this environment from now on.
            Recordset processes(QStringLiteral("SELECT  * FROM tProcess WHERE iProcessVerKey=") + num(versionKey),
                                connection);
            Recordset stepWindows;
            for (; !processes.Eof(); processes.MoveNext()) {
                stepWindows.Open(QStringLiteral("SELECT * FROM tStepWindow WHERE iStepWindowProcessKey=") +
                                     num(processes.Int(QStringLiteral("iProcessKey"))),
                                 connection);
                for (; !stepWindows.Eof(); stepWindows.MoveNext()) {
                    stepWindows.SetValue(QStringLiteral("iStepWindowEnvironmentKey"), environKey);
                    stepWindows.Update();
                }
            }

            outcome.NewEntry = ListEntry{input.AppText + QStringLiteral(" - ") + input.VersionText, versionKey};
            detail.AddNew();
        } else if (!stored) {
            // Listed but not stored yet: the row is written now.
            detail.AddNew();
        }

        detail.SetValue(QStringLiteral("iEnvironKey"), environKey);
        detail.SetValue(QStringLiteral("iEnvironVerKey"), versionKey);
        detail.SetValue(QStringLiteral("iEnvironTestToolKey"), input.TestToolKey.value_or(0));
        detail.SetValue(QStringLiteral("iEnviron3270Key"), input.EmulatorKey.value_or(0));
        detail.Update();
        m_dirty = false;
        m_definition.ClearDirty();
        outcome.Ok = true;
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error while adding an application/version to environment: ") + e.description());
    }
    return outcome;
}

bool EnvironmentConfig::SaveConfiguration(const EnvironConfigInput& input, Connection& connection,
                                          MessageSink& messages, EnvironAddOutcome* addOutcome)
{
    const EnvironAddOutcome added = Add(input, connection, messages);
    if (addOutcome)
        *addOutcome = added;
    return !m_dirty;
}

EnvironRemoveOutcome EnvironmentConfig::Remove(std::optional<qint32> versionKey, Connection& connection,
                                               MessageSink& messages)
{
    EnvironRemoveOutcome outcome;
    if (!versionKey)
        return outcome;
    const QString environKey = num(m_definition.CurrentEnvironKey());
    try {
        Recordset stepWindows(QStringLiteral("SELECT * FROM tStepWindow WHERE iStepWindowVerKey=") + num(*versionKey) +
                                  QStringLiteral(" AND iStepWindowEnvironmentKey=") + environKey,
                              connection);
        if (CountRecords(&stepWindows) >= 1) {
            messages.Inform(
                QStringLiteral("Error: This application version is referenced in existing steps and cannot be removed"));
            return outcome;
        }
        if (!m_definition.EnvironIsNew()) {
            Recordset detail(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=") + environKey +
                                 QStringLiteral(" AND iEnvironVerKey=") + num(*versionKey),
                             connection);
            if (!detail.Eof())
                detail.Delete();
        }
        m_dirty = false;
        m_definition.ClearDirty();
        outcome.Ok = true;
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error while removing application version from environment: ") + e.description());
    }
    return outcome;
}

} // namespace dorvane
