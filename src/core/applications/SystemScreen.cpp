#include "core/applications/SystemScreen.h"

#include "core/repository/DbError.h"
#include "core/repository/Recordset.h"

namespace dorvane {

namespace {

constexpr qint32 kTrue = -1;
const QString kScreenName = QStringLiteral("[System Screen]");
const QString kObjectName = QStringLiteral("[System]");

} // namespace

void CreateSystemScreen(Connection& connection, qint32 versionKey, bool appIsHost, qint32 platformKey)
{
    const QString key = QString::number(versionKey);
    // Found by its name, whatever class another program (or an older
    // release) gave it: a version has one system screen.
    Recordset windows(
        QStringLiteral("SELECT * FROM tWindow WHERE sWindowPhysicalName = '[System Screen]' AND iWindowVerKey = ") + key,
        connection);
    if (!windows.Eof())
        return;

    windows.AddNew();
    windows.SetValue(QStringLiteral("sWindowPhysicalName"), kScreenName);
    windows.SetValue(QStringLiteral("sWindowOverrideName"), kScreenName);
    windows.SetValue(QStringLiteral("sWindowLogicalName"), kScreenName);
    windows.SetValue(QStringLiteral("iWindowVerKey"), versionKey);
    windows.SetValue(QStringLiteral("iWindowParentClassKey"), 0);
    windows.SetValue(QStringLiteral("iWindowParentKey"), 0);
    windows.SetValue(QStringLiteral("bWindowVisible"), kTrue);
    // Platforms other than the host, 2 and 4 get neither a name location
    // nor a class.
    if (appIsHost) {
        windows.SetValue(QStringLiteral("sWindowNameLocation"), QStringLiteral("Row=\tCol=\tLen=\t"));
        windows.SetValue(QStringLiteral("iWindowClassKey"), 1);
    } else if (platformKey == 2) {
        windows.SetValue(QStringLiteral("sWindowNameLocation"), QStringLiteral(""));
        windows.SetValue(QStringLiteral("iWindowClassKey"), 100);
    } else if (platformKey == 4) {
        windows.SetValue(QStringLiteral("sWindowNameLocation"), QStringLiteral(""));
        windows.SetValue(QStringLiteral("iWindowClassKey"), 242);
    }
    windows.SetValue(QStringLiteral("iWindowUpdateStatusKey"), 0);
    windows.SetValue(QStringLiteral("bWindowUserCreated"), kTrue);
    windows.SetValue(QStringLiteral("iWindowSubAppKey"), 0);
    windows.Update();

    const qint32 windowKey = windows.Int(QStringLiteral("iWindowKey"));

    Recordset classes(QStringLiteral("SELECT * FROM tClass WHERE iClassPlatformKey=") + QString::number(platformKey)
            + QStringLiteral(" AND sClassPhysicalName = '[System]'"),
        connection);
    if (classes.Eof())
        throw DbError(QStringLiteral("Platform %1 has no \"[System]\" class.").arg(platformKey));
    const qint32 classKey = classes.Int(QStringLiteral("iClassKey"));

    Recordset objects(
        QStringLiteral("SELECT * FROM tObject WHERE iObjectClassKey=") + QString::number(classKey), connection);
    objects.AddNew();
    objects.SetValue(QStringLiteral("sObjectLogicalName"), kObjectName);
    objects.SetValue(QStringLiteral("sObjectOverrideName"), kObjectName);
    objects.SetValue(QStringLiteral("sObjectPhysicalName"), kObjectName);
    objects.SetValue(QStringLiteral("iObjectVersionKey"), versionKey);
    objects.SetValue(QStringLiteral("iObjectClassKey"), classKey);
    objects.SetValue(QStringLiteral("sObjectAttributes"), QStringLiteral(""));
    objects.SetValue(QStringLiteral("iObjectDataTypeKey"), 1);
    objects.SetValue(QStringLiteral("iObjectWindowKey"), windowKey);
    objects.SetValue(QStringLiteral("bObjectVisible"), kTrue);
    objects.SetValue(QStringLiteral("bObjectUserCreated"), kTrue);
    objects.SetValue(QStringLiteral("iObjectUpdateStatusKey"), 0);
    objects.Update();
}

} // namespace dorvane
