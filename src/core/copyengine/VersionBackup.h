#pragma once

#include "core/copyengine/DatabaseCopy.h"
#include "core/copyengine/KeyMap.h"

#include <QScopeGuard>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <utility>

namespace dorvane {

class BusyIndicator;
class Connection;
class MessageSink;
class ProgressSink;

// The copy engine: the state of one copy run (the key maps, the label of
// the version being copied, the destination connection) and the
// primitives that copy a version's content table by table, rewriting
// foreign keys through the maps.
//
// Every primitive copies within the database of its connection `db`, by
// statements the database runs (DatabaseCopy): from and to the
// repository's own tables, or across to a backup file opened on the same
// connection (CopyBetween). It begins no transaction, shows its own
// failure message ("Error while copying Windows:" followed directly by the
// database's description) and returns false after one, true otherwise
// (also when there was nothing to copy). Rows saved before a failure stay;
// the caller's transaction removes them. Long primitives report through
// the ProgressSink and let the event loop run through its Yield.
//
// The key maps (old key, new key) live in the database too, as temporary
// tables of the run's connection: "window", "object", "process", "cycle"
// and "keyword" grow within a copy run (ResetCopyRunMaps empties them; an
// old key keeps the first new key it was given); "variable" and
// "requirement" are replaced by every call that copies rows and hold the
// last version copied that had any.
//
// Dependency order within one version: CopyWindows and CopyKeywords before
// CopyProcesses; CopyProcesses before CopyCycles and FixUpSteps; CopyCycles
// (of every version) before CopySchedules.
class VersionBackup {
public:
    // `repository` is the connection string of the repository the engine
    // writes; its runs open their own connection to it.
    VersionBackup(MessageSink& messages, ProgressSink& progress, QString repository, BusyIndicator* busy = nullptr);
    ~VersionBackup();
    VersionBackup(const VersionBackup&) = delete;
    VersionBackup& operator=(const VersionBackup&) = delete;

    // The map of an environment copy's record layouts, kept by the client.
    KeyMap RecordMap;

    // Shown after each primitive's label words ("Windows in " ...): the
    // name of the application whose version is being copied. A run that
    // does not set it shows what an earlier run left.
    QString CurrentVersionLabel;

    // The second repository connection of a copy run (see
    // OpenDestinationDatabase); UpdateVersion opens and closes it.
    std::unique_ptr<Connection> DestinationConnection;

    MessageSink& Messages() const { return *m_messages; }
    // The connection string of the repository the engine writes.
    const QString& RepositoryConnectionString() const { return m_repository; }
    // Sends the engine's messages to `messages` until the returned value
    // goes (an attempt of RetryOnConcurrentChange holds them).
    [[nodiscard]] auto MessagesTo(MessageSink& messages)
    {
        MessageSink* const previous = std::exchange(m_messages, &messages);
        return qScopeGuard([this, previous] { m_messages = previous; });
    }
    ProgressSink& Progress() const { return m_progress; }
    BusyIndicator* Busy() const { return m_busy; }

    // Where the primitives find their rows and put their copies (see
    // DatabaseCopy): the repository on both sides, unless a backup or a
    // restore says otherwise for as long as the returned value lives.
    [[nodiscard]] auto CopyBetween(DatabaseCopy::Side source, DatabaseCopy::Side destination)
    {
        m_sourceSide = source;
        m_destinationSide = destination;
        return qScopeGuard([this] { m_sourceSide = m_destinationSide = DatabaseCopy::Side::Repository; });
    }

    // The start of a copy run: the growing maps emptied (the keyword map
    // only when asked: a version update copies no keywords) before the
    // run's first use of them.
    void ResetCopyRunMaps(bool includeKeywordMap);
    // A key map of the run on `db` by name ("window", "process", ...): its
    // pairs by new key. SetMap puts pairs into one (first pair of an old
    // key wins).
    std::vector<std::pair<qint32, qint32>> MapPairs(Connection& db, const QString& name);
    void SetMap(Connection& db, const QString& name, const std::vector<std::pair<qint32, qint32>>& pairs);

    // A new connection to the engine's repository. On failure shows "Error
    // while opening destination database for version copy: " and the
    // description, and returns null.
    std::unique_ptr<Connection> OpenDestinationDatabase();

    // The windows of a version (without its "[System Screen]" window unless
    // includeSystemScreen) and the objects of each; fills the window and
    // object maps. A window's parent key is copied as it stands.
    bool CopyWindows(qint32 sourceVersionKey, qint32 destinationVersionKey, Connection& db, bool includeSystemScreen);
    // The variables, or the requirements, of a version; replace their map.
    bool CopyVariables(qint32 sourceVersionKey, qint32 destinationVersionKey, Connection& db);
    bool CopyRequirements(qint32 sourceVersionKey, qint32 destinationVersionKey, Connection& db);
    // The keywords of an application; grows the keyword map. With
    // matchByName a keyword whose exact name (letter case counts) the
    // destination application has already is mapped to that one instead of
    // being added.
    bool CopyKeywords(qint32 sourceAppKey, qint32 destinationAppKey, Connection& db, bool matchByName);
    // The processes of a version with their step windows, steps and keyword
    // relations; grows the process map. Reads the window, object and
    // keyword maps.
    bool CopyProcesses(qint32 sourceVersionKey, qint32 destinationVersionKey, qint32 destinationEnvironmentKey,
                       Connection& db);
    // The cycles of a version with their processes and keyword relations;
    // grows the cycle map. Reads the process and keyword maps.
    bool CopyCycles(qint32 sourceVersionKey, qint32 destinationVersionKey, Connection& db);
    // The schedules of an environment with their cycles and keyword
    // relations. Reads the cycle and keyword maps.
    bool CopySchedules(qint32 sourceEnvironmentKey, qint32 destinationEnvironmentKey, Connection& db);
    // Rewrites the process calls and variable references in the argument
    // texts of the destination version's steps through the process and
    // variable maps (see StepArguments.h).
    bool FixUpSteps(qint32 destinationVersionKey, Connection& db);

