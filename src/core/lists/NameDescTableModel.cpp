#include "core/lists/NameDescTableModel.h"

namespace dorvane {

namespace {

// The description an added row gets when none was typed with it.
const QString kMissingDescription = QStringLiteral(" ");

} // namespace

NameDescTableModel::NameDescTableModel(clsNameDescPair& list, QObject* parent)
    : QAbstractTableModel(parent), m_list(list)
{
}

void NameDescTableModel::SetCaptions(const QString& nameCaption, const QString& descriptionCaption)
{
    m_nameCaption = nameCaption;
    m_descriptionCaption = descriptionCaption;
    emit headerDataChanged(Qt::Horizontal, 0, 1);
}

void NameDescTableModel::Refetch()
{
    beginResetModel();
    endResetModel();
}

int NameDescTableModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : m_list.Count() + 1;
}

int NameDescTableModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : 2; }

QVariant NameDescTableModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || (role != Qt::DisplayRole && role != Qt::EditRole))
        return QVariant();
    if (IsAddingRow(index.row()))
        return QString();
    return m_list.GetValue(index.row(), index.column());
}

QVariant NameDescTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (role != Qt::DisplayRole)
        return QVariant();
    if (orientation == Qt::Horizontal) {
        if (section == clsNameDescPair::NameField)
            return m_nameCaption;
        if (section == clsNameDescPair::DescriptionField)
            return m_descriptionCaption;
        return QVariant();
    }
    // The adding row is marked as grids mark it; the others carry no number.
    return IsAddingRow(section) ? QVariant(QStringLiteral("*")) : QVariant(QString());
}

Qt::ItemFlags NameDescTableModel::flags(const QModelIndex& index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsEditable;
}

bool NameDescTableModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (!index.isValid() || role != Qt::EditRole || index.row() > AddingRow())
        return false;

    const int row = index.row();
    const int column = index.column();
    const QString text = value.toString();

    // A view commits its editor also when nothing was typed; a cell whose
    // text did not change is no edit (nor is leaving the adding row empty).
    if (text == data(index, Qt::EditRole).toString())
        return !IsAddingRow(row);
    emit changed();

    if (IsAddingRow(row)) {
        // A row is added by its name: a description typed first on the
        // adding row is checked as a row with an empty name.
        const QString name = column == clsNameDescPair::NameField ? text : QString();
        const QString description = column == clsNameDescPair::DescriptionField ? text : kMissingDescription;
        if (m_nameCheck && !m_nameCheck(row, name))
            return false;
        // The adding row becomes the new row, and a new adding row appears
        // below it: the cell being edited stays on the row typed into, so
        // that Tab goes on to its description.
        beginInsertRows(QModelIndex(), row + 1, row + 1);
        m_list.Add(name, description, 0, true);
        endInsertRows();
        emit dataChanged(this->index(row, 0), this->index(row, columnCount() - 1), {Qt::DisplayRole, Qt::EditRole});
        return true;
    }

    if (column == clsNameDescPair::NameField && m_nameCheck && !m_nameCheck(row, text))
        return false;
    m_list.SetValue(row, column, text);
    emit dataChanged(index, index, {Qt::DisplayRole, Qt::EditRole});
    return true;
}

} // namespace dorvane
