#include "desktop/mainwindow/QtInteraction.h"

#include <QApplication>
#include <QDate>
#include <QFileInfo>
#include <QLocale>
#include <QMessageBox>
#include <QPrintPreviewDialog>
#include <QPrinter>
#include <QProcess>
#include <QRect>
#include <QScreen>
#include <QTextDocument>

#include <algorithm>

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

bool QtProgramLauncher::StartDetached(const QString& program)
{
    return QProcess::startDetached(program, {}, QFileInfo(program).absolutePath());
}

QString QtReportPrinter::ReportHtml(const QString& title, const QStringList& headers, const QVector<QStringList>& rows)
{
    QString html = QStringLiteral("<html><body><h2>") + title.toHtmlEscaped() + QStringLiteral("</h2><p>") +
                   QLocale().toString(QDate::currentDate(), QLocale::LongFormat).toHtmlEscaped() +
                   QStringLiteral("</p><table border=\"1\" cellspacing=\"0\" cellpadding=\"4\" width=\"100%\"><tr>");
    for (const QString& header : headers)
        html += QStringLiteral("<th align=\"left\">") + header.toHtmlEscaped() + QStringLiteral("</th>");
    html += QStringLiteral("</tr>");
    for (const QStringList& row : rows) {
        html += QStringLiteral("<tr>");
        for (const QString& cell : row)
            html += QStringLiteral("<td>") + cell.toHtmlEscaped() + QStringLiteral("</td>");
        html += QStringLiteral("</tr>");
    }
    html += QStringLiteral("</table><p>") + QString::number(rows.size()) + QStringLiteral(" entries</p></body></html>");
    return html;
}

void QtReportPrinter::Preview(const QString& title, const QStringList& headers, const QVector<QStringList>& rows)
{
    QTextDocument document;
    document.setHtml(ReportHtml(title, headers, rows));
    QPrinter printer(QPrinter::HighResolution);
    printer.setDocName(title);
    QPrintPreviewDialog preview(&printer, m_parent);
    preview.setWindowTitle(title);
    QObject::connect(&preview, &QPrintPreviewDialog::paintRequested, &preview,
                     [&document](QPrinter* target) { document.print(target); });
    preview.exec();
}

QRect FitInto(const QRect& frame, const QRect& available)
{
    QRect fitted = frame;
    fitted.setWidth(std::min(frame.width(), available.width()));
    fitted.setHeight(std::min(frame.height(), available.height()));
    fitted.moveLeft(std::clamp(fitted.left(), available.left(), available.right() - fitted.width() + 1));
    fitted.moveTop(std::clamp(fitted.top(), available.top(), available.bottom() - fitted.height() + 1));
    return fitted;
}

void KeepInsideScreen(QWidget& window)
{
    const QScreen* screen = window.screen();
    if (!screen)
        return;
    const QRect frame = window.frameGeometry();
    const QRect fitted = FitInto(frame, screen->availableGeometry());
    if (fitted == frame)
        return;
    // The frame's decorations stay around the smaller client area.
    window.resize(window.size() - (frame.size() - fitted.size()));
    window.move(fitted.topLeft());
}

} // namespace dorvane