    // Rewrites a copied version row's five process pointers and two window
    // pointers through the maps, by one statement; a pointer the maps do
    // not hold (a row outside the copy) keeps its value.
    void RemapVersionPointers(qint32 versionKey, Connection& db);

    // What the caller of UpdateVersion does inside its transaction, through
    // its connection: `check` first, once the environment and the
    // destination version are held against other operations (false refuses
    // the update, having said why), `finish` last, before the commit (an
    // update moves the environment's list entry).
    struct UpdateParts {
        std::function<bool(Connection&)> check;
        std::function<void(Connection&)> finish;
    };

    // Fills the destination version with a copy of the source version's
    // content and re-points what the environment's other versions and
    // record layouts held of the source version, all in one transaction on
    // a newly opened DestinationConnection, holding the environment and the
    // destination version against other operations: committed when every
    // step succeeded, rolled back otherwise, so that the whole operation
    // commits or nothing of it does. A failure of its own steps shows
    // "Error while creating new version:" + description +
    // "! New version not fully created.".
    bool UpdateVersion(qint32 sourceVersionKey, qint32 destinationVersionKey, qint32 environmentKey,
                       const UpdateParts& parts = {});

private:
    // A version's flat list (variables, requirements): its table, own key,
    // version column, the columns copied, the progress words, the
    // failure's prefix and its map.
    struct ListCopy {
        QString table, key, parent;
        QStringList columns;
        QString label;
        const QString& failure;
        const QString& map;
    };

    DatabaseCopy databaseCopy(Connection& db) const { return DatabaseCopy(db, m_sourceSide, m_destinationSide); }
    // The map table of `name` on the copy's connection, emptied first when
    // the run's start asked for it.
    QString map(DatabaseCopy& copy, const QString& name);
    bool copyList(const ListCopy& list, qint32 sourceVersionKey, qint32 destinationVersionKey, Connection& db);
    // Chooses the list's rows into its batch and makes its map theirs.
    // Returns how many.
    qint64 chooseList(DatabaseCopy& copy, const ListCopy& list, qint32 sourceVersionKey);
    static const ListCopy& variables();
    // The keyword relations of the holders in the batch table `holders`
    // (processes, cycles or schedules), held by `holderColumn`.
    void copyKeywordRelations(DatabaseCopy& copy, const QString& holderColumn, const QString& holders);

    // Runs `block(first, last)` over the positions 1 to `count` of a batch,
    // in consecutive ranges sized to take about a fifth of a second each,
    // the bar following the last position done (on SQLite; on PostgreSQL
    // in one range).
    void inBlocks(Connection& db, qint64 count, const std::function<void(qint64, qint64)>& block);
    void startProgress(const QString& labelWords, qint32 count);
    // Moves the bar on by `rows` at once.
    void finishProgress(qint32 rows);
    bool fail(const QString& prefix, const QString& description);

    MessageSink* m_messages;
    ProgressSink& m_progress;
    BusyIndicator* m_busy;
    QString m_repository;
    DatabaseCopy::Side m_sourceSide = DatabaseCopy::Side::Repository;
    DatabaseCopy::Side m_destinationSide = DatabaseCopy::Side::Repository;
    QStringList m_mapsToClear;
    // The list whose rows were chosen last, for the copy that writes them.
    struct ChosenList {
        QString table;
        qint32 source = 0, destination = 0;
        qint64 count = 0;
    } m_chosenList;
    // The version whose copied processes' steps were fixed up as they were
    // written, and the batch of those processes.
    struct FixedAsCopied {
        qint32 version = 0;
        QString processes;
    } m_fixedAsCopied;
};

// The prefix of the failure message of the primitive that writes `table`
// ("Error while copying Windows:" for tWindow and tObject), or null for a
// table no primitive writes.
const QString* CopyFailurePrefix(const QString& table);

// The five process pointers and the two window pointers of a version row.
const QStringList& VersionProcessPointers();
const QStringList& VersionWindowPointers();

// Deletes a version and everything below it (variables, cycles with their
// processes and keyword relations, processes with their step windows,
// steps and keyword relations, windows with their objects, then the version
// row) in one transaction on `connection`; the version's requirements stay.
// A failure shows the stage's prefix ("Error while deleting Steps:"), the
// description and "! New version not fully deleted.", rolls back and
// returns false.
bool DeleteVersionContents(qint32 versionKey, Connection& connection, MessageSink& messages);

} // namespace dorvane
