#include "core/repository/Installation.h"

#include "core/repository/FilePaths.h"
#include "core/repository/Globals.h"
#include "core/repository/Recordset.h"
#include "core/repository/Schema.h"
#include "core/repository/Transaction.h"

#include <QDate>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTime>

#include <utility>
#include <vector>

namespace dorvane {

namespace {

constexpr qint32 kTrue = -1;
constexpr qint32 kFalse = 0;

// A vector, not an initializer_list: built with GCC 12 at -O0, the QVariants
// of a long braced list were found overwritten before the row was written.
using Fields = std::vector<std::pair<const char*, QVariant>>;

// Adds and changes rows through record sets, as the program itself does,
// and reads each new row's key back after the update.
class RowWriter {
public:
    explicit RowWriter(Connection& connection) : m_connection(connection) {}

    qint32 Add(const char* tableName, const Fields& fields)
    {
        const TableDef& table = Table(tableName);
        // Only added to, so the selection is never read.
        Recordset rs(QStringLiteral("SELECT * FROM %1 WHERE %2=0").arg(table.name, table.key), m_connection);
        rs.AddNew();
        for (const auto& [column, value] : fields)
            rs.SetValue(QString::fromLatin1(column), value);
        rs.Update();
        return rs.Int(table.key);
    }

    // Adds a row that must receive `expectedKey`: the program refers to
    // some reference rows by their key.
    void AddWithKey(const char* tableName, qint32 expectedKey, const Fields& fields)
    {
        const qint32 key = Add(tableName, fields);
        if (key != expectedKey) {
            throw DbError(QStringLiteral("%1 row was given key %2 instead of %3")
                              .arg(QString::fromLatin1(tableName))
                              .arg(key)
                              .arg(expectedKey));
        }
    }

    void Set(const char* tableName, qint32 key, const Fields& fields)
    {
        const TableDef& table = Table(tableName);
        Recordset rs(QStringLiteral("SELECT * FROM %1 WHERE %2=%3").arg(table.name, table.key).arg(key), m_connection);
        if (rs.Eof())
            throw DbError(QStringLiteral("%1 row %2 not found").arg(table.name).arg(key));
        for (const auto& [column, value] : fields)
            rs.SetValue(QString::fromLatin1(column), value);
        rs.Update();
    }

    qint32 ClassKey(qint32 platform, const QString& physicalName)
    {
        Recordset rs(QStringLiteral("SELECT * FROM tClass WHERE iClassPlatformKey=%1 AND sClassPhysicalName='%2'")
                         .arg(platform)
                         .arg(QuoteSql(physicalName)),
                     m_connection);
        if (rs.Eof())
            throw DbError(QStringLiteral("No class %1 on platform %2").arg(physicalName).arg(platform));
        return rs.Int(QStringLiteral("iClassKey"));
    }

private:
    static const TableDef& Table(const char* name)
    {
        const TableDef* table = FindTable(QString::fromLatin1(name));
        Q_ASSERT(table);
        return *table;
    }

