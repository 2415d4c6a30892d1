// The list-handling attributes of the version shown on the Versions tab.

#include "core/applications/VersionAttributes.h"
#include "desktop/mainwindow/frmMainForm.h"
#include "core/startup/Startup.h"

#include <QPushButton>

namespace dorvane {

void frmMainForm::connectAttributes()
{
    connect(c.cmdAttributes, &QPushButton::clicked, this, &frmMainForm::cmdAttributes_Click);
}

void frmMainForm::cmdAttributes_Click()
{
    SetVersionAttributes(m_session.repository, m_messages, CurrentVersionKey,
                         [this](const ListAttributes& shown) { return dialogs().ListHandlingAttributes(shown); });
}

} // namespace dorvane
