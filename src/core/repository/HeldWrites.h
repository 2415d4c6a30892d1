#pragma once

#include "core/repository/DbError.h"

#include <QBitArray>
#include <QHash>
#include <QString>
#include <QVariant>

#include <memory>
#include <vector>

namespace dorvane {

class Connection;
struct TableInfo;

// Rows written inside a transaction on a server connection, held and sent
// many to a statement: every statement is a round trip, and one that
// carries hundreds of rows costs little more than one that carries one.
//
// Added rows take keys from their table's identity sequence, reserved in
// blocks, so a row's key is known the moment it is added and keys ascend in
// the order rows were added. Held rows of a table are sent in the order
// they were written, as one INSERT (or one UPDATE) per few hundred rows, and
// always before anything could see them: a read whose selection could
// return one of them (a read that provably selects none of them sends
// nothing), any other statement, the change or deletion of a row of the
// same table by a statement of its own, and the commit. Changes and
// deletions of rows the data layer has read are held alike. A rollback
// drops them.
class HeldWrites {
public:
    explicit HeldWrites(Connection& connection);
    ~HeldWrites();
    HeldWrites(const HeldWrites&) = delete;
    HeldWrites& operator=(const HeldWrites&) = delete;

    bool IsEmpty() const { return m_runs.empty(); }

    // A key for a new row of `table`, from its identity sequence.
    QVariant ReserveKey(const std::shared_ptr<const TableInfo>& table);

    // Holds a new row: `columns` marks the values it writes (its key
    // among them), `values` holds them by column position, as bound.
    void HoldInsert(const std::shared_ptr<const TableInfo>& table, const QBitArray& columns, const QVariantList& values);
    // Holds the change of the row whose values (all known, the key among
    // them) are `row` after the change to the `changed` columns.
    void HoldUpdate(const std::shared_ptr<const TableInfo>& table, const QBitArray& changed, const QVariantList& row);
    // Holds the deletion of the row whose values (all known) are `row`.
    void HoldDelete(const std::shared_ptr<const TableInfo>& table, const QVariantList& row);
    // Holds a (translated) statement that deletes the rows of one parent,
    // "DELETE FROM table WHERE column = 12"; false, holding nothing, for
    // any other statement.
    bool HoldDeletion(const QString& sql);

    // Before a read with this (translated) statement: sends what it could
    // return.
    void BeforeRead(const QString& sql);
    // Before a row of `table` is changed or deleted by a statement of its own.
    void BeforeRowStatement(const TableInfo& table);
    // Sends every held row.
    void Flush();
    // Forgets every held row (the transaction is rolled back).
    void Discard();

private:
    struct Run;
    struct Sequence {
        QString name;
        std::vector<QVariant> keys;  // reserved, not yet taken
        size_t next = 0;
        int block = 0;
    };

    enum class Kind { Insert, Update, Delete, DeleteWhere };
    void hold(const std::shared_ptr<const TableInfo>& table, Kind kind, const QBitArray& columns,
              const QVariantList& values);
    void sendTable(const TableInfo* table);
    void send(Run& run);

    Connection& m_connection;
    std::vector<std::unique_ptr<Run>> m_runs;  // in the order they were begun
    QHash<const TableInfo*, Sequence> m_sequences;
};

// A failure of a statement that carried held rows names their table
// (DbError::table()), so that the step that wrote them can say what failed.

// What an UPDATE or DELETE of a row that is no longer there says.
inline const QString kRowGoneText =
    QStringLiteral("Row cannot be located for updating. Some values may have been changed since it was last read.");

} // namespace dorvane
