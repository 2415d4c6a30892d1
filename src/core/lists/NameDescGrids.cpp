#include "core/lists/NameDescGrids.h"

#include "core/repository/Connection.h"
#include "core/repository/Globals.h"
#include "core/repository/Interaction.h"
#include "core/repository/Recordset.h"

namespace dorvane {

namespace {

constexpr int NameField = clsNameDescPair::NameField;
constexpr int DescriptionField = clsNameDescPair::DescriptionField;
constexpr int KeyField = clsNameDescPair::KeyField;

NameDescGridInfo makeInfo(NameDescGridKind kind, const char* grid, const char* table, const char* nameColumn,
                          const char* descriptionColumn, const char* keyColumn, const char* nameCaption,
                          const char* blankName, const char* singular, const char* plural)
{
    NameDescGridInfo info;
    info.kind = kind;
    info.gridName = QString::fromLatin1(grid);
    info.table = QString::fromLatin1(table);
    info.nameColumn = QString::fromLatin1(nameColumn);
    info.descriptionColumn = QString::fromLatin1(descriptionColumn);
    info.keyColumn = QString::fromLatin1(keyColumn);
    info.nameCaption = QString::fromLatin1(nameCaption);
    info.descriptionCaption = QStringLiteral("Description");
    info.blankNameMessage = QString::fromLatin1(blankName);
    info.removeErrorPrefix = QStringLiteral("Error removing %1: ").arg(QString::fromLatin1(singular));
    info.saveErrorPrefix = QStringLiteral("Error while saving %1: ").arg(QString::fromLatin1(plural));
    info.readErrorPrefix = QStringLiteral("Error while reading %1: ").arg(QString::fromLatin1(plural));
    info.savePrompt = QStringLiteral("Save changes to %1?").arg(QString::fromLatin1(plural));
    return info;
}

// The list's texts as stored: an empty text stays the empty text, never
// Null (the data layer binds a null QString as Null).
QVariant cellText(const QString& text)
{
    return text.isNull() ? QVariant(QStringLiteral("")) : QVariant(text);
}

} // namespace

const NameDescGridInfo& GridInfo(NameDescGridKind kind)
{
    static const NameDescGridInfo roles =
        makeInfo(NameDescGridKind::Roles, "TDBGridRoles", "tRole", "sRoleName", "sRoleDesc", "iRoleKey", "Role",
                 "Role name cannot be blank", "Role", "Roles");
    static const NameDescGridInfo projects =
        makeInfo(NameDescGridKind::Projects, "TDBGridProjects", "tProject", "sProjectName", "sProjectDesc",
                 "iProjectKey", "Project", "Project name cannot be blank", "Project", "Projects");
    static const NameDescGridInfo keywords =
        makeInfo(NameDescGridKind::Keywords, "TDBGridKeywords", "tKeyword", "sKeywordName", "sKeywordDesc",
                 "iKeywordKey", "Keyword", "Keyword cannot be blank", "Keyword", "Keywords");
    switch (kind) {
    case NameDescGridKind::Roles:
        return roles;
    case NameDescGridKind::Projects:
        return projects;
    case NameDescGridKind::Keywords:
        break;
    }
    return keywords;
}

NameDescGrid::NameDescGrid(NameDescGridKind kind, MessageSink& messages)
    : m_info(&GridInfo(kind)), m_model(std::make_unique<NameDescTableModel>(m_list))
{
    m_model->SetCaptions(m_info->nameCaption, m_info->descriptionCaption);
    m_model->SetNameCheck([this, &messages](int row, const QString& name) { return CheckName(row, name, messages); });
    QObject::connect(m_model.get(), &NameDescTableModel::changed, m_model.get(), [this] { m_dirty = true; });
}

NameDescGrid::~NameDescGrid() = default;

bool NameDescGrid::Refresh(Connection& connection, MessageSink& messages, qint32 appKey)
{
    m_list.Clear();
    bool ok = true;
    try {
        QString sql;
        switch (m_info->kind) {
        case NameDescGridKind::Roles:
            sql = QStringLiteral("SELECT * FROM tRole ORDER BY sRoleName");
            break;
        case NameDescGridKind::Projects:
            sql = QStringLiteral("SELECT * FROM tProject ORDER BY sProjectName");
            break;
        case NameDescGridKind::Keywords:
            sql = QStringLiteral("SELECT * FROM tKeyword WHERE iKeywordAppKey = ") + QString::number(appKey) +
                  QStringLiteral(" ORDER BY ") + QStringLiteral("sKeywordName");
            break;
        }
        Recordset rs(sql, connection);
        for (; !rs.Eof(); rs.MoveNext())
            m_list.Add(rs.Text(m_info->nameColumn), rs.Text(m_info->descriptionColumn), rs.Int(m_info->keyColumn),
                       false);
    } catch (const DbError& e) {
        messages.Inform(m_info->readErrorPrefix + e.description());
        ok = false;
    }
    m_model->Refetch();
    return ok;
}

bool NameDescGrid::CheckName(int index, const QString& name, MessageSink& messages) const
{
    if (name.isEmpty()) {
        messages.Inform(m_info->blankNameMessage);
        return false;
    }
    if (!m_list.IsUnique(name, index)) {
        messages.Inform(name + QStringLiteral(" already exists!"));
        return false;
    }
    return true;
}

QString NameDescGrid::deleteLookupSql(int index) const
{
    if (m_info->kind == NameDescGridKind::Projects) {
        // This lookup names no table, so the database refuses it and a
        // stored project is never deleted from the grid: the attempt ends
        // in "Error removing Project: " with the database's reason and the
        // project stays. That is the intended rule for projects: the
        // administrator may add and rename them here, and drop one that was
        // added but not yet saved, but a project in the repository stays.
        // Do not "repair" the statement.
        return QStringLiteral("SELECT * FROM sProjectName = '") + QuoteSql(m_list.GetValue(index, NameField)) +
               QStringLiteral("'");
    }
    // The row the grid shows, by its key: a name may stand for another
    // application's keyword, or for another row in another letter case.
    return rowSql(index);
}

bool NameDescGrid::DeleteRow(int index, Connection& connection, MessageSink& messages)
{
    if (index < 0 || index >= m_list.Count())
        return false;
    try {
        if (!m_list.IsNew(index)) {
            Recordset found(deleteLookupSql(index), connection);
            // Run the lookup before anything else, so that a statement the
            // database refuses fails with the database's own reason.
            found.Eof();
            if (m_info->kind == NameDescGridKind::Keywords) {
                Recordset uses(QStringLiteral("SELECT * FROM tKeywordRel WHERE iKeywordRelKeywordKey = ") +
                                   m_list.GetValue(index, KeyField),
                               connection);
                if (CountRecords(&uses) > 0) {
                    messages.Inform(QStringLiteral("You can't delete this keyword because it is being used"));
                    m_model->Refetch();
                    return false;
                }
            }
            // A row deleted elsewhere since fails here, and the entry stays.
            found.Delete();
        }
    } catch (const DbError& e) {
        messages.Inform(m_info->removeErrorPrefix + e.description());
        return false;
    }
    m_list.Remove(index);
    m_model->Refetch();
    return true;
}

QString NameDescGrid::addSetSql(int index, qint32 appKey) const
{
    switch (m_info->kind) {
    case NameDescGridKind::Roles:
        return QStringLiteral("SELECT * FROM tRole");
    case NameDescGridKind::Projects:
        // A new entry's key is 0, so this selects no row.
        return QStringLiteral("SELECT * FROM tProject WHERE iProjectKey=") +
               m_list.GetValue(index, KeyField);
    case NameDescGridKind::Keywords:
        break;
    }
    return QStringLiteral("SELECT * FROM tKeyword WHERE iKeywordAppKey = ") + QString::number(appKey) +
           QStringLiteral(" ORDER BY sKeywordName");
}

QString NameDescGrid::rowSql(int index) const
{
    return QStringLiteral("SELECT * FROM %1 WHERE %2=").arg(m_info->table, m_info->keyColumn) +
           m_list.GetValue(index, KeyField);
}

GridSaveOutcome NameDescGrid::Save(Connection& connection, MessageSink& messages, qint32 appKey)
{
    GridSaveOutcome outcome;
    try {
        for (int i = 0; i < m_list.Count(); ++i) {
            if (m_list.IsNew(i)) {
                Recordset rs(addSetSql(i, appKey), connection);
                rs.AddNew();
                rs.SetValue(m_info->nameColumn, cellText(m_list.GetValue(i, NameField)));
                rs.SetValue(m_info->descriptionColumn, cellText(m_list.GetValue(i, DescriptionField)));
                if (m_info->kind == NameDescGridKind::Keywords)
                    rs.SetValue(QStringLiteral("iKeywordAppKey"), appKey);
                rs.Update();
                // The entry is a stored row from here on, also when a later
                // row fails: it keeps the key it was given.
                m_list.SetValue(i, KeyField, QString::number(rs.Int(m_info->keyColumn)));
            } else if (m_list.IsDirty(i)) {
                Recordset rs(rowSql(i), connection);
                rs.SetValue(m_info->nameColumn, cellText(m_list.GetValue(i, NameField)));
                rs.SetValue(m_info->descriptionColumn, cellText(m_list.GetValue(i, DescriptionField)));
                rs.Update();
            }
            m_list.Initialize(i);
        }
    } catch (const DbError& e) {
        messages.Inform(m_info->saveErrorPrefix + e.description());
        return outcome;
    }
    m_dirty = false;
    outcome.SaveOk = true;
    // Reading the table again shows the rows in name order.
    Refresh(connection, messages, appKey);
    return outcome;
}

bool NameDescGrid::ExitCancel(Connection& connection, MessageSink& messages, qint32 appKey)
{
    if (!m_dirty)
        return false;
    switch (messages.Show(m_info->savePrompt, Buttons::YesNoCancel)) {
    case Answer::Cancel:
        return true;
    case Answer::Yes:
        return !Save(connection, messages, appKey).SaveOk;
    default:
        return false;
    }
}

bool RefreshRoleGrid(NameDescGrid& grid, Connection& connection, MessageSink& messages)
{
    return grid.Refresh(connection, messages);
}

bool RefreshProjectGrid(NameDescGrid& grid, Connection& connection, MessageSink& messages)
{
    return grid.Refresh(connection, messages);
}

bool RefreshKeywordGrid(NameDescGrid& grid, Connection& connection, MessageSink& messages, qint32 appKey)
{
    return grid.Refresh(connection, messages, appKey);
}

} // namespace dorvane
