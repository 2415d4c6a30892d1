#pragma once

// The list boxes, drop-downs and text boxes of the main window's pages:
// finding entries by key or text, filling them from list queries, and the
// text boxes' typing limits.

#include "core/lists/ListQueries.h"

#include <optional>

class QComboBox;
class QLineEdit;
class QListWidget;
class QWidget;

namespace dorvane {

class MessageSink;

// Index of the first entry whose item data equals key, or -1.
int FindListItem(qint32 key, const QListWidget* list);
int FindComboItem(qint32 key, const QComboBox* combo);
// Index of the first entry whose text equals text exactly, or -1.
int FindItemByText(const QListWidget* list, const QString& text);
// The key of an entry, or 0 without a selection.
qint32 ItemKey(const QListWidget* list, int index);
qint32 ComboKey(const QComboBox* combo, int index);
// The key of a drop-down's selection; nothing without a selection.
std::optional<qint32> SelectedKey(const QComboBox* combo);

// Appends the entries, each with its key as item data.
void FillList(QListWidget* list, const ListEntries& entries);
void FillCombo(QComboBox* combo, const ListEntries& entries);

// Takes what one loader's query read into `entries`. A failure is shown
// as "Error while refreshing LIST list : " and the description, and keeps
// the entries read before it; false then.
bool LoadEntries(MessageSink& messages, const QString& list, ListEntries& entries, ListRead read);

// The length limits that a form gives its text boxes apply to typing only:
// a longer text shown by SetBoxText may be shortened, not lengthened, and
// the limit comes back once the text fits it.
void KeepTypingLimits(QWidget* form);

// Shows a text in a text box whole, also one longer than the box lets a
// user type: the suite's other modules may store longer values, and a Save
// writes back what the box holds.
void SetBoxText(QLineEdit* box, const QString& text);

} // namespace dorvane
