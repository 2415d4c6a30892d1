#include "desktop/environments/frmNewVersionID.h"

#include "desktop/mainwindow/DialogProvider.h"

#include <QPushButton>

namespace dorvane {

frmNewVersionID::frmNewVersionID(const QString& prompt, IdCheck okCheck, QWidget* parent)
    : QDialog(parent), m_okCheck(std::move(okCheck))
{
    setupUi(this);
    lblPrompt->setText(prompt);
    cmdOK = NamedButton(buttons, QDialogButtonBox::Ok, "cmdOK", QStringLiteral("OK"));
    cmdOK->setDefault(true);
    cmdCancel = NamedButton(buttons, QDialogButtonBox::Cancel, "cmdCancel", QStringLiteral("Cancel"));
    connect(cmdOK, &QPushButton::clicked, this, &frmNewVersionID::cmdOK_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &frmNewVersionID::cmdCancel_Click);
    resize(380, sizeHint().height());
}

QString frmNewVersionID::VersionID() const { return txtNewVersionID->text(); }

void frmNewVersionID::cmdOK_Click()
{
    if (!m_okCheck(txtNewVersionID->text())) {
        txtNewVersionID->setFocus();
        return;
    }
    m_accepted = true;
    accept();
}

void frmNewVersionID::cmdCancel_Click()
{
    m_cancelled = true;
    QDialog::reject();
}

void frmNewVersionID::reject()
{
    // Escape and the title bar's close button count as Cancel.
    cmdCancel_Click();
}

} // namespace dorvane
