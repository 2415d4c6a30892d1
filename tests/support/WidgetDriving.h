#pragma once

// Drives widgets as a person does, for the tests of the main window.

#include "mainwindow/frmMainForm.h"

#include <gtest/gtest.h>

#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QTabWidget>
#include <QTest>

namespace dorvane::test {

// Replaces the text of a box by typing: select all, then type.
inline void Retype(QLineEdit* box, const QString& text)
{
    box->selectAll();
    if (text.isEmpty())
        QTest::keyClick(box, Qt::Key_Backspace);
    else
        QTest::keyClicks(box, text);
}

// Chooses the drop-down entry with this text, as a click on it does.
inline void Choose(QComboBox* combo, const QString& text)
{
    const int index = combo->findText(text);
    ASSERT_GE(index, 0) << text.toStdString() << " not in " << combo->objectName().toStdString();
    combo->setCurrentIndex(index);
    emit combo->activated(index);
}

// Clicks the list entry with this text.
inline void Select(QListWidget* list, const QString& text)
{
    const int row = FindItemByText(list, text);
    ASSERT_GE(row, 0) << text.toStdString() << " not in " << list->objectName().toStdString();
    list->setCurrentRow(row);
}

inline QStringList Items(const QListWidget* list)
{
    QStringList texts;
    for (int i = 0; i < list->count(); ++i)
        texts << list->item(i)->text();
    return texts;
}

inline QStringList Items(const QComboBox* combo)
{
    QStringList texts;
    for (int i = 0; i < combo->count(); ++i)
        texts << combo->itemText(i);
    return texts;
}

inline QStringList Items(const QTabWidget* tabs)
{
    QStringList captions;
    for (int i = 0; i < tabs->count(); ++i)
        captions << tabs->tabText(i);
    return captions;
}

} // namespace dorvane::test
