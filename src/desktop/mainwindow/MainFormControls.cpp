#include "desktop/mainwindow/MainFormControls.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMainWindow>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QTabWidget>
#include <QTableView>
#include <QVBoxLayout>

#include <algorithm>

namespace dorvane {

namespace {

template <typename W>
W* named(W* widget, const char* name, const char* toolTip = nullptr)
{
    widget->setObjectName(QString::fromLatin1(name));
    if (toolTip)
        widget->setToolTip(QString::fromUtf8(toolTip));
    return widget;
}

// The property that keeps a text box's limit for typing.
constexpr const char* kTypingLimit = "typingLimit";

// A text box whose length limit applies to typing only: a longer text
// shown by SetBoxText may be shortened, not lengthened, and the limit comes
// back once the text fits it.
QLineEdit* textBox(const char* name, int maxLength, const char* toolTip = nullptr)
{
    auto* box = named(new QLineEdit, name, toolTip);
    if (maxLength > 0) {
        box->setProperty(kTypingLimit, maxLength);
        box->setMaxLength(maxLength);
        QObject::connect(box, &QLineEdit::textChanged, box, [box, maxLength] {
            box->setMaxLength(std::max(maxLength, static_cast<int>(box->text().size())));
        });
    }
    return box;
}

QPushButton* button(const char* name, const char* caption, const char* toolTip = nullptr)
{
    auto* b = named(new QPushButton(QString::fromUtf8(caption)), name, toolTip);
    b->setAutoDefault(false);
    return b;
}

QComboBox* dropDown(const char* name, const char* toolTip = nullptr)
{
    auto* box = named(new QComboBox, name, toolTip);
    box->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    box->setMinimumContentsLength(18);
    return box;
}

QListWidget* listBox(const char* name, const char* toolTip = nullptr)
{
    auto* list = named(new QListWidget, name, toolTip);
    list->setSelectionMode(QAbstractItemView::SingleSelection);
    list->setMinimumWidth(200);
    // One line of text per entry: the view need not measure each of a
    // hundred thousand users to lay them out.
    list->setUniformItemSizes(true);
    return list;
}

QTableView* grid(const char* name)
{
    auto* view = named(new QTableView, name);
    view->setSelectionBehavior(QAbstractItemView::SelectRows);
    view->setSelectionMode(QAbstractItemView::SingleSelection);
    view->horizontalHeader()->setStretchLastSection(true);
    view->verticalHeader()->setDefaultSectionSize(22);
    view->setAlternatingRowColors(true);
    return view;
}

QGroupBox* frame(const QString& title, QLayout* layout)
{
    auto* box = new QGroupBox(title);
    box->setLayout(layout);
    return box;
}

QHBoxLayout* buttonRow(std::initializer_list<QPushButton*> buttons)
{
    auto* row = new QHBoxLayout;
    for (QPushButton* b : buttons)
        row->addWidget(b);
    row->addStretch(1);
    return row;
}

QWidget* listBeside(const QString& listTitle, QListWidget* list, QWidget* fields)
{
    auto* page = new QWidget;
    auto* layout = new QHBoxLayout(page);
    auto* listLayout = new QVBoxLayout;
    listLayout->addWidget(list);
    layout->addWidget(frame(listTitle, listLayout), 1);
    layout->addWidget(fields, 2);
    return page;
}

QWidget* usersPage(MainFormControls& c)
{
    c.lbUserList = listBox("lbUserList",
                           "This is the list of users registered with Zentrix - click on one to access that person's data.");
    c.txtUserID = textBox("txtUserID", 16, "Required - this is the ID that the user will log in with.");
    c.txtFirstName = textBox("txtFirstName", 25, "Required: user's first name (middle initial optional)");
    c.txtLastName = textBox("txtLastName", 25, "User lists are sorted alphabetically by last name");
    c.txtPassword = textBox("txtPassword", 12, "Required - password for logging in to Zentrix ");
    c.txtPassword->setEchoMode(QLineEdit::Password);
    c.txtVerifyPassword = textBox("txtVerifyPassword", 12, "Required - must be same as password field above.");
    c.txtVerifyPassword->setEchoMode(QLineEdit::Password);
    c.txtDepartment = textBox("txtDepartment", 32, "Optional - department the user works for.");
    c.txtEmail = textBox("txtEmail", 64, "Optional - enter the user's corporate or Internet email address");
    c.txtExtension = textBox("txtExtension", 14, "Optional - user's telephone number or internal extension");
    c.cmdUserNew = button("cmdUserNew", "&New", "Clear all input fields and prepare to add a new user");
    c.cmdUserSave = button("cmdUserSave", "&Save", "Save this user's data as shown.");
    c.cmdUserDelete = button("cmdUserDelete", "&Delete", "Delete this user from the Zentrix database.");
    c.cmdUserPrint = button("cmdUserPrint", "&Print", "Print the current users or all users.");

    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("User &ID:"), c.txtUserID);
    form->addRow(QStringLiteral("&First name:"), c.txtFirstName);
    form->addRow(QStringLiteral("&Last name:"), c.txtLastName);
    form->addRow(QStringLiteral("Pass&word:"), c.txtPassword);
    form->addRow(QStringLiteral("&Verify password:"), c.txtVerifyPassword);
    form->addRow(QStringLiteral("Depar&tment:"), c.txtDepartment);
    form->addRow(QStringLiteral("E&mail:"), c.txtEmail);
    form->addRow(QStringLiteral("E&xtension:"), c.txtExtension);
    for (int row = 0; row < form->rowCount(); ++row) {
        if (auto* label = qobject_cast<QLabel*>(form->itemAt(row, QFormLayout::LabelRole)->widget()))
            label->setBuddy(form->itemAt(row, QFormLayout::FieldRole)->widget());
    }
    auto* fields = new QVBoxLayout;
    fields->addLayout(form);
    fields->addStretch(1);
    fields->addLayout(buttonRow({c.cmdUserNew, c.cmdUserSave, c.cmdUserDelete, c.cmdUserPrint}));
    return listBeside(QStringLiteral("Registered Users"), c.lbUserList,
                      frame(QStringLiteral("Maintain User Information"), fields));
}

QWidget* gridPage(QTableView* view, std::initializer_list<QPushButton*> buttons)
{
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    layout->addWidget(view, 1);
    layout->addLayout(buttonRow(buttons));
    return page;
}

QWidget* optionsPage(MainFormControls& c)
{
    c.SSOptionsTab = named(new QTabWidget, "SSOptionsTab");

    c.TDBGridRoles = grid("TDBGridRoles");
    c.cmdRoleSave = button("cmdRoleSave", "&Save", "Save the roles as shown.");
    c.cmdRolePrint = button("cmdRolePrint", "&Print", "Print the list of roles.");
    auto* rolesLayout = new QVBoxLayout;
    rolesLayout->addWidget(gridPage(c.TDBGridRoles, {c.cmdRoleSave, c.cmdRolePrint}));
    c.grpUserRoles = named(frame(QStringLiteral("User Roles"), rolesLayout), "grpUserRoles");
    c.SSOptionsTab->addTab(c.grpUserRoles, QStringLiteral("&Roles"));

    c.TDBGridProjects = grid("TDBGridProjects");
    c.cmdProjectSave = button("cmdProjectSave", "&Save", "Save the projects as shown.");
    c.cmdProjectPrint = button("cmdProjectPrint", "&Print", "Print the list of projects.");
    auto* projectsLayout = new QVBoxLayout;
    projectsLayout->addWidget(gridPage(c.TDBGridProjects, {c.cmdProjectSave, c.cmdProjectPrint}));
    c.grpProjectIDs = named(frame(QStringLiteral("Project IDs"), projectsLayout), "grpProjectIDs");
    c.SSOptionsTab->addTab(c.grpProjectIDs, QStringLiteral("&Projects"));
    return c.SSOptionsTab;
}

QWidget* appDefinitionPage(MainFormControls& c)
{
    c.lbAppList = listBox("lbAppList",
                          "List of available applications - click on one to access that application's data.");
    c.txtAppName = textBox("txtAppName", 32,
                           "Required - use up to 32 characters to name this app - lists will be sorted by this name.");
    c.txtAppID = textBox("txtAppID", 12,
                         "Required - a 12 character abbreviation used to identify application variables and other data items.");
    c.txtAppDesc = textBox("txtAppDesc", 64, "Optional - up to 64 characters to describe this application.");
    c.txtAppEnviron = named(new QPlainTextEdit, "txtAppEnviron", "Optional - notes on this application's environment.");
    c.txtAppEnviron->setTabChangesFocus(true);
    c.cbPlatform = dropDown("cbPlatform", "Choose the execution platform used by this application");
    c.cbEmulator = dropDown("cbEmulator", "For Host platforms, choose the terminal emulator you are using.");
    c.cmdAppNew = button("cmdAppNew", "&New", "Clear the fields and prepare to add a new application");
    c.cmdAppSave = button("cmdAppSave", "&Save", "Save this application as shown.");
    c.cmdAppDelete = button("cmdAppDelete", "&Delete", "Delete this application with all its versions.");
    c.cmdAppPrint = button("cmdAppPrint", "&Print", "Print the list of applications.");

    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("&Name:"), c.txtAppName);
    form->addRow(QStringLiteral("&ID:"), c.txtAppID);
    form->addRow(QStringLiteral("D&escription:"), c.txtAppDesc);
    form->addRow(QStringLiteral("P&latform:"), c.cbPlatform);
    form->addRow(QStringLiteral("E&mulator:"), c.cbEmulator);
    form->addRow(QStringLiteral("En&vironment:"), c.txtAppEnviron);
    auto* fields = new QVBoxLayout;
    fields->addLayout(form, 1);
    fields->addLayout(buttonRow({c.cmdAppNew, c.cmdAppSave, c.cmdAppDelete, c.cmdAppPrint}));
    return listBeside(QStringLiteral("Applications"), c.lbAppList, frame(QStringLiteral("Application"), fields));
}

