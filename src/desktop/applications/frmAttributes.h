#pragma once

#include "core/applications/VersionAttributes.h"
#include "ui_frmAttributes.h"

#include <QDialog>

class QPushButton;

namespace dorvane {

class MessageSink;

// "List Handling Attributes": the next-page line, indicator text and key of
// a host version. OK checks the three values and hands them back; Cancel
// (or closing the window) leaves the cancelled flag set.
class frmAttributes : public QDialog, public Ui::frmAttributes {
    Q_OBJECT
public:
    frmAttributes(const ListAttributes& shown, MessageSink& messages, QWidget* parent = nullptr);

    bool Cancelled() const { return m_cancelled; }
    // The values as OK handed them back.
    const ListAttributes& Values() const { return m_values; }

    QPushButton* cmdOK = nullptr;
    QPushButton* cmdCancel = nullptr;

    void cmdOK_Click();
    void cmdCancel_Click();

private:
    MessageSink& m_messages;
    ListAttributes m_values;
    bool m_cancelled = true;
};

} // namespace dorvane
