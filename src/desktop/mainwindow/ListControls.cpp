#include "desktop/mainwindow/ListControls.h"

#include "core/repository/DbError.h"
#include "core/repository/Interaction.h"

#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QSignalBlocker>
#include <QStringList>

#include <algorithm>

namespace dorvane {

namespace {

// The property that keeps a text box's limit for typing.
constexpr const char* kTypingLimit = "typingLimit";
// A QLineEdit's maxLength when nothing limits it.
constexpr int kUnlimited = 32767;

} // namespace

int FindListItem(qint32 key, const QListWidget* list)
{
    for (int i = 0; i < list->count(); ++i) {
        if (list->item(i)->data(Qt::UserRole).toInt() == key)
            return i;
    }
    return -1;
}

int FindComboItem(qint32 key, const QComboBox* combo)
{
    for (int i = 0; i < combo->count(); ++i) {
        if (combo->itemData(i).toInt() == key)
            return i;
    }
    return -1;
}

int FindItemByText(const QListWidget* list, const QString& text)
{
    for (int i = 0; i < list->count(); ++i) {
        if (list->item(i)->text() == text)
            return i;
    }
    return -1;
}

qint32 ItemKey(const QListWidget* list, int index)
{
    if (index < 0 || index >= list->count())
        return 0;
    return list->item(index)->data(Qt::UserRole).toInt();
}

qint32 ComboKey(const QComboBox* combo, int index)
{
    if (index < 0 || index >= combo->count())
        return 0;
    return combo->itemData(index).toInt();
}

std::optional<qint32> SelectedKey(const QComboBox* combo)
{
    if (combo->currentIndex() < 0)
        return std::nullopt;
    return ComboKey(combo, combo->currentIndex());
}

void FillList(QListWidget* list, const ListEntries& entries)
{
    // A repository may hold a hundred thousand users: the entries go in as
    // one insertion, and their keys are set without telling the view about
    // each (a key is never shown).
    QStringList texts;
    texts.reserve(entries.size());
    for (const ListEntry& entry : entries)
        texts << entry.text;
    const int first = list->count();
    list->addItems(texts);
    const QSignalBlocker quiet(list->model());
    for (qsizetype i = 0; i < entries.size(); ++i)
        list->item(first + int(i))->setData(Qt::UserRole, entries[i].key);
}

void FillCombo(QComboBox* combo, const ListEntries& entries)
{
    for (const ListEntry& entry : entries)
        combo->addItem(entry.text, entry.key);
}

bool LoadEntries(MessageSink& messages, const QString& list, ListEntries& entries, ListRead read)
{
    entries = std::move(read.entries);
    if (read.error)
        messages.Inform(QStringLiteral("Error while refreshing %1 list : ").arg(list) + read.error->description());
    return !read.error;
}

void KeepTypingLimits(QWidget* form)
{
    for (QLineEdit* box : form->findChildren<QLineEdit*>()) {
        const int limit = box->maxLength();
        if (limit >= kUnlimited)
            continue;
        box->setProperty(kTypingLimit, limit);
        QObject::connect(box, &QLineEdit::textChanged, box, [box, limit] {
            box->setMaxLength(std::max(limit, static_cast<int>(box->text().size())));
        });
    }
}

void SetBoxText(QLineEdit* box, const QString& text)
{
    const int limit = box->property(kTypingLimit).toInt();
    if (limit > 0)
        box->setMaxLength(std::max(limit, static_cast<int>(text.size())));
    box->setText(text);
}

} // namespace dorvane