QWidget* versionsPage(MainFormControls& c)
{
    c.lbVersionList = listBox("lbVersionList", "Versions of this application - click on one to access its data.");
    c.txtVersionID = textBox("txtVersionID", 16, "Required - up to 16 characters to identify this version.");
    c.txtVersionDesc = textBox("txtVersionDesc", 255, "Optional - up to 255 characters to describe this version");
    c.cbVersionMapType = dropDown("cbVersionMapType", "Required - the source map type of this version");
    c.cbVersionLoadProcess = dropDown("cbVersionLoadProcess", "Optional - the state process used to load the application");
    c.cbVersionLoginProcess = dropDown("cbVersionLoginProcess", "Optional - the state process used to login to the application");
    c.cbVersionLogoutProcess =
        dropDown("cbVersionLogoutProcess", "Optional - the state process used to log out of the application");
    c.cbVersionTerminateProcess =
        dropDown("cbVersionTerminateProcess", "Optional - the state process used to terminate the application");
    c.cbVersionRecoverProcess = dropDown("cbVersionRecoverProcess", "Optional - the state process used to recover the application");
    c.cbVersionInitialWindow = dropDown("cbVersionInitialWindow", "Optional - the window the application starts in");
    c.cbVersionMainWindow = dropDown("cbVersionMainWindow", "Optional - the application's main window");
    c.cmdVersionNew = button("cmdVersionNew", "&New", "Clear the fields and prepare to add a new version");
    c.cmdVersionSave = button("cmdVersionSave", "&Save", "Save this version as shown.");
    c.cmdVersionSaveAs = button("cmdVersionSaveAs", "Save &As", "Save the fields shown as a further version of this application.");
    c.cmdVersionDelete = button("cmdVersionDelete", "&Delete", "Delete this version with all its contents.");
    c.cmdAttributes = button("cmdAttributes", "A&ttributes...", "List-handling attributes of a host version.");
    c.cmdVersionPrint = button("cmdVersionPrint", "&Print", "Print the list of versions.");

    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("Version &ID:"), c.txtVersionID);
    form->addRow(QStringLiteral("D&escription:"), c.txtVersionDesc);
    form->addRow(QStringLiteral("&Map type:"), c.cbVersionMapType);
    form->addRow(QStringLiteral("&Load process:"), c.cbVersionLoadProcess);
    form->addRow(QStringLiteral("Lo&gin process:"), c.cbVersionLoginProcess);
    form->addRow(QStringLiteral("Log&out process:"), c.cbVersionLogoutProcess);
    form->addRow(QStringLiteral("&Terminate process:"), c.cbVersionTerminateProcess);
    form->addRow(QStringLiteral("&Recover process:"), c.cbVersionRecoverProcess);
    form->addRow(QStringLiteral("I&nitial window:"), c.cbVersionInitialWindow);
    form->addRow(QStringLiteral("Main &window:"), c.cbVersionMainWindow);
    auto* fields = new QVBoxLayout;
    fields->addLayout(form);
    fields->addStretch(1);
    fields->addLayout(buttonRow({c.cmdVersionNew, c.cmdVersionSave, c.cmdVersionSaveAs, c.cmdVersionDelete,
                                 c.cmdAttributes, c.cmdVersionPrint}));
    return listBeside(QStringLiteral("Versions"), c.lbVersionList, frame(QStringLiteral("Version"), fields));
}

