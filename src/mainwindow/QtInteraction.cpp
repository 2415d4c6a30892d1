#include "mainwindow/QtInteraction.h"

#include <QApplication>
#include <QMessageBox>

namespace dorvane {

Answer QtMessages::Show(const QString& text, Buttons buttons)
{
    QMessageBox box(m_parent);
    box.setWindowTitle(kProgramTitle);
    box.setText(text);
    switch (buttons) {
    case Buttons::Ok:
        box.setIcon(QMessageBox::Information);
        box.setStandardButtons(QMessageBox::Ok);
        break;
    case Buttons::YesNo:
        box.setIcon(QMessageBox::Question);
        box.setStandardButtons(QMessageBox::Yes | QMessageBox::No);
        box.setDefaultButton(QMessageBox::Yes);
        break;
    case Buttons::YesNoCancel:
        box.setIcon(QMessageBox::Question);
        box.setStandardButtons(QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel);
        box.setDefaultButton(QMessageBox::Yes);
        break;
    }
    switch (box.exec()) {
    case QMessageBox::Yes: return Answer::Yes;
    case QMessageBox::No: return Answer::No;
    case QMessageBox::Cancel: return Answer::Cancel;
    default: break;
    }
    // Escape on a Yes/No box means No; on a Yes/No/Cancel box, Cancel.
    if (buttons == Buttons::YesNo)
        return Answer::No;
    if (buttons == Buttons::YesNoCancel)
        return Answer::Cancel;
    return Answer::Ok;
}

void QtBusyIndicator::Begin()
{
    QApplication::setOverrideCursor(Qt::WaitCursor);
}

void QtBusyIndicator::End()
{
    QApplication::restoreOverrideCursor();
}

} // namespace dorvane
