#pragma once

#include "core/lists/clsNameDescPair.h"

#include <QAbstractTableModel>
#include <QString>

#include <functional>

namespace dorvane {

// The table model behind the roles, projects and keywords grids: two
// columns (0 the name, 1 the description) over a clsNameDescPair that the
// model does not own. A row is the entry's index in the list.
//
// Below the last entry there is always one empty row for adding: a name
// typed there appends a new entry (key 0, new) whose description is a
// single blank " " until one is typed. Every other edit is stored with
// SetValue, which marks the entry dirty.
//
// Every edit that changes a cell's text emits changed() first, whether or
// not it is then accepted, as a grid reports a change while the user
// types: the owner sets its dirty flag from it. A commit of the text the
// cell already holds is no edit. Names (and the name of a row that is
// being added) go through the name check before they are stored; a check
// that fails cancels the edit.
class NameDescTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    // Returns whether `name` may be stored in row `row` (the adding row is
    // row Count()); it shows its own messages.
    using NameCheck = std::function<bool(int row, const QString& name)>;

    explicit NameDescTableModel(clsNameDescPair& list, QObject* parent = nullptr);

    void SetCaptions(const QString& nameCaption, const QString& descriptionCaption);
    void SetNameCheck(NameCheck check) { m_nameCheck = std::move(check); }

    // The row for adding: Count() of the list.
    int AddingRow() const { return m_list.Count(); }
    bool IsAddingRow(int row) const { return row == AddingRow(); }

    // Makes the view fetch every row again, after the list was changed
    // behind the model's back (reload, delete).
    void Refetch();

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;

signals:
    // The grid's change event: the user edited a cell.
    void changed();

private:
    clsNameDescPair& m_list;
    NameCheck m_nameCheck;
    QString m_nameCaption = QStringLiteral("Name");
    QString m_descriptionCaption = QStringLiteral("Description");
};

} // namespace dorvane