QWidget* keywordsPage(MainFormControls& c)
{
    c.TDBGridKeywords = grid("TDBGridKeywords");
    c.cmdKeywordSave = button("cmdKeywordSave", "&Save", "Save the keywords of this application as shown.");
    c.cmdExportKeywords = button("cmdExportKeywords", "E&xport...", "Write this application's keywords to a tab-delimited text file.");
    c.cmdImportKeywords = button("cmdImportKeywords", "&Import...", "Read keywords for this application from a tab-delimited text file.");
    c.cmdKeywordPrint = button("cmdKeywordPrint", "&Print", "Print this application's keywords.");
    return gridPage(c.TDBGridKeywords, {c.cmdKeywordSave, c.cmdExportKeywords, c.cmdImportKeywords, c.cmdKeywordPrint});
}

QWidget* applicationsPage(MainFormControls& c)
{
    c.SSAppTab = named(new QTabWidget, "SSAppTab");
    c.SSAppTab->addTab(appDefinitionPage(c), QStringLiteral("&Definition"));
    c.SSAppTab->addTab(versionsPage(c), QStringLiteral("&Versions"));
    c.SSAppTab->addTab(keywordsPage(c), QStringLiteral("&Keywords"));
    return c.SSAppTab;
}

QWidget* environDefinitionPage(MainFormControls& c)
{
    c.lbEnvironList = listBox("lbEnvironList", "List of test environments - click on one to access its data.");
    c.txtEnvironName = textBox("txtEnvironName", 32, "Required - up to 32 characters to name this environment");
    c.txtEnvironDesc = textBox("txtEnvironDesc", 255, "Optional - use up to 255 characters to describe this environment");
    c.cmdEnvironNew = button("cmdEnvironNew", "&New", "Clear all input fields and prepare to add a new environment");
    c.cmdEnvironSave = button("cmdEnvironSave", "&Save", "Save this environment's data as shown.");
    c.cmdEnvironSaveAs = button("cmdEnvironSaveAs", "Save &As", "Make a copy of this environment with a different name");
    c.cmdEnvironDelete = button("cmdEnvironDelete", "&Delete", "Delete this environment from the Zentrix database.");
    c.cmdEnvironBackup = button("cmdEnvironBackup", "&Backup", "Back this environment up into a dated database file.");
    c.cmdEnvironRestore = button("cmdEnvironRestore", "&Restore", "Restore this environment from one of its backups.");
    c.cmdEnvironPrint = button("cmdEnvironPrint", "&Print", "Print a list of environments");

    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("&Name:"), c.txtEnvironName);
    form->addRow(QStringLiteral("D&escription:"), c.txtEnvironDesc);
    auto* fields = new QVBoxLayout;
    fields->addLayout(form);
    fields->addStretch(1);
    fields->addLayout(buttonRow({c.cmdEnvironNew, c.cmdEnvironSave, c.cmdEnvironSaveAs, c.cmdEnvironDelete}));
    fields->addLayout(buttonRow({c.cmdEnvironBackup, c.cmdEnvironRestore, c.cmdEnvironPrint}));
    return listBeside(QStringLiteral("Environments"), c.lbEnvironList, frame(QStringLiteral("Environment"), fields));
}

