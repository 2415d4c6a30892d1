#include "core/applications/Deletion.h"

#include "core/repository/Connection.h"
#include "core/repository/History.h"
#include "core/repository/Interaction.h"
#include "core/repository/OperationLocks.h"
#include "core/repository/Recordset.h"
#include "core/repository/Transaction.h"

#include <QVector>

namespace dorvane {

namespace {

const QString kApplicationKept =
    QStringLiteral("%1 and all its versions stay as they were: nothing was deleted.");

// The question with the preface above it, a blank line between.
QString withPreface(const DeletionPreface& preface, const QString& question)
{
    return preface ? preface() + QStringLiteral("\n\n") + question : question;
}

} // namespace

bool DeleteApplication(Connection& connection, MessageSink& shown, qint32 appKey, const QString& appName,
                       const DeleteContents& deleteContents, const DeletionPreface& preface)
{
    HistoryRecord record(shown, connection.connectionString(), HistoryOperation::DeleteApplication, QString(), appName);
    MessageSink& messages = record;
    QVector<qint32> versions;
    try {
        Recordset rs(QStringLiteral("SELECT * FROM tVersion WHERE iVersionAppKey=") + QString::number(appKey), connection);
        qint32 environmentKey = 0;
        bool used = false;
        for (; !rs.Eof(); rs.MoveNext()) {
            const qint32 versionKey = rs.Int(QStringLiteral("iVersionKey"));
            versions.append(versionKey);
            if (used)
                continue;
            Recordset detail(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironVerKey=") + QString::number(versionKey),
                             connection);
            if (!detail.Eof()) {
                used = true;
                environmentKey = detail.Int(QStringLiteral("iEnvironKey"));
            }
        }
        if (used) {
            Recordset environment(QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey=") +
                                      QString::number(environmentKey),
                                  connection);
            const QString name = environment.Eof() ? QString() : environment.Text(QStringLiteral("sEnvironmentName"));
            messages.Inform(QStringLiteral("This application is used in at least one environment (") + name +
                            QStringLiteral(") and cannot be deleted"));
            record.Refused();
            return false;
        }
        if (messages.Show(withPreface(preface, QStringLiteral("Are you sure you want to delete ") + appName +
                                                   QStringLiteral(" and all its versions?")),
                          Buttons::YesNo) != Answer::Yes)
            return false;

        // One transaction: a version that cannot be deleted keeps the
        // application and every other version as they were, so that no
        // version is left without its application.
        std::vector<OperationLocks::Target> held;
        for (const qint32 versionKey : versions)
            held.push_back({OperationLocks::Kind::Version, versionKey});
        const OperationLocks locks(connection, held);
        Transaction transaction(connection);
        for (const qint32 versionKey : versions) {
            if (!deleteContents(versionKey, messages)) {
                transaction.Rollback();
                messages.Inform(kApplicationKept.arg(appName));
                return false;
            }
        }
        Recordset app(QStringLiteral("SELECT * FROM tApp WHERE iAppKey = ") + QString::number(appKey), connection);
        if (!app.Eof())
            app.Delete();
        transaction.Commit();
        record.Done();
        return true;
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error while deleting application: ") + e.description());
        return false;
    }
}

bool DeleteVersion(Connection& connection, MessageSink& shown, qint32 versionKey, const QString& versionId,
                   const DeleteContents& deleteContents, const DeletionPreface& preface)
{
    HistoryRecord record(shown, connection.connectionString(), HistoryOperation::DeleteVersion, QString(), versionId);
    MessageSink& messages = record;
    if (versionKey == 0)
        return false;
    try {
        Recordset detail(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironVerKey = ") + QString::number(versionKey),
                         connection);
        if (!detail.Eof()) {
            messages.Inform(QStringLiteral("This version is part of an existing environment and cannot be deleted!"));
            record.Refused();
            return false;
        }
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error while deleting version: ") + e.description());
        return false;
    }
    try {
        if (messages.Show(withPreface(preface, QStringLiteral("Are you sure you want to delete ALL elements of ") +
                                                   versionId + QStringLiteral("?")),
                          Buttons::YesNo) != Answer::Yes)
            return false;
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error while deleting version: ") + e.description());
        return false;
    }
    if (deleteContents(versionKey, messages))
        record.Done();
    return true;
}

} // namespace dorvane
