#pragma once

#include "ui_frmNewVersionID.h"

#include <QDialog>

#include <functional>

class QPushButton;

namespace dorvane {

// Asks for the ID of a version that is about to be created. OK hands the
// typed text to the check, which shows its own message when the ID will
// not do; the window then stays open with the text as typed. Cancel (or
// closing the window) leaves the cancelled flag set.
class frmNewVersionID : public QDialog, public Ui::frmNewVersionID {
    Q_OBJECT
public:
    using IdCheck = std::function<bool(const QString& id)>;

    frmNewVersionID(const QString& prompt, IdCheck okCheck, QWidget* parent = nullptr);

    bool Accepted() const { return m_accepted; }
    bool Cancelled() const { return m_cancelled; }
    // The text of txtNewVersionID.
    QString VersionID() const;

    QPushButton* cmdOK = nullptr;
    QPushButton* cmdCancel = nullptr;

    void cmdOK_Click();
    void cmdCancel_Click();

protected:
    void reject() override;

private:
    IdCheck m_okCheck;
    bool m_accepted = false;
    bool m_cancelled = false;
};

} // namespace dorvane