QWidget* environConfigurationPage(MainFormControls& c)
{
    c.lbEnvironAppVerList = listBox("lbEnvironAppVerList",
                                    "Application versions in this environment - click on one to see its test tool and emulator.");
    c.cbEnvironApp = dropDown("cbEnvironApp", "Choose an application");
    c.cbEnvironVer = dropDown("cbEnvironVer", "Choose a version of the application");
    c.cbEnvironTestTool = dropDown("cbEnvironTestTool", "Choose the test tool used with this version");
    c.cbEnvironEmulator = dropDown("cbEnvironEmulator", "For Host platforms, choose the terminal emulator you are using.");
    c.cmdAddAppVer = button("cmdAddAppVer", "&Add >>", "Add the chosen version to this environment.");
    c.cmdRemoveAppVer = button("cmdRemoveAppVer", "<< &Remove", "Remove the highlighted version from this environment.");
    c.cmdUpdateAppVer = button("cmdUpdateAppVer", "&Update>>", "Update an existing version in this environment with a new one");
    c.cmdCopyAppVer = button("cmdCopyAppVer", "<< &Copy", "Create a new version in this environment that is a copy of a previous version");
    c.cmdEnvironConfigSave = button("cmdEnvironConfigSave", "&Save", "Save the configuration for this Environment");

    // The chosen version (left) and the environment's versions (right),
    // with the commands that move between them in the middle.
    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("A&pplication:"), c.cbEnvironApp);
    form->addRow(QStringLiteral("&Version:"), c.cbEnvironVer);
    form->addRow(QStringLiteral("&Test tool:"), c.cbEnvironTestTool);
    form->addRow(QStringLiteral("E&mulator:"), c.cbEnvironEmulator);
    auto* fields = new QVBoxLayout;
    fields->addLayout(form);
    fields->addStretch(1);
    fields->addLayout(buttonRow({c.cmdEnvironConfigSave}));

    auto* page = new QWidget;
    auto* layout = new QHBoxLayout(page);
    layout->addWidget(frame(QStringLiteral("Configuration"), fields), 1);
    auto* middle = new QVBoxLayout;
    middle->addStretch(1);
    for (QPushButton* b : {c.cmdAddAppVer, c.cmdRemoveAppVer, c.cmdUpdateAppVer, c.cmdCopyAppVer})
        middle->addWidget(b);
    middle->addStretch(1);
    layout->addLayout(middle);
    auto* listed = new QVBoxLayout;
    listed->addWidget(c.lbEnvironAppVerList);
    layout->addWidget(frame(QStringLiteral("Application Versions"), listed), 1);
    return page;
}