    Connection& m_connection;
};

// Keys inside step arguments are written with a leading blank when not
// negative, as the copy engine's fix-up writes them.
QString ArgKey(qint32 key)
{
    return key < 0 ? QString::number(key) : QStringLiteral(" ") + QString::number(key);
}

QString ProcessCall(qint32 processKey)
{
    return QStringLiteral("ProcessKey=") + ArgKey(processKey);
}

QString VariableRef(const QString& prefix, const QString& name, qint32 versionKey, qint32 varKey)
{
    return QStringLiteral("%1=@%2[%3|%4]").arg(prefix, name, ArgKey(versionKey), ArgKey(varKey));
}

QDateTime Stamp(int month, int day, int hour)
{
    return QDateTime(QDate(2024, month, day), QTime(hour, 0));
}

// The host system screen every version owns, as the version editor seeds
// it: on a host platform it is the window that stands for the
// application (class key 1) with the row/column/length location labels;
// elsewhere the window has no class of its own.
qint32 AddSystemScreen(RowWriter& w, qint32 versionKey, qint32 platform, bool host)
{
    const QString name = QStringLiteral("[System Screen]");
    const qint32 window = host ? w.Add("tWindow", {{"iWindowVerKey", versionKey},
                                                    {"iWindowClassKey", 1},
                                                    {"sWindowPhysicalName", name},
                                                    {"sWindowLogicalName", name},
                                                    {"sWindowOverrideName", name},
                                                    {"sWindowNameLocation", QStringLiteral("Row=\tCol=\tLen=\t")},
                                                    {"bWindowVisible", kTrue},
                                                    {"bWindowUserCreated", kTrue}})
                               : w.Add("tWindow", {{"iWindowVerKey", versionKey},
                                                    {"sWindowPhysicalName", name},
                                                    {"sWindowLogicalName", name},
                                                    {"sWindowOverrideName", name},
                                                    {"bWindowVisible", kTrue},
                                                    {"bWindowUserCreated", kTrue}});
    const QString object = QStringLiteral("[System]");
    w.Add("tObject", {{"iObjectWindowKey", window},
                      {"iObjectClassKey", w.ClassKey(platform, kSystemClass)},
                      {"iObjectVersionKey", versionKey},
                      {"iObjectDataTypeKey", 1},
                      {"sObjectPhysicalName", object},
                      {"sObjectLogicalName", object},
                      {"sObjectOverrideName", object},
                      {"sObjectAttributes", QString()},
                      {"bObjectVisible", kTrue},
                      {"bObjectUserCreated", kTrue}});
    return window;
}

qint32 AddWindow(RowWriter& w, qint32 versionKey, qint32 classKey, const char* physical, const char* logical,
                 qint32 parent = 0, const char* executable = "")
{
    return w.Add("tWindow", {{"iWindowVerKey", versionKey},
                             {"iWindowClassKey", classKey},
                             {"iWindowParentKey", parent},
                             {"sWindowPhysicalName", QString::fromLatin1(physical)},
                             {"sWindowLogicalName", QString::fromLatin1(logical)},
                             {"sWindowRawLogicalName", QString::fromLatin1(logical)},
                             {"sWindowOverrideName", QStringLiteral(" ")},
                             {"sWindowExecutable", QString::fromLatin1(executable)},
                             {"bWindowVisible", kTrue},
                             {"bWindowUserCreated", kFalse},
                             {"dWindowLastUpdate", Stamp(2, 12, 10)}});
}

qint32 AddObject(RowWriter& w, qint32 versionKey, qint32 windowKey, qint32 classKey, const char* physical,
                 const char* logical, qint32 dataType)
{
    return w.Add("tObject", {{"iObjectWindowKey", windowKey},
                             {"iObjectClassKey", classKey},
                             {"iObjectVersionKey", versionKey},
                             {"iObjectDataTypeKey", dataType},
                             {"sObjectPhysicalName", QString::fromLatin1(physical)},
                             {"sObjectLogicalName", QString::fromLatin1(logical)},
                             {"sObjectRawLogicalName", QString::fromLatin1(logical)},
                             {"sObjectOverrideName", QStringLiteral(" ")},
                             {"sObjectAttributes", QString()},
                             {"bObjectVisible", kTrue},
                             {"bObjectUserCreated", kFalse},
                             {"dObjectLastUpdate", Stamp(2, 12, 10)}});
}

qint32 AddVariable(RowWriter& w, qint32 versionKey, const char* name, const char* desc, const char* defaultValue,
                   qint32 length)
{
    return w.Add("tUserVar", {{"iVarAppVerKey", versionKey},
                              {"sVarName", QString::fromLatin1(name)},
                              {"sVarDesc", QString::fromLatin1(desc)},
                              {"sVarDefValue", QString::fromLatin1(defaultValue)},
                              {"sVarValue", QString::fromLatin1(defaultValue)},
                              {"iVarType", 1},
                              {"iVarLen", length},
                              {"iVarInMask", 0},
                              {"iVarOutMask", 0}});
}

struct ProcessSpec {
    qint32 versionKey;
    const char* name;
    const char* desc;
    qint32 type;
    qint32 owner;
    qint32 role;
    qint32 requirement;
    qint32 record;
    qint32 sequence;
};

qint32 AddProcess(RowWriter& w, const ProcessSpec& p)
{
    return w.Add("tProcess", {{"iProcessVerKey", p.versionKey},
                              {"sProcessName", QString::fromLatin1(p.name)},
                              {"mProcessDesc", QString::fromLatin1(p.desc)},
                              {"sProcessData", QStringLiteral(" ")},
                              {"iProcessType", p.type},
                              {"iProcessOwnerKey", p.owner},
                              {"iProcessCreatorKey", p.owner},
                              {"iProcessLastModifierKey", p.owner},
                              {"iProcessRoleKey", p.role},
                              {"iProcessRequirementKey", p.requirement},
                              {"iProcessRecordKey", p.record},
                              {"iProcessSequenceNum", p.sequence},
                              {"bProcessCompiled", kTrue},
                              {"bProcessIsAutomated", kTrue},
                              {"dProcessCreateDate", Stamp(2, 20, 9)},
                              {"dProcessLastModifyDate", Stamp(3, 1, 14)}});
}

qint32 AddStepWindow(RowWriter& w, qint32 processKey, qint32 versionKey, qint32 windowKey, qint32 environmentKey,
                     qint32 sequence)
{
    return w.Add("tStepWindow", {{"iStepWindowProcessKey", processKey},
                                 {"iStepWindowVerKey", versionKey},
                                 {"iStepWindowWindowKey", windowKey},
                                 {"iStepWindowEnvironmentKey", environmentKey},
                                 {"iStepWindowSequenceNum", sequence}});
}

// Step actions as the recorder numbers them.
constexpr qint32 kActionType = 1;
constexpr qint32 kActionClick = 2;
constexpr qint32 kActionSelect = 3;
constexpr qint32 kActionCall = 4;
constexpr qint32 kActionVerify = 5;

void AddStep(RowWriter& w, qint32 stepWindowKey, qint32 objectKey, qint32 action, qint32 sequence,
             const QString& arguments, const char* narrative)
{
    w.Add("tStep", {{"iStepWindowKey", stepWindowKey},
                    {"iStepObjectKey", objectKey},
                    {"iStepActionKey", action},
                    {"iStepSequenceNum", sequence},
                    {"sStepArguments", arguments},
                    {"sStepNarrative", QString::fromLatin1(narrative)}});
}

// Creates SQLite files and removes them again unless the whole set-up
// succeeded.
class CreatedFiles {
public:
    CreatedFiles() = default;
    CreatedFiles(const CreatedFiles&) = delete;
    CreatedFiles& operator=(const CreatedFiles&) = delete;
    ~CreatedFiles()
    {
        if (!m_kept) {
            for (const QString& path : m_paths)
                Connection::RemoveDatabaseFile(path);
        }
    }

    void CreateDatabase(const QString& nativePath, SchemaVariant variant, RepositoryContent content)
    {
        Connection::CreateDatabaseFile(nativePath);
        m_paths << nativePath;
        Connection connection;
        connection.OpenFile(nativePath);
        BuildDatabase(connection, variant, content);
        connection.Close();
    }

    void CreateEmptyFile(const QString& nativePath)
    {
        Connection::CreateDatabaseFile(nativePath);
        m_paths << nativePath;
    }

