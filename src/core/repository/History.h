#pragma once

#include "core/repository/Connection.h"
#include "core/repository/Interaction.h"

#include <QDate>
#include <QDateTime>
#include <QElapsedTimer>
#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

namespace dorvane {

// The history of who did what: one row per long or destructive operation,
// in a table of Dorvane's own beside the suite's (the suite never reads
// it), so that everyone who shares a repository shares its history.
inline const QString kHistoryTable = QStringLiteral("dvHistory");

// Its statements are the schema's (SchemaDdl.h: HistoryTableStatements).
// What a program says where the repository lacks it.
inline const QString kNoHistoryTable = QStringLiteral(
    "This repository has no table for the history of operations, so none is recorded; "
    "\"dorvanectl upgrade-repository\" adds it.");

// The operations that leave an entry, named as dorvanectl's commands.
enum class HistoryOperation {
    UpdateVersion,
    CopyVersion,
    CopyEnvironment,
    Backup,
    Restore,
    ImportKeywords,
    DeleteApplication,
    DeleteVersion,
    DeleteEnvironment,
};
QString HistoryOperationName(HistoryOperation operation);

enum class HistoryOutcome { Done, Failed, Refused, Interrupted };
QString HistoryOutcomeName(HistoryOutcome outcome);

// The program entries name: "dorvane" or "dorvanectl", set once at start.
void SetHistoryProgram(const QString& program);
// Whether operations leave entries (they do unless this run said not).
void SetHistoryRecording(bool on);

// Rows an operation's statements inserted or deleted, added to the entry
// of the innermost operation being recorded (nothing when none is, or the
// count is negative: the driver could not tell).
void CountWrittenRows(qint64 rows);

struct HistoryEntry {
    QDateTime when;  // UTC
    QString user, host, program;
    QString operation;
    QString environment;  // the environment it acted on, or empty
    QString subject;      // what else it named: a version, a file, ...
    QString outcome;      // HistoryOutcomeName
    QString message;      // the failure's or refusal's text
    std::optional<qint64> rows;
    qint64 durationMs = 0;
};

// The entries newest first; `since` (a UTC day) and `environment` filter
// them, `limit` caps their number. Throws DbError.
struct HistoryFilter {
    std::optional<QDate> since;
    std::optional<QString> environment;
    std::optional<int> limit;
};
std::vector<HistoryEntry> ReadHistory(Connection& connection, const HistoryFilter& filter);

// The fields of an entry in their order, the time as `when` gives it and
// the seconds with `secondsDecimals` decimals.
QStringList HistoryFields(const HistoryEntry& entry, const QString& when, int secondsDecimals);

// One entry on one line, its fields separated by TABs: when, user, host,
// program, operation, environment, subject, outcome, message, rows,
// seconds. Tabs and line breaks inside a field become blanks.
QString HistoryLine(const HistoryEntry& entry);

// The entry of one operation, for the length of its entry point. The
// operation shows its messages through the record, which passes them on
// and keeps the last one; the operation tells it Done or Refused. When the
// record goes, after the operation's own transaction has ended, it writes
// the entry on a connection of its own:
//   done        Done was told;
//   interrupted an interruption was requested meanwhile;
//   (nothing)   no exception leaves the operation, and the last thing
//               shown was a question not answered Yes, or nothing was
//               shown: the person cancelled;
//   refused     Refused was told;
//   failed      otherwise, with the last message shown.
// Writing never throws and never changes the operation's outcome: a
// repository without the history table gets no entry (the upgrade note
// says so once per run); any other failure to write the entry of an
// operation that was done or refused is shown as a message of its own,
// while a failed or interrupted operation (whose own message has said
// what went wrong) waits a second at most for another program's write
// and then goes without its entry.
class HistoryRecord : public MessageSink {
public:
    HistoryRecord(MessageSink& messages, QString connectionString, HistoryOperation operation,
                  QString environment = QString(), QString subject = QString());
    ~HistoryRecord() override;
    HistoryRecord(const HistoryRecord&) = delete;
    HistoryRecord& operator=(const HistoryRecord&) = delete;

    Answer Show(const QString& text, Buttons buttons) override;

    void Done() { m_done = true; }
    // Done with the rows the operation counted itself, in place of those
    // CountWrittenRows added.
    void Done(qint64 rows) { m_done = true, m_rows = rows; }
    void Refused() { m_refused = true; }
    void Name(const QString& environment, const QString& subject) { m_environment = environment, m_subject = subject; }
    // The environment is named by its key, looked up when the entry is
    // written (an environment a restore renamed has its new name).
    void EnvironmentKey(qint32 key) { m_environmentKey = key; }

    void AddRows(qint64 rows) { m_rows = m_rows.value_or(0) + rows; }

private:
    void write() noexcept;

    MessageSink& m_messages;
    QString m_connectionString;
    HistoryOperation m_operation;
    QString m_environment, m_subject;
    std::optional<qint32> m_environmentKey;
    QString m_lastMessage;
    bool m_declined = false;  // the last thing shown was a question not answered Yes
    bool m_shown = false;
    bool m_done = false;
    bool m_refused = false;
    std::optional<qint64> m_rows;
    QDateTime m_started;
    QElapsedTimer m_clock;
    int m_exceptions;
    HistoryRecord* m_outer;
};

} // namespace dorvane