QWidget* environUsersPage(MainFormControls& c)
{
    c.lbEnvironUserList = listBox("lbEnvironUserList",
                                  "List of all users NOT registered for this app - to add one, click on the name and press Add.");
    c.lbEnvironUsers = listBox("lbEnvironUsers",
                               "List of all users authorized for this app - click on one to set their Zentrix access rights.");
    c.cmdAddEnvironUser = button("cmdAddEnvironUser", "&Add >>",
                                 "Add the highlighted user on the left to the list of registered users for this app.");
    c.cmdRemoveEnvironUser = button("cmdRemoveEnvironUser", "<< &Remove",
                                    "Remove the highlighted user on the right from the list of authorized users.");
    c.ckDorvane = named(new QCheckBox(QStringLiteral("Dorvane")), "ckDorvane");
    c.ckOmrik = named(new QCheckBox(QStringLiteral("Omrik")), "ckOmrik");
    c.ckZulane = named(new QCheckBox(QStringLiteral("Zulane")), "ckZulane");
    c.ckVantrel = named(new QCheckBox(QStringLiteral("Vantrel")), "ckVantrel");
    c.ckKrestin = named(new QCheckBox(QStringLiteral("Krestin")), "ckKrestin");

    auto* page = new QWidget;
    auto* layout = new QHBoxLayout(page);
    auto* registered = new QVBoxLayout;
    registered->addWidget(c.lbEnvironUserList);
    layout->addWidget(frame(QStringLiteral("Registered Users"), registered), 1);
    auto* middle = new QVBoxLayout;
    middle->addStretch(1);
    middle->addWidget(c.cmdAddEnvironUser);
    middle->addWidget(c.cmdRemoveEnvironUser);
    middle->addStretch(1);
    layout->addLayout(middle);
    auto* authorized = new QVBoxLayout;
    authorized->addWidget(c.lbEnvironUsers);
    layout->addWidget(frame(QStringLiteral("Authorized Users"), authorized), 1);
    auto* rights = new QVBoxLayout;
    for (QCheckBox* box : {c.ckDorvane, c.ckOmrik, c.ckZulane, c.ckVantrel, c.ckKrestin})
        rights->addWidget(box);
    rights->addStretch(1);
    layout->addWidget(frame(QStringLiteral("Zentrix Access Rights"), rights));
    return page;
}

