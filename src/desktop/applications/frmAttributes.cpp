#include "desktop/applications/frmAttributes.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace dorvane {

frmAttributes::frmAttributes(const ListAttributes& shown, MessageSink& messages, QWidget* parent)
    : QDialog(parent), m_messages(messages), m_values(shown)
{
    setObjectName(QStringLiteral("frmAttributes"));
    setWindowTitle(QStringLiteral("List Handling Attributes"));
    setModal(true);

    txtNextPageLine = new QLineEdit(this);
    txtNextPageLine->setObjectName(QStringLiteral("txtNextPageLine"));
    txtNextPageLine->setToolTip(QStringLiteral("The screen line that shows whether more rows follow."));
    txtNextPageIndicator = new QLineEdit(this);
    txtNextPageIndicator->setObjectName(QStringLiteral("txtNextPageIndicator"));
    txtNextPageIndicator->setToolTip(QStringLiteral("The text on that line that says more rows follow, e.g. More..."));
    // The names keep their order; a key typed in is accepted as well, so
    // that a stored key outside the list shows and stays as it is.
    cbNextPageKey = new QComboBox(this);
    cbNextPageKey->setObjectName(QStringLiteral("cbNextPageKey"));
    cbNextPageKey->setEditable(true);
    cbNextPageKey->setInsertPolicy(QComboBox::NoInsert);
    cbNextPageKey->setMaxVisibleItems(20);
    cbNextPageKey->addItems(NextPageKeyNames());
    cbNextPageKey->setToolTip(QStringLiteral("The key that shows the next page of the list."));

    txtNextPageLine->setText(shown.NextPageLine);
    txtNextPageIndicator->setText(shown.NextPageIndicator);
    cbNextPageKey->setCurrentIndex(cbNextPageKey->findText(shown.NextPageKey, Qt::MatchExactly));
    cbNextPageKey->setEditText(shown.NextPageKey);

    cmdOK = new QPushButton(QStringLiteral("OK"), this);
    cmdOK->setObjectName(QStringLiteral("cmdOK"));
    cmdOK->setDefault(true);
    cmdCancel = new QPushButton(QStringLiteral("Cancel"), this);
    cmdCancel->setObjectName(QStringLiteral("cmdCancel"));
    auto* buttons = new QDialogButtonBox(this);
    buttons->addButton(cmdOK, QDialogButtonBox::AcceptRole);
    buttons->addButton(cmdCancel, QDialogButtonBox::RejectRole);
    connect(cmdOK, &QPushButton::clicked, this, &frmAttributes::cmdOK_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &frmAttributes::cmdCancel_Click);

    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("Next Page &Line:"), txtNextPageLine);
    form->addRow(QStringLiteral("Next Page &Indicator:"), txtNextPageIndicator);
    form->addRow(QStringLiteral("Next Page &Key:"), cbNextPageKey);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(buttons);
    setTabOrder(txtNextPageLine, txtNextPageIndicator);
    setTabOrder(txtNextPageIndicator, cbNextPageKey);
    setTabOrder(cbNextPageKey, cmdOK);
    setTabOrder(cmdOK, cmdCancel);
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
