#pragma once

#include "support/RepositoryTest.h"

using namespace Qt::StringLiterals;

namespace dorvane::test {

// A fresh, empty database per test on the backend the parameter names.
class BackendTest : public RepositoryTest {
protected:
    std::optional<RepositoryContent> content() const override { return std::nullopt; }

    // Creates a test table: %1 in the columns stands for the auto-number
    // key's type, %2 for case-insensitive text.
    void createTable(const QString& name, const QString& columns)
    {
        DB_ASSERT(conn.Execute(u"CREATE TABLE %1 (%2)"_s.arg(name, columns.arg(db->autoKeyType(), db->textType()))));
    }

    // Rows() as another connection sees them: what has been committed.
    QStringList committed(const QString& sql) { Connection other; other.Open(db->connectionString()); return Rows(other, sql); }
};

// A fresh, empty database with a table of items: an auto-number key, a
// parent, a name and a description, a count with a default of its own (a
// new row must read it back) and a flag.
class ItemTest : public BackendTest {
protected:
    void SetUp() override
    {
        BackendTest::SetUp();
        createTable(u"tItem"_s, u"iItemKey %1, iItemParent integer, sItemName %2, sItemDesc %2, iItemCount integer DEFAULT 7, bItemActive smallint DEFAULT 0"_s);
    }

    // Adds an item through a fresh record set; its key.
    qint32 add(const QString& name, int count = 0) { return addRow(conn, u"SELECT * FROM tItem WHERE iItemKey=0"_s, {{u"sItemName"_s, name}, {u"iItemCount"_s, count}}); }
};

inline std::string backendName(const ::testing::TestParamInfo<std::string>& info) { return info.param; }

} // namespace dorvane::test