QWidget* environmentsPage(MainFormControls& c)
{
    c.SSEnvironTab = named(new QTabWidget, "SSEnvironTab");
    c.SSEnvironTab->addTab(environDefinitionPage(c), QStringLiteral("&Definition"));
    c.SSEnvironTab->addTab(environConfigurationPage(c), QStringLiteral("&Configuration"));
    c.SSEnvironTab->addTab(environUsersPage(c), QStringLiteral("&Users"));
    return c.SSEnvironTab;
}

QWidget* withExitButton(MainFormControls& c, QWidget* content)
{
    const int index = c.cmdExit.size();
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    // On a small screen the page scrolls; its Exit button stays in view.
    auto* scroll = new QScrollArea;
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidget(content);
    layout->addWidget(scroll, 1);
    auto* exit = button("", "E&xit", "Leave Dorvane");
    exit->setObjectName(QStringLiteral("cmdExit_%1").arg(index));
    exit->setProperty("index", index);
    c.cmdExit.append(exit);
    auto* row = new QHBoxLayout;
    row->addStretch(1);
    row->addWidget(exit);
    layout->addLayout(row);
    return page;
}

} // namespace

void SetBoxText(QLineEdit* box, const QString& text)
{
    const int limit = box->property(kTypingLimit).toInt();
    if (limit > 0)
        box->setMaxLength(std::max(limit, static_cast<int>(text.size())));
    box->setText(text);
}

void BuildMainFormControls(QMainWindow* window, MainFormControls& c)
{
    c.SSMainTab = named(new QTabWidget, "SSMainTab");
    c.SSMainTab->addTab(withExitButton(c, usersPage(c)), QStringLiteral("Users"));
    c.SSMainTab->addTab(withExitButton(c, optionsPage(c)), QStringLiteral("Options"));
    c.SSMainTab->addTab(withExitButton(c, applicationsPage(c)), QStringLiteral("Applications"));
    c.SSMainTab->addTab(withExitButton(c, environmentsPage(c)), QStringLiteral("Environments"));
    window->setCentralWidget(c.SSMainTab);
}

} // namespace dorvane
