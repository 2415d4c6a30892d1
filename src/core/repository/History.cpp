#include "core/repository/History.h"

#include "core/repository/Dialect.h"
#include "core/repository/Interruption.h"
#include "core/repository/SchemaDdl.h"

#include <QCoreApplication>
#include <QScopeGuard>
#include <QSqlQuery>
#include <QSysInfo>

#include <algorithm>
#include <exception>

#include <pwd.h>
#include <unistd.h>

namespace dorvane {

namespace {

QString& program()
{
    static QString name;
    return name;
}

bool& recording()
{
    static bool on = true;
    return on;
}

constexpr int kTroubledLockWaitMs = 1000;

// The record that CountWrittenRows adds to: the innermost one alive.
HistoryRecord* current = nullptr;

QString systemUser()
{
    // The account the process runs as, also where no login set $USER (a
    // systemd service, cron).
    if (const passwd* entry = getpwuid(geteuid()))
        return QString::fromLocal8Bit(entry->pw_name);
    return qEnvironmentVariable("USER");
}

const QString kColumns = QStringLiteral(
    "dHistoryWhen, sHistoryUser, sHistoryHost, sHistoryProgram, sHistoryOperation, sHistoryEnvironment, "
    "sHistorySubject, sHistoryOutcome, mHistoryMessage, iHistoryRows, iHistoryDurationMs");

QSqlQuery prepared(Connection& connection, const QString& sql)
{
    QSqlQuery query(connection.database());
    query.setForwardOnly(true);
    if (!query.prepare(sql))
        throw connection.StatementFailure(query.lastError());
    return query;
}

} // namespace

QString HistoryOperationName(HistoryOperation operation)
{
    switch (operation) {
    case HistoryOperation::UpdateVersion: return QStringLiteral("update-version");
    case HistoryOperation::CopyVersion: return QStringLiteral("copy-version");
    case HistoryOperation::CopyEnvironment: return QStringLiteral("copy-environment");
    case HistoryOperation::Backup: return QStringLiteral("backup");
    case HistoryOperation::Restore: return QStringLiteral("restore");
    case HistoryOperation::ImportKeywords: return QStringLiteral("import-keywords");
    case HistoryOperation::DeleteApplication: return QStringLiteral("delete-application");
    case HistoryOperation::DeleteVersion: return QStringLiteral("delete-version");
    case HistoryOperation::DeleteEnvironment: return QStringLiteral("delete-environment");
    }
    return QString();
}

QString HistoryOutcomeName(HistoryOutcome outcome)
{
    switch (outcome) {
    case HistoryOutcome::Done: return QStringLiteral("done");
    case HistoryOutcome::Failed: return QStringLiteral("failed");
    case HistoryOutcome::Refused: return QStringLiteral("refused");
    case HistoryOutcome::Interrupted: return QStringLiteral("interrupted");
    }
    return QString();
}

void SetHistoryProgram(const QString& name) { program() = name; }

void SetHistoryRecording(bool on) { recording() = on; }

void CountWrittenRows(qint64 rows)
{
    if (current && rows > 0)
        current->AddRows(rows);
}

HistoryRecord::HistoryRecord(MessageSink& messages, QString connectionString, HistoryOperation operation,
                             QString environment, QString subject)
    : m_messages(messages), m_connectionString(std::move(connectionString)), m_operation(operation),
      m_environment(std::move(environment)), m_subject(std::move(subject)),
      m_started(QDateTime::currentDateTimeUtc()), m_exceptions(std::uncaught_exceptions()),
      m_outer(std::exchange(current, this))
{
    m_clock.start();
}

HistoryRecord::~HistoryRecord()
{
    current = m_outer;
    write();
}

Answer HistoryRecord::Show(const QString& text, Buttons buttons)
{
    const Answer answer = m_messages.Show(text, buttons);
    m_shown = true;
    m_declined = buttons != Buttons::Ok && answer != Answer::Yes;
    if (buttons == Buttons::Ok)
        m_lastMessage = text;
    return answer;
}

void HistoryRecord::write() noexcept
{
    if (!recording())
        return;
    HistoryOutcome outcome = HistoryOutcome::Failed;
    if (m_done)
        outcome = HistoryOutcome::Done;
    else if (InterruptionRequested())
        outcome = HistoryOutcome::Interrupted;
    else if (std::uncaught_exceptions() <= m_exceptions && (m_declined || !m_shown))
        return;
    else if (m_refused)
        outcome = HistoryOutcome::Refused;

    // The entry is written even when the run was interrupted: the request
    // stands again afterwards.
    const bool interrupted = InterruptionRequested();
    ClearInterruption();
    try {
        // An operation that failed or was stopped may have met another
        // program's write: its entry waits for it a second at most.
        const bool troubled = outcome == HistoryOutcome::Failed || outcome == HistoryOutcome::Interrupted;
        const int lockWait = LockWaitMs();
        if (troubled)
            SetLockWaitMs(std::min(lockWait, kTroubledLockWaitMs));
        const auto restoreLockWait = qScopeGuard([lockWait] { SetLockWaitMs(lockWait); });
        // A connection opened by path (a side database's way) names its file alone.
        Connection connection;
        if (ConnectionDataSource(m_connectionString).name.isEmpty())
            connection.OpenFile(m_connectionString);
        else
            connection.Open(m_connectionString);
        if (m_environmentKey) {
            QSqlQuery name = prepared(connection, QStringLiteral("SELECT sEnvironmentName FROM tEnvironment WHERE "
                                                                 "iEnvironmentKey = ?"));
            name.addBindValue(*m_environmentKey);
            if (name.exec() && name.next())
                m_environment = name.value(0).toString();
        }
        const QString appName = program().isEmpty() ? QCoreApplication::applicationName() : program();
        QSqlQuery insert(connection.database());
        insert.prepare(QStringLiteral("INSERT INTO %1 (%2) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)").arg(kHistoryTable, kColumns));
        // Whole seconds sort and compare alike on every backend.
        QDateTime when = m_started;
        when.setTime(QTime(when.time().hour(), when.time().minute(), when.time().second()));
        for (const QVariant& value :
             {QVariant(when), QVariant(systemUser()), QVariant(QSysInfo::machineHostName()), QVariant(appName),
              QVariant(HistoryOperationName(m_operation)), QVariant(m_environment), QVariant(m_subject),
              QVariant(HistoryOutcomeName(outcome)),
              QVariant(outcome == HistoryOutcome::Failed || outcome == HistoryOutcome::Refused ? m_lastMessage : QString()),
              // What an operation that did not go through wrote was rolled back.
              m_rows && outcome == HistoryOutcome::Done ? QVariant(*m_rows) : QVariant(QMetaType(QMetaType::LongLong)),
              QVariant(m_clock.elapsed())})
            insert.addBindValue(value);
        if (!insert.exec()) {
            const DbError failure = connection.StatementFailure(insert.lastError());
            // A repository not yet upgraded keeps no history; its note said so.
            if (HistoryTableExists(connection))
                throw failure;
        }
    } catch (const DbError& e) {
        // The operation's own message has said what went wrong with the
        // repository; one that went through hears of a lost entry.
        if (outcome != HistoryOutcome::Done && outcome != HistoryOutcome::Refused) {
            if (interrupted)
                RequestInterruption();
            return;
        }
        try {
            m_messages.Show(QStringLiteral("The operation's entry in the history could not be written: ") +
                                e.description(),
                            Buttons::Ok);
        } catch (...) {
            // The operation's outcome stands; nothing more can be said.
        }
    } catch (...) {
    }
    if (interrupted)
        RequestInterruption();
}

std::vector<HistoryEntry> ReadHistory(Connection& connection, const HistoryFilter& filter)
{
    QString sql = QStringLiteral("SELECT %1 FROM %2 WHERE 1 = 1").arg(kColumns, kHistoryTable);
    QVariantList values;
    if (filter.since) {
        sql += QStringLiteral(" AND dHistoryWhen >= ?");
        values << QDateTime(*filter.since, QTime(0, 0), Qt::UTC);
    }
    if (filter.environment) {
        sql += QStringLiteral(" AND sHistoryEnvironment = ?");
        values << *filter.environment;
    }
    sql += QStringLiteral(" ORDER BY dHistoryWhen DESC, iHistoryKey DESC");
    if (filter.limit)
        sql += QStringLiteral(" LIMIT ") + QString::number(*filter.limit);
    QSqlQuery query = prepared(connection, sql);
    for (const QVariant& value : values)
        query.addBindValue(value);
    if (!query.exec())
        throw connection.StatementFailure(query.lastError());
    std::vector<HistoryEntry> entries;
    while (query.next()) {
        HistoryEntry entry;
        // SQLite keeps the time as ISO text, a server as a timestamp: both
        // hold UTC.
        const QVariant when = query.value(0);
        const QDateTime read = when.typeId() == QMetaType::QString ? QDateTime::fromString(when.toString(), Qt::ISODate)
                                                                   : when.toDateTime();
        entry.when = QDateTime(read.date(), read.time(), Qt::UTC);
        entry.user = query.value(1).toString();
        entry.host = query.value(2).toString();
        entry.program = query.value(3).toString();
        entry.operation = query.value(4).toString();
        entry.environment = query.value(5).toString();
        entry.subject = query.value(6).toString();
        entry.outcome = query.value(7).toString();
        entry.message = query.value(8).toString();
        if (!query.isNull(9))
            entry.rows = query.value(9).toLongLong();
        entry.durationMs = query.value(10).toLongLong();
        entries.push_back(std::move(entry));
    }
    return entries;
}

QStringList HistoryFields(const HistoryEntry& entry, const QString& when, int secondsDecimals)
{
    return {when,
            entry.user,
            entry.host,
            entry.program,
            entry.operation,
            entry.environment,
            entry.subject,
            entry.outcome,
            entry.message,
            entry.rows ? QString::number(*entry.rows) : QString(),
            QString::number(double(entry.durationMs) / 1000.0, 'f', secondsDecimals)};
}

QString HistoryLine(const HistoryEntry& entry)
{
    QStringList fields = HistoryFields(entry, entry.when.toString(Qt::ISODate), 3);
    for (QString& field : fields)
        field.replace(u'\t', u' ').replace(u'\r', u' ').replace(u'\n', u' ');
    return fields.join(u'\t');
}

} // namespace dorvane
