#include "desktop/environments/frmNewVersionID.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace dorvane {

frmNewVersionID::frmNewVersionID(const QString& prompt, IdCheck okCheck, QWidget* parent)
    : QDialog(parent), m_okCheck(std::move(okCheck))
{
    setObjectName(QStringLiteral("frmNewVersionID"));
    setWindowTitle(QStringLiteral("New Version ID"));
    setModal(true);

    lblPrompt = new QLabel(prompt, this);
    lblPrompt->setObjectName(QStringLiteral("lblPrompt"));
    lblPrompt->setWordWrap(true);
    txtNewVersionID = new QLineEdit(this);
    txtNewVersionID->setObjectName(QStringLiteral("txtNewVersionID"));
    // As long as a version ID typed on the version page.
    txtNewVersionID->setMaxLength(16);
    lblPrompt->setBuddy(txtNewVersionID);

    cmdOK = new QPushButton(QStringLiteral("OK"), this);
    cmdOK->setObjectName(QStringLiteral("cmdOK"));
    cmdOK->setDefault(true);
    cmdCancel = new QPushButton(QStringLiteral("Cancel"), this);
    cmdCancel->setObjectName(QStringLiteral("cmdCancel"));
    auto* buttons = new QDialogButtonBox(this);
    buttons->addButton(cmdOK, QDialogButtonBox::AcceptRole);
    buttons->addButton(cmdCancel, QDialogButtonBox::RejectRole);
    connect(cmdOK, &QPushButton::clicked, this, &frmNewVersionID::cmdOK_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &frmNewVersionID::cmdCancel_Click);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(lblPrompt);
    layout->addWidget(txtNewVersionID);
    layout->addWidget(buttons);
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
