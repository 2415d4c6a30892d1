#include "core/copyengine/OperationPreview.h"

#include "core/repository/Connection.h"
#include "core/repository/Dialect.h"
#include "core/repository/DbError.h"
#include "core/repository/Recordset.h"

#include <QLocale>
#include <QSqlError>
#include <QSqlQuery>

#include <algorithm>

namespace dorvane {

namespace {

QString num(qint32 key) { return QString::number(key); }

// The number one statement of the schema's own text counts.
qint64 countOf(Connection& db, const QString& sql)
{
    QSqlQuery query(db.database());
    query.setForwardOnly(true);
    if (!query.exec(db.dialect().Translate(sql)) || !query.next())
        throw db.StatementFailure(query.lastError());
    return query.value(0).toLongLong();
}

qint64 countWhere(Connection& db, const QString& table, const QString& condition)
{
    return countOf(db, QStringLiteral("SELECT COUNT(*) FROM %1 WHERE %2").arg(table, condition));
}

// A version's application name and ID, as its deletion and copy name it.
OperationPreview::Version versionNamed(Connection& db, qint32 versionKey)
{
    Recordset version(QStringLiteral("SELECT v.sVersionID, a.sAppName FROM tVersion v LEFT JOIN tApp a ON "
                                     "a.iAppKey = v.iVersionAppKey WHERE v.iVersionKey = ") +
                          num(versionKey),
                      db);
    if (version.Eof())
        return {};
    return {version.Text(QStringLiteral("sAppName")), version.Text(QStringLiteral("sVersionID")), 0};
}

// The versions an environment lists, in the order of its list.
std::vector<qint32> listedVersions(Connection& db, qint32 environmentKey)
{
    std::vector<qint32> keys;
    Recordset details(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey = ") + num(environmentKey), db);
    for (; !details.Eof(); details.MoveNext())
        keys.push_back(details.Int(QStringLiteral("iEnvironVerKey")));
    return keys;
}

// One version of a preview, its content rows counted into the whole.
void addVersion(OperationPreview& preview, Connection& db, qint32 versionKey, const RowCounts& content,
                bool countedInWhole)
{
    OperationPreview::Version version = versionNamed(db, versionKey);
    version.rows = TotalRows(content);
    preview.versions.push_back(version);
    if (countedInWhole)
        AddRows(preview.rows, content);
}

} // namespace

void AddRows(RowCounts& counts, const QString& table, qint64 rows)
{
    for (TableRows& entry : counts) {
        if (entry.table.compare(table, Qt::CaseInsensitive) == 0) {
            entry.rows += rows;
            return;
        }
    }
    counts.push_back({table, rows});
}

void AddRows(RowCounts& counts, const RowCounts& more)
{
    for (const TableRows& entry : more)
        AddRows(counts, entry.table, entry.rows);
}

qint64 TotalRows(const RowCounts& counts)
{
    qint64 total = 0;
    for (const TableRows& entry : counts)
        total += entry.rows;
    return total;
}

RowCounts CountContentRows(Connection& db, const std::vector<ContentDeletion>& parts)
{
    // The parts of one table joined by OR, in the order tables come first.
    std::vector<std::pair<QString, QStringList>> byTable;
    for (const ContentDeletion& part : parts) {
        auto it = std::find_if(byTable.begin(), byTable.end(),
                               [&](const auto& entry) { return entry.first.compare(part.table, Qt::CaseInsensitive) == 0; });
        if (it == byTable.end())
            it = byTable.insert(byTable.end(), {part.table, {}});
        it->second << QLatin1Char('(') + part.condition + QLatin1Char(')');
    }
    RowCounts counts;
    for (const auto& [table, conditions] : byTable)
        counts.push_back({table, countWhere(db, table, conditions.join(QStringLiteral(" OR ")))});
    return counts;
}

RowCounts CopiedVersionRows(Connection& db, qint32 versionKey)
{
    return CountContentRows(db, CopiedVersionContent(versionKey, db.backend()));
}

RowCounts VersionContentRows(Connection& db, qint32 versionKey)
{
    return CountContentRows(db, ClearVersionContentStatements(versionKey, db.backend()));
}

QString RowsText(qint64 rows)
{
    return QLocale::c().toString(rows) +
           (rows == 1 ? QStringLiteral(" row") : QStringLiteral(" rows"));
}

QStringList OperationPreview::Lines() const
{
    QStringList lines;
    for (const Version& version : versions)
        lines << QStringLiteral("version\t%1\t%2\t%3").arg(version.application, version.version).arg(version.rows);
    for (const TableRows& entry : rows) {
        if (entry.rows > 0)
            lines << QStringLiteral("rows\t%1\t%2").arg(entry.table).arg(entry.rows);
    }
    lines << QStringLiteral("total\t%1").arg(TotalRows(rows));
    return lines;
}

QString OperationPreview::Text() const
{
    QStringList lines;
    for (const Version& version : versions)
        lines << QStringLiteral("%1 %2: %3").arg(version.application, version.version, RowsText(version.rows));
    QStringList tables;
    for (const TableRows& entry : rows) {
        if (entry.rows > 0)
            tables << QStringLiteral("%1 %2").arg(entry.table, QLocale::c().toString(entry.rows));
    }
    QString all = QStringLiteral("In all: ") + RowsText(TotalRows(rows));
    if (!tables.isEmpty())
        all += QStringLiteral(" (") + tables.join(QStringLiteral(", ")) + QLatin1Char(')');
    lines << all;
    return lines.join(QLatin1Char('\n'));
}

OperationPreview PreviewVersionDeletion(Connection& repository, qint32 versionKey)
{
    OperationPreview preview;
    RowCounts content = CountContentRows(repository, DeleteVersionContentsStatements(versionKey, repository.backend()));
    AddRows(content, QStringLiteral("tVersion"), countWhere(repository, QStringLiteral("tVersion"),
                                                            QStringLiteral("iVersionKey = ") + num(versionKey)));
    addVersion(preview, repository, versionKey, content, true);
    return preview;
}

OperationPreview PreviewApplicationDeletion(Connection& repository, qint32 appKey)
{
    OperationPreview preview;
    Recordset versions(QStringLiteral("SELECT * FROM tVersion WHERE iVersionAppKey=") + num(appKey), repository);
    for (; !versions.Eof(); versions.MoveNext()) {
        const OperationPreview one = PreviewVersionDeletion(repository, versions.Int(QStringLiteral("iVersionKey")));
        preview.versions.insert(preview.versions.end(), one.versions.begin(), one.versions.end());
        AddRows(preview.rows, one.rows);
    }
    AddRows(preview.rows, QStringLiteral("tApp"),
            countWhere(repository, QStringLiteral("tApp"), QStringLiteral("iAppKey = ") + num(appKey)));
    return preview;
}

OperationPreview PreviewEnvironmentCopy(Connection& repository, qint32 environmentKey)
{
    OperationPreview preview;
    const QString ofEnvironment = QStringLiteral("iEnvironKey = ") + num(environmentKey);
    AddRows(preview.rows, QStringLiteral("tEnvironment"), 1);
    AddRows(preview.rows, QStringLiteral("tEnvironmentUser"),
            countWhere(repository, QStringLiteral("tEnvironmentUser"), ofEnvironment));
    AddRows(preview.rows, QStringLiteral("tEnvironmentDetail"),
            countWhere(repository, QStringLiteral("tEnvironmentDetail"), ofEnvironment));
    for (const qint32 versionKey : listedVersions(repository, environmentKey)) {
        RowCounts content{{QStringLiteral("tVersion"), 1}};
        AddRows(content, CopiedVersionRows(repository, versionKey));
        addVersion(preview, repository, versionKey, content, true);
    }
    // The schedules, as a restore's preparation finds them below the
    // environment.
    AddRows(preview.rows, CountContentRows(repository, PrepareForRestoreStatements(environmentKey, false, repository.backend())));
    const QString layouts = QStringLiteral("SELECT iRecordKey FROM tRecord WHERE iRecordEnvironmentKey = ") + num(environmentKey);
    AddRows(preview.rows, QStringLiteral("tRecord"),
            countWhere(repository, QStringLiteral("tRecord"), QStringLiteral("iRecordEnvironmentKey = ") + num(environmentKey)));
    AddRows(preview.rows, QStringLiteral("tField"),
            countWhere(repository, QStringLiteral("tField"), QStringLiteral("iFieldRecordKey IN (%1)").arg(layouts)));
    AddRows(preview.rows, QStringLiteral("tFileInstance"),
            countWhere(repository, QStringLiteral("tFileInstance"),
                       QStringLiteral("iFileInstanceRecordKey IN (%1)").arg(layouts)));
    return preview;
}

OperationPreview PreviewEnvironmentDeletion(Connection& repository, qint32 environmentKey)
{
    OperationPreview preview;
    const QString ofEnvironment = QStringLiteral("iEnvironKey = ") + num(environmentKey);
    for (const qint32 versionKey : listedVersions(repository, environmentKey))
        addVersion(preview, repository, versionKey, VersionContentRows(repository, versionKey), false);
    AddRows(preview.rows, QStringLiteral("tEnvironment"),
            countWhere(repository, QStringLiteral("tEnvironment"), QStringLiteral("iEnvironmentKey = ") + num(environmentKey)));
    AddRows(preview.rows, QStringLiteral("tEnvironmentDetail"),
            countWhere(repository, QStringLiteral("tEnvironmentDetail"), ofEnvironment));
    AddRows(preview.rows, QStringLiteral("tEnvironmentUser"),
            countWhere(repository, QStringLiteral("tEnvironmentUser"), ofEnvironment));
    return preview;
}

} // namespace dorvane
