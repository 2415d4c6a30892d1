#include "desktop/applications/frmAttributes.h"

#include "desktop/mainwindow/DialogProvider.h"

#include <QPushButton>

namespace dorvane {

frmAttributes::frmAttributes(const ListAttributes& shown, MessageSink& messages, QWidget* parent)
    : QDialog(parent), m_messages(messages), m_values(shown)
{
    setupUi(this);
    cmdOK = NamedButton(buttons, QDialogButtonBox::Ok, "cmdOK", QStringLiteral("OK"));
    cmdOK->setDefault(true);
    cmdCancel = NamedButton(buttons, QDialogButtonBox::Cancel, "cmdCancel", QStringLiteral("Cancel"));
    connect(cmdOK, &QPushButton::clicked, this, &frmAttributes::cmdOK_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &frmAttributes::cmdCancel_Click);

    // The names keep their order; a key typed in is accepted as well, so
    // that a stored key outside the list shows and stays as it is.
    cbNextPageKey->addItems(NextPageKeyNames());
    txtNextPageLine->setText(shown.NextPageLine);
    txtNextPageIndicator->setText(shown.NextPageIndicator);
    cbNextPageKey->setCurrentIndex(cbNextPageKey->findText(shown.NextPageKey, Qt::MatchExactly));
    cbNextPageKey->setEditText(shown.NextPageKey);
    resize(420, sizeHint().height());
}

void frmAttributes::cmdOK_Click()
{
    const ListAttributes typed{txtNextPageLine->text(), txtNextPageIndicator->text(), cbNextPageKey->currentText()};
    const QString field = CheckListAttributes(typed, m_messages);
    if (!field.isEmpty()) {
        if (auto* widget = findChild<QWidget*>(field))
            widget->setFocus();
        return;
    }
    m_values = typed;
    m_cancelled = false;
    accept();
}

void frmAttributes::cmdCancel_Click()
{
    m_cancelled = true;
    reject();
}

} // namespace dorvane