    void Keep() { m_kept = true; }

private:
    QStringList m_paths;
    bool m_kept = false;
};

bool MakeFolder(const QString& windowsPath, QString& error)
{
    const QString native = NativePath(windowsPath);
    if (QFileInfo(native).isDir() || QDir().mkpath(native))
        return true;
    error = QStringLiteral("Could not create the folder %1.").arg(native);
    return false;
}

// The absolute form of a folder named on the command line, so that the
// paths built from it do not depend on the current directory later.
QString AbsoluteFolder(const QString& path)
{
    return QDir::cleanPath(QDir(NativePath(path)).absolutePath());
}

} // namespace

void InsertReferenceData(Connection& connection)
{
    RowWriter w(connection);

    // The version editor treats platforms 2 and 4 specially when it seeds
    // a version's system screen; the host platform is the one that needs
    // a 3270 emulator.
    w.AddWithKey("tPlatform", kPlatformWindows, {{"sPlatformDesc", QStringLiteral("Windows")}, {"bPlatformIs3270", kFalse}});
    w.AddWithKey("tPlatform", kPlatformWeb, {{"sPlatformDesc", QStringLiteral("Web")}, {"bPlatformIs3270", kFalse}});
    w.AddWithKey("tPlatform", kPlatform3270,
                 {{"sPlatformDesc", QStringLiteral("3270 Mainframe")}, {"bPlatformIs3270", kTrue}});
    w.AddWithKey("tPlatform", kPlatformJava, {{"sPlatformDesc", QStringLiteral("Java")}, {"bPlatformIs3270", kFalse}});

    w.AddWithKey("tTestTool", 1, {{"sTestToolName", kMainframeTestTool}});
    w.AddWithKey("tTestTool", 2, {{"sTestToolName", QStringLiteral("Desktop Recorder")}});
    w.AddWithKey("tTestTool", 3, {{"sTestToolName", QStringLiteral("Web Driver")}});
    w.AddWithKey("tTestTool", 4, {{"sTestToolName", QStringLiteral("Java Agent")}});

    // Key 0 is the placeholder the emulator lists leave out. An explicit
    // key does not move the auto-number on either backend, so the real
    // emulators still start at 1.
    connection.Execute(QStringLiteral("INSERT INTO t3270 (i3270Key, s3270EmulatorName) VALUES (0, '(none)')"));
    w.AddWithKey("t3270", 1, {{"s3270EmulatorName", QStringLiteral("IBM Personal Communications")}});
    w.AddWithKey("t3270", 2, {{"s3270EmulatorName", QStringLiteral("Attachmate EXTRA!")}});
    w.AddWithKey("t3270", 3, {{"s3270EmulatorName", QStringLiteral("TN3270 Plus")}});

    w.AddWithKey("tMapType", 1, {{"sMapTypeDesc", QStringLiteral("Windows GUI map")}, {"iMapTypePlatformKey", kPlatformWindows}});
    w.AddWithKey("tMapType", 2, {{"sMapTypeDesc", QStringLiteral("Web page map")}, {"iMapTypePlatformKey", kPlatformWeb}});
    w.AddWithKey("tMapType", 3, {{"sMapTypeDesc", QStringLiteral("3270 screen map")}, {"iMapTypePlatformKey", kPlatform3270}});
    w.AddWithKey("tMapType", 4, {{"sMapTypeDesc", QStringLiteral("Java GUI map")}, {"iMapTypePlatformKey", kPlatformJava}});

    // The "[System]" class of each platform takes the system screen's
    // pseudo-object.
    const std::vector<std::pair<qint32, std::vector<const char*>>> classes = {
        {kPlatformWindows, {"Window", "PushButton", "Edit", "ComboBox", "CheckBox", "ListBox"}},
        {kPlatformWeb, {"Page", "Link", "TextInput", "Button", "Table"}},
        {kPlatform3270, {"Screen", "InputField", "ProtectedField"}},
        {kPlatformJava, {"JFrame", "JButton", "JTextField", "JComboBox"}},
    };
    for (const auto& [platform, names] : classes)
        w.Add("tClass", {{"iClassPlatformKey", platform}, {"sClassPhysicalName", kSystemClass}});
    for (const auto& [platform, names] : classes) {
        for (const char* name : names)
            w.Add("tClass", {{"iClassPlatformKey", platform}, {"sClassPhysicalName", QString::fromLatin1(name)}});
    }
}

void InsertTutorialData(Connection& connection)
{
    RowWriter w(connection);

    // People, roles and projects.
    const qint32 jsmith = w.Add("tUser", {{"sUserID", QStringLiteral("jsmith")},
                                          {"sUserFirst", QStringLiteral("Jane")},
                                          {"sUserLast", QStringLiteral("Smith")},
                                          {"sUserPassword", QStringLiteral("tutorial")},
                                          {"sUserDepartment", QStringLiteral("Quality Assurance")},
                                          {"sUserEmail", QStringLiteral("jane.smith@example.com")},
                                          {"sUserExtension", QStringLiteral("4410")}});
    const qint32 mbrown = w.Add("tUser", {{"sUserID", QStringLiteral("mbrown")},
                                          {"sUserFirst", QStringLiteral("Mark")},
                                          {"sUserLast", QStringLiteral("Brown")},
                                          {"sUserPassword", QStringLiteral("tutorial")},
                                          {"sUserDepartment", QStringLiteral("Development")},
                                          {"sUserEmail", QStringLiteral("mark.brown@example.com")},
                                          {"sUserExtension", QStringLiteral("4523")}});
    const qint32 lchen = w.Add("tUser", {{"sUserID", QStringLiteral("lchen")},
                                         {"sUserFirst", QStringLiteral("Li")},
                                         {"sUserLast", QStringLiteral("Chen")},
                                         {"sUserPassword", QStringLiteral("tutorial")},
                                         {"sUserDepartment", QStringLiteral("Operations")},
                                         {"sUserEmail", QStringLiteral("li.chen@example.com")},
                                         {"sUserExtension", QStringLiteral(" ")}});

    const qint32 tester = w.Add("tRole", {{"sRoleName", QStringLiteral("Tester")},
                                          {"sRoleDesc", QStringLiteral("Records and runs test processes")}});
    const qint32 lead = w.Add("tRole", {{"sRoleName", QStringLiteral("Test Lead")},
                                        {"sRoleDesc", QStringLiteral("Plans cycles and schedules")}});
    w.Add("tRole", {{"sRoleName", QStringLiteral("Developer")}, {"sRoleDesc", QStringLiteral("Fixes what the tests find")}});

    w.Add("tProject", {{"sProjectName", QStringLiteral("Order Entry 1.1")},
                       {"sProjectDesc", QStringLiteral("Regression of the order entry release")}});
    w.Add("tProject", {{"sProjectName", QStringLiteral("Host Migration")},
                       {"sProjectDesc", QStringLiteral("Customer inquiry on the new host")}});
    w.Add("tProject", {{"sProjectName", QStringLiteral("Web Store Launch")}, {"sProjectDesc", QStringLiteral(" ")}});

    // Applications.
    const qint32 orderEntry = w.Add("tApp", {{"sAppName", QStringLiteral("Order Entry")},
                                             {"sAppDesc", QStringLiteral("Desktop order entry for the sales office")},
                                             {"sAppID", QStringLiteral("OE")},
                                             {"mAppEnviron", QStringLiteral("Needs the order database on the test server.")},
                                             {"mAppAttributes", QStringLiteral(" ")},
                                             {"iAppPlatform", kPlatformWindows},
                                             {"iApp3270Key", 0},
                                             {"sAppEnginePath", QStringLiteral("C:\\Program Files\\OrderEntry")},
                                             {"sAppMapPath", QStringLiteral("Apps\\OE")}});
    const qint32 inquiry = w.Add("tApp", {{"sAppName", QStringLiteral("Customer Inquiry")},
                                          {"sAppDesc", QStringLiteral("Host customer inquiry transactions")},
                                          {"sAppID", QStringLiteral("CI")},
                                          {"mAppEnviron", QStringLiteral("Logon through the CICS test region.")},
                                          {"mAppAttributes", QStringLiteral(" ")},
                                          {"iAppPlatform", kPlatform3270},
                                          {"iApp3270Key", 1},
                                          {"sAppEnginePath", QStringLiteral(" ")},
                                          {"sAppMapPath", QStringLiteral("Apps\\CI")}});
    const qint32 webStore = w.Add("tApp", {{"sAppName", QStringLiteral("Web Store")},
                                           {"sAppDesc", QStringLiteral("Public shop front")},
                                           {"sAppID", QStringLiteral("WS")},
                                           {"mAppEnviron", QStringLiteral(" ")},
                                           {"mAppAttributes", QStringLiteral(" ")},
                                           {"iAppPlatform", kPlatformWeb},
                                           {"iApp3270Key", 0},
                                           {"sAppEnginePath", QStringLiteral(" ")},
                                           {"sAppMapPath", QStringLiteral("Apps\\WS")}});

    // Versions; their start-up processes and windows are set further down.
    const qint32 oe10 = w.Add("tVersion", {{"iVersionAppKey", orderEntry},
                                           {"sVersionID", QStringLiteral("1.0")},
                                           {"sVersionDesc", QStringLiteral("First release")},
                                           {"sVersionAttributes", QString()},
                                           {"bVersionActive", kFalse},
                                           {"iMapType", 1}});
    const qint32 oe11 = w.Add("tVersion", {{"iVersionAppKey", orderEntry},
                                           {"sVersionID", QStringLiteral("1.1")},
                                           {"sVersionDesc", QStringLiteral("Maintenance release")},
                                           {"sVersionAttributes", QString()},
                                           {"bVersionActive", kTrue},
                                           {"iMapType", 1},
                                           {"iVersionSourceVersion", oe10}});
    const qint32 ciR5 = w.Add("tVersion", {{"iVersionAppKey", inquiry},
                                           {"sVersionID", QStringLiteral("R5")},
                                           {"sVersionDesc", QStringLiteral("Release 5 screens")},
                                           {"sVersionAttributes",
                                            QStringLiteral("MoreLine=24\r\nMoreKey=PF8\r\nMoreText=MORE...\r\n")},
                                           {"bVersionActive", kTrue},
                                           {"iMapType", 3}});
    const qint32 ws30 = w.Add("tVersion", {{"iVersionAppKey", webStore},
                                           {"sVersionID", QStringLiteral("3.0")},
                                           {"sVersionDesc", QStringLiteral("Responsive shop")},
                                           {"sVersionAttributes", QString()},
                                           {"bVersionActive", kTrue},
                                           {"iMapType", 2}});

    // Order Entry 1.0: the application window and its login, as recorded.
    const qint32 winWindow = w.ClassKey(kPlatformWindows, QStringLiteral("Window"));
    const qint32 winButton = w.ClassKey(kPlatformWindows, QStringLiteral("PushButton"));
    const qint32 winEdit = w.ClassKey(kPlatformWindows, QStringLiteral("Edit"));
    const qint32 winCombo = w.ClassKey(kPlatformWindows, QStringLiteral("ComboBox"));
    AddSystemScreen(w, oe10, kPlatformWindows, false);
    const qint32 oe10App = AddWindow(w, oe10, 1, "OrderEntry", "Order Entry", 0, "orderentry.exe");
    const qint32 oe10Login = AddWindow(w, oe10, winWindow, "frmLogin", "Login", oe10App);
    AddObject(w, oe10, oe10Login, winEdit, "txtUserName", "User Name", 1);
    AddObject(w, oe10, oe10Login, winEdit, "txtPassword", "Password", 1);
    AddObject(w, oe10, oe10Login, winButton, "cmdOK", "OK", 0);

    // Order Entry 1.1.
    AddSystemScreen(w, oe11, kPlatformWindows, false);
    const qint32 oeApp = AddWindow(w, oe11, 1, "OrderEntry", "Order Entry", 0, "orderentry.exe");
    const qint32 oeLogin = AddWindow(w, oe11, winWindow, "frmLogin", "Login", oeApp);
    const qint32 oeMenu = AddWindow(w, oe11, winWindow, "frmMain", "Main Menu", oeApp);
    const qint32 oeOrder = AddWindow(w, oe11, winWindow, "frmNewOrder", "New Order", oeMenu);
    const qint32 oeUser = AddObject(w, oe11, oeLogin, winEdit, "txtUserName", "User Name", 1);
    const qint32 oePassword = AddObject(w, oe11, oeLogin, winEdit, "txtPassword", "Password", 1);
    const qint32 oeOk = AddObject(w, oe11, oeLogin, winButton, "cmdOK", "OK", 0);
    const qint32 oeNewOrder = AddObject(w, oe11, oeMenu, winButton, "cmdNewOrder", "New Order", 0);
    const qint32 oeExit = AddObject(w, oe11, oeMenu, winButton, "cmdExit", "Exit", 0);
    const qint32 oeCustomer = AddObject(w, oe11, oeOrder, winCombo, "cbCustomer", "Customer", 1);
    const qint32 oeQuantity = AddObject(w, oe11, oeOrder, winEdit, "txtQuantity", "Quantity", 2);
    const qint32 oeSave = AddObject(w, oe11, oeOrder, winButton, "cmdSave", "Save", 0);

    const qint32 varUser = AddVariable(w, oe11, "UserName", "Login name", "jsmith", 20);
    const qint32 varPassword = AddVariable(w, oe11, "Password", "Login password", "tutorial", 20);
    const qint32 varCustomer = AddVariable(w, oe11, "CustomerName", "Customer to order for", "Acme Tools", 40);
    const qint32 varQuantity = AddVariable(w, oe11, "Quantity", "Items ordered", "12", 5);

    const qint32 reqLogin = w.Add("tRequirement", {{"iRequirementAppVerKey", oe11},
                                                   {"sRequirementName", QStringLiteral("OE-001 Login")},
                                                   {"sRequirementDesc", QStringLiteral("Only known users may log in")}});
    const qint32 reqOrder = w.Add("tRequirement", {{"iRequirementAppVerKey", oe11},
                                                   {"sRequirementName", QStringLiteral("OE-002 New order")},
                                                   {"sRequirementDesc", QStringLiteral("An order needs a customer and a quantity")}});

    // Customer Inquiry R5 on the host.
    const qint32 ciSystem = AddSystemScreen(w, ciR5, kPlatform3270, true);
    const qint32 hostScreen = w.ClassKey(kPlatform3270, QStringLiteral("Screen"));
    const qint32 hostInput = w.ClassKey(kPlatform3270, QStringLiteral("InputField"));
    const qint32 hostProtected = w.ClassKey(kPlatform3270, QStringLiteral("ProtectedField"));
    const qint32 ciSignOn = AddWindow(w, ciR5, hostScreen, "SIGNON", "Sign On", ciSystem);
    const qint32 ciSearch = AddWindow(w, ciR5, hostScreen, "CUST01", "Customer Search", ciSystem);
    const qint32 ciDetail = AddWindow(w, ciR5, hostScreen, "CUST02", "Customer Detail", ciSystem);
    const qint32 ciUserId = AddObject(w, ciR5, ciSignOn, hostInput, "R10C20", "User ID", 1);
    const qint32 ciPassword = AddObject(w, ciR5, ciSignOn, hostInput, "R11C20", "Password", 1);
    const qint32 ciCustNo = AddObject(w, ciR5, ciSearch, hostInput, "R05C18", "Customer Number", 2);
    const qint32 ciCustName = AddObject(w, ciR5, ciDetail, hostProtected, "R06C18", "Customer Name", 1);
    const qint32 ciHostUser = AddVariable(w, ciR5, "HostUser", "Host user ID", "TSTUSR1", 8);
    const qint32 ciHostPassword = AddVariable(w, ciR5, "HostPassword", "Host password", "TUTOR1", 8);
    const qint32 ciCustomer = AddVariable(w, ciR5, "CustomerNumber", "Customer to look up", "100234", 6);
    const qint32 ciReq = w.Add("tRequirement", {{"iRequirementAppVerKey", ciR5},
                                                {"sRequirementName", QStringLiteral("CI-010 Inquiry")},
                                                {"sRequirementDesc", QStringLiteral("A customer can be found by number")}});

    // Web Store 3.0: a map only, no tests yet.
    const qint32 webPage = w.ClassKey(kPlatformWeb, QStringLiteral("Page"));
    AddSystemScreen(w, ws30, kPlatformWeb, false);
    const qint32 wsApp = AddWindow(w, ws30, 1, "WebStore", "Web Store", 0, "https://shop.example.com");
    const qint32 wsHome = AddWindow(w, ws30, webPage, "index.html", "Home Page", wsApp);
    const qint32 wsCart = AddWindow(w, ws30, webPage, "cart.html", "Cart", wsApp);
    AddObject(w, ws30, wsHome, w.ClassKey(kPlatformWeb, QStringLiteral("Link")), "a#cart", "Cart Link", 0);
    AddObject(w, ws30, wsCart, w.ClassKey(kPlatformWeb, QStringLiteral("Button")), "button#checkout", "Checkout", 0);

    // The environment and its record layout.
    const qint32 environment = w.Add("tEnvironment", {{"sEnvironmentName", QStringLiteral("TUTORIAL")},
                                                      {"sEnvironmentDesc", QStringLiteral("Tutorial test environment")}});
    const qint32 record = w.Add("tRecord", {{"iRecordEnvironmentKey", environment},
                                            {"sRecordName", QStringLiteral("Customer Order")},
                                            {"sRecordDesc", QStringLiteral("Orders to enter")},
                                            {"iRecordFileKey", 0},
                                            {"iRecordKeyType", 1},
                                            {"iRecordSourceKey", 0},
                                            {"iRecordSourceType", 0}});
    const qint32 fileInstance = w.Add("tFileInstance", {{"iFileInstanceRecordKey", record},
                                                        {"sFileInstanceName", QStringLiteral("orders.dat")},
                                                        {"sFileInstanceDesc", QStringLiteral("Orders for the smoke test")},
                                                        {"dFileInstanceCreated", Stamp(2, 21, 11)},
                                                        {"dFileInstanceCreatedBy", QStringLiteral("Jane Smith")},
                                                        {"dFileInstanceModified", Stamp(3, 2, 16)},
                                                        {"dFileInstanceModifiedBy", QStringLiteral("Mark Brown")}});
    w.Set("tRecord", record, {{"iRecordFileInstanceKey", fileInstance}});
    w.Add("tField", {{"iFieldRecordKey", record},
                     {"sFieldName", QStringLiteral("Customer")},
                     {"sFieldDesc", QStringLiteral("Customer name")},
                     {"sFieldID", QStringLiteral("CUST")},
                     {"iFieldLen", 40},
                     {"iFieldFormat", 1},
                     {"iFieldKeyType", 1},
                     {"iFieldSequenceNum", 1},
                     {"iFieldVarKey", varCustomer},
                     {"iFieldVarAppVerKey", oe11}});
    w.Add("tField", {{"iFieldRecordKey", record},
                     {"sFieldName", QStringLiteral("Quantity")},
                     {"sFieldDesc", QStringLiteral("Items ordered")},
                     {"sFieldID", QStringLiteral("QTY")},
                     {"iFieldLen", 5},
                     {"iFieldFormat", 2},
                     {"iFieldKeyType", 0},
                     {"iFieldSequenceNum", 2},
                     {"iFieldVarKey", varQuantity},
                     {"iFieldVarAppVerKey", oe11}});

    // Order Entry 1.1 processes. Type 1 marks the start-up processes a
    // version can name.
    const qint32 pStart = AddProcess(w, {oe11, "Start Order Entry", "Starts the application", 1, mbrown, tester, 0, 0, 1});
    const qint32 pLogin = AddProcess(w, {oe11, "Login", "Logs in with the tutorial user", 1, jsmith, tester, reqLogin, 0, 2});
    const qint32 pLogout = AddProcess(w, {oe11, "Logout", "Leaves through the main menu", 1, jsmith, tester, 0, 0, 3});
    const qint32 pOrder = AddProcess(w, {oe11, "Create Order", "Enters one order from the record layout", 0, jsmith,
                                         tester, reqOrder, record, 4});

    qint32 sw = AddStepWindow(w, pStart, oe11, oeApp, environment, 1);
    AddStep(w, sw, 0, kActionCall, 1, QStringLiteral("Run=orderentry.exe"), "Start the program");

    sw = AddStepWindow(w, pLogin, oe11, oeLogin, environment, 1);
    AddStep(w, sw, oeUser, kActionType, 1, VariableRef(QStringLiteral("Text"), QStringLiteral("UserName"), oe11, varUser),
            "Type the user name");
    AddStep(w, sw, oePassword, kActionType, 2,
            VariableRef(QStringLiteral("Text"), QStringLiteral("Password"), oe11, varPassword), "Type the password");
    AddStep(w, sw, oeOk, kActionClick, 3, QString(), "Log in");

    sw = AddStepWindow(w, pLogout, oe11, oeMenu, environment, 1);
    AddStep(w, sw, oeExit, kActionClick, 1, QString(), "Leave the program");

    sw = AddStepWindow(w, pOrder, oe11, oeApp, environment, 1);
    AddStep(w, sw, 0, kActionCall, 1, ProcessCall(pLogin), "Log in first");
    sw = AddStepWindow(w, pOrder, oe11, oeMenu, environment, 2);
    AddStep(w, sw, oeNewOrder, kActionClick, 1, QString(), "Open a new order");
    sw = AddStepWindow(w, pOrder, oe11, oeOrder, environment, 3);
    AddStep(w, sw, oeCustomer, kActionSelect, 1,
            VariableRef(QStringLiteral("Item"), QStringLiteral("CustomerName"), oe11, varCustomer), "Choose the customer");
    AddStep(w, sw, oeQuantity, kActionType, 2,
            VariableRef(QStringLiteral("Text"), QStringLiteral("Quantity"), oe11, varQuantity) + QStringLiteral(";Clear=1"),
            "Type the quantity");
    AddStep(w, sw, oeSave, kActionClick, 3, QString(), "Save the order");

    w.Set("tVersion", oe11, {{"iVersionInitialWindow", oeLogin},
                             {"iVersionMainWindow", oeMenu},
                             {"iVersionLoadProcess", pStart},
                             {"iVersionLoginProcess", pLogin},
                             {"iVersionLogoutProcess", pLogout}});
    w.Set("tVersion", oe10, {{"iVersionInitialWindow", oe10Login}, {"iVersionMainWindow", oe10App}});

    // Customer Inquiry R5 processes.
    const qint32 pSignOn = AddProcess(w, {ciR5, "Sign On", "Signs on to the host region", 1, lchen, tester, 0, 0, 1});
    const qint32 pInquiry = AddProcess(w, {ciR5, "Customer Inquiry", "Finds a customer by number", 0, lchen, tester, ciReq, 0, 2});
    sw = AddStepWindow(w, pSignOn, ciR5, ciSignOn, environment, 1);
    AddStep(w, sw, ciUserId, kActionType, 1,
            VariableRef(QStringLiteral("Text"), QStringLiteral("HostUser"), ciR5, ciHostUser), "Type the user ID");
    AddStep(w, sw, ciPassword, kActionType, 2,
            VariableRef(QStringLiteral("Text"), QStringLiteral("HostPassword"), ciR5, ciHostPassword) +
                QStringLiteral(" Key=ENTER"),
            "Type the password and press Enter");
    sw = AddStepWindow(w, pInquiry, ciR5, ciSystem, environment, 1);
    AddStep(w, sw, 0, kActionCall, 1, ProcessCall(pSignOn), "Sign on first");
    sw = AddStepWindow(w, pInquiry, ciR5, ciSearch, environment, 2);
    AddStep(w, sw, ciCustNo, kActionType, 1,
            VariableRef(QStringLiteral("Text"), QStringLiteral("CustomerNumber"), ciR5, ciCustomer) + QStringLiteral(" Key=ENTER"),
            "Search by customer number");
    sw = AddStepWindow(w, pInquiry, ciR5, ciDetail, environment, 3);
    AddStep(w, sw, ciCustName, kActionVerify, 1, QStringLiteral("Text=Acme Tools"), "Check the name shown");
    w.Set("tVersion", ciR5, {{"iVersionInitialWindow", ciSignOn},
                             {"iVersionMainWindow", ciSearch},
                             {"iVersionLoginProcess", pSignOn}});

    // Cycles.
    const auto addCycle = [&](qint32 version, const char* name, const char* desc, qint32 creator, qint32 sequence) {
        return w.Add("tCycle", {{"iCycleVerKey", version},
                                {"sCycleName", QString::fromLatin1(name)},
                                {"mCycleDesc", QString::fromLatin1(desc)},
                                {"sCycleData", QStringLiteral(" ")},
                                {"iCycleCreatorKey", creator},
                                {"iCycleLastModifierKey", creator},
                                {"iCycleRoleKey", lead},
                                {"iCycleRecordKey", 0},
                                {"iCycleSequenceNum", sequence},
                                {"bCycleIsAutomated", kTrue},
                                {"dCycleCreateDate", Stamp(2, 22, 9)},
                                {"dCycleLastModifiedDate", Stamp(3, 3, 15)}});
    };
    const auto addCycleProcess = [&](qint32 cycle, qint32 process, qint32 recordKey, qint32 sequence) {
        w.Add("tCycleProcess", {{"iCycleKey", cycle},
                                {"iProcessKey", process},
                                {"iCycleProcessRecordKey", recordKey},
                                {"sCycleProcessData", QStringLiteral(" ")},
                                {"iProcessSequenceNum", sequence}});
    };
    const qint32 smoke = addCycle(oe11, "Daily Smoke", "Login, one order, logout", jsmith, 1);
    addCycleProcess(smoke, pLogin, 0, 1);
    addCycleProcess(smoke, pOrder, record, 2);
    addCycleProcess(smoke, pLogout, 0, 3);
    const qint32 hostCycle = addCycle(ciR5, "Host Inquiry", "Sign on and look up a customer", lchen, 1);
    addCycleProcess(hostCycle, pInquiry, 0, 1);

    // The environment's versions, users and schedule.
    w.Add("tEnvironmentDetail", {{"iEnvironKey", environment},
                                 {"iEnvironVerKey", oe11},
                                 {"iEnvironTestToolKey", 2},
                                 {"iEnviron3270Key", 0}});
    w.Add("tEnvironmentDetail", {{"iEnvironKey", environment},
                                 {"iEnvironVerKey", ciR5},
                                 {"iEnvironTestToolKey", 1},
                                 {"iEnviron3270Key", 1}});
    const auto addRights = [&](qint32 user, bool dorvane, bool vantrel, bool omrik, bool zulane, bool krestin) {
        w.Add("tEnvironmentUser", {{"iEnvironKey", environment},
                                   {"iUserKey", user},
                                   {"bDorvane", dorvane ? kTrue : kFalse},
                                   {"bVantrel", vantrel ? kTrue : kFalse},
                                   {"bOmrik", omrik ? kTrue : kFalse},
                                   {"bZulane", zulane ? kTrue : kFalse},
                                   {"bKrestin", krestin ? kTrue : kFalse}});
    };
    addRights(jsmith, true, true, true, true, true);
    addRights(mbrown, false, true, true, false, false);
    addRights(lchen, false, false, true, false, true);

    const qint32 nightly = w.Add("tSchedule", {{"iScheduleEnvironKey", environment},
                                               {"sScheduleName", QStringLiteral("Nightly Regression")},
                                               {"sScheduleDesc", QStringLiteral("Every night at 02:00")},
                                               {"iScheduleCreatorKey", jsmith},
                                               {"iScheduleLastModifierKey", mbrown},
                                               {"iScheduleStatus", 0},
                                               {"dScheduleCreateDate", Stamp(2, 25, 8)},
                                               {"dScheduleLastModifiedDate", Stamp(3, 4, 17)}});
    w.Add("tScheduleCycles", {{"iScheduleKey", nightly}, {"iCycleKey", smoke}, {"iCycleSequenceNum", 1}});
    w.Add("tScheduleCycles", {{"iScheduleKey", nightly}, {"iCycleKey", hostCycle}, {"iCycleSequenceNum", 2}});

    // Keywords of each application and what they are attached to.
    const auto addKeyword = [&](qint32 app, const char* name, const char* desc) {
        return w.Add("tKeyword", {{"iKeywordAppKey", app},
                                  {"sKeywordName", QString::fromLatin1(name)},
                                  {"sKeywordDesc", QString::fromLatin1(desc)}});
    };
    const auto relate = [&](qint32 keyword, qint32 process, qint32 cycle, qint32 schedule) {
        w.Add("tKeywordRel", {{"iKeywordRelKeywordKey", keyword},
                              {"iKeywordRelProcessKey", process},
                              {"iKeywordRelCycleKey", cycle},
                              {"iKeywordRelScheduleKey", schedule}});
    };
    const qint32 kwSmoke = addKeyword(orderEntry, "Smoke", "Quick check after each build");
    const qint32 kwOrders = addKeyword(orderEntry, "Orders", "Touches order data");
    const qint32 kwRegression = addKeyword(orderEntry, "Regression", "Part of the full regression");
    const qint32 kwHost = addKeyword(inquiry, "Host", "Needs the host region");
    addKeyword(webStore, "Checkout", "Payment pages");
    relate(kwSmoke, 0, smoke, 0);
    relate(kwOrders, pOrder, 0, 0);
    relate(kwRegression, 0, 0, nightly);
    relate(kwHost, pInquiry, 0, 0);
    relate(kwHost, 0, hostCycle, 0);
}

void BuildDatabase(Connection& connection, SchemaVariant variant, RepositoryContent content)
{
    Transaction transaction(connection);
    CreateSchemaTables(connection, variant);
    if (content != RepositoryContent::Empty)
        InsertReferenceData(connection);
    if (content == RepositoryContent::Tutorial)
        InsertTutorialData(connection);
    transaction.Commit();
}

InstallationFiles::InstallationFiles(const QString& exePath)
    : backupTemplate(exePath + QStringLiteral("\\ZentrixBackup.mdb")),
      userData(exePath + QStringLiteral("\\UserData.mdb")),
      tutorialRepository(exePath + QStringLiteral("\\Tutorial\\Database\\Tutorial.mdb")),
      tutorialTestData(exePath + QStringLiteral("\\Tutorial\\TestData.mdb")),
      tutorialUserData(exePath + QStringLiteral("\\Tutorial\\database\\UserData.mdb")),
      tutorialBackups(exePath + QStringLiteral("\\Tutorial\\Environments\\Backups"))
{
}

SetupResult CreateRepositoryFile(const QString& path, RepositoryContent content)
{
    const QString native = NativePath(path);
    if (QFileInfo::exists(native))
        return SetupResult::Failure(QStringLiteral("Cannot create the repository: %1 already exists.").arg(native));
    try {
        CreatedFiles files;
        files.CreateDatabase(native, SchemaVariant::Repository, content);
        files.Keep();
    } catch (const DbError& e) {
        return SetupResult::Failure(QStringLiteral("Could not create the repository %1: %2").arg(native, e.description()));
    }
    return SetupResult::Success();
}

SetupResult CreateRepositoryOnDataSource(const QString& dsn)
{
    // The name becomes part of a connection string; a separator in it
    // would add attributes of its own.
    if (dsn.isEmpty() || dsn.contains(u';') || dsn.contains(u'{') || dsn.contains(u'}'))
        return SetupResult::Failure(QStringLiteral("Not a data source name: '%1'").arg(dsn));
    try {
        Connection connection;
        connection.Open(QStringLiteral("PROVIDER=MSDASQL;DSN=") + dsn);
        BuildDatabase(connection, SchemaVariant::Repository, RepositoryContent::ReferenceData);
        connection.Close();
    } catch (const DbError& e) {
        return SetupResult::Failure(
            QStringLiteral("Could not create the repository on data source %1: %2").arg(dsn, e.description()));
    }
    return SetupResult::Success();
}

SetupResult CreateInstallation(const QString& exePathArgument)
{
    const QString exePath = AbsoluteFolder(exePathArgument);
    const InstallationFiles files(exePath);

    // Refuse before anything is created. The two user data paths differ
    // in folder; "database" and "Database" are one folder.
    for (const QString& path : {files.backupTemplate, files.userData, files.tutorialRepository, files.tutorialTestData,
                                files.tutorialUserData}) {
        const QString native = NativePath(path);
        if (QFileInfo::exists(native)) {
            return SetupResult::Failure(
                QStringLiteral("Cannot create the installation: %1 already exists.").arg(native));
        }
    }

    QString error;
    if (!MakeFolder(exePath + QStringLiteral("\\Tutorial\\Database"), error) || !MakeFolder(files.tutorialBackups, error))
        return SetupResult::Failure(error);

    const auto step = [](const QString& path) { return QStringLiteral("Could not create %1: ").arg(NativePath(path)); };
    CreatedFiles created;
    QString current;
    try {
        current = step(files.backupTemplate);
        created.CreateDatabase(NativePath(files.backupTemplate), SchemaVariant::BackupTemplate, RepositoryContent::Empty);
        current = step(files.userData);
        created.CreateEmptyFile(NativePath(files.userData));
        current = step(files.tutorialRepository);
        created.CreateDatabase(NativePath(files.tutorialRepository), SchemaVariant::Repository, RepositoryContent::Tutorial);
        current = step(files.tutorialTestData);
        created.CreateEmptyFile(NativePath(files.tutorialTestData));
        current = step(files.tutorialUserData);
        created.CreateEmptyFile(NativePath(files.tutorialUserData));

        // The tutorial's shared folder holds what its Saves look for: the
        // Apps folder and a folder per application and version.
        const QString apps = exePath + QStringLiteral("\\Tutorial\\Apps");
        current = step(apps);
        if (!MakeFolder(apps, error))
            throw DbError(error);
        Connection tutorial;
        tutorial.OpenFile(NativePath(files.tutorialRepository));
        for (Recordset version(QStringLiteral("SELECT a.sAppID, v.sVersionID FROM tApp a, tVersion v WHERE v.iVersionAppKey = a.iAppKey"),
                               tutorial);
             !version.Eof(); version.MoveNext()) {
            const QString folder = apps + u'\\' + version.Text(QStringLiteral("sAppID")) + u'\\' + version.Text(QStringLiteral("sVersionID"));
            if (!MakeFolder(folder + QStringLiteral("\\Primary Map Source"), error) ||
                !MakeFolder(folder + QStringLiteral("\\Secondary Map Source"), error))
                throw DbError(error);
        }
    } catch (const DbError& e) {
        return SetupResult::Failure(current + e.description());
    }
    created.Keep();
    return SetupResult::Success();
}

SetupResult CreateSharedFolder(const QString& pathArgument)
{
    const QString path = AbsoluteFolder(pathArgument);
    const QString testData = path + QStringLiteral("\\testdata.mdb");
    if (QFileInfo::exists(NativePath(testData)))
        return SetupResult::Failure(QStringLiteral("Cannot create the shared folder: %1 already exists.").arg(NativePath(testData)));

    QString error;
    if (!MakeFolder(path + QStringLiteral("\\Apps"), error) ||
        !MakeFolder(path + QStringLiteral("\\Environments\\Backups"), error))
        return SetupResult::Failure(error);
    try {
        Connection::CreateDatabaseFile(NativePath(testData));
    } catch (const DbError& e) {
        return SetupResult::Failure(QStringLiteral("Could not create %1: %2").arg(NativePath(testData), e.description()));
    }
    return SetupResult::Success();
}

} // namespace dorvane
