#pragma once

// Drives widgets as a person does, for the tests of the main window.

#include "desktop/mainwindow/frmMainForm.h"

#include <gtest/gtest.h>

#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QTabWidget>
#include <QTest>

#include <type_traits>

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

// The texts of a list's entries, a drop-down's entries or a tab bar's captions.
template <typename Widget>
QStringList Items(const Widget* widget)
{
    QStringList texts;
    for (int i = 0; i < widget->count(); ++i) {
        if constexpr (std::is_same_v<Widget, QListWidget>)
            texts << widget->item(i)->text();
        else if constexpr (std::is_same_v<Widget, QComboBox>)
            texts << widget->itemText(i);
        else
            texts << widget->tabText(i);
    }
    return texts;
}

} // namespace dorvane::test
