#pragma once

#include "core/repository/Connection.h"
#include "core/repository/Recordset.h"
#include "support/TestSupport.h"

#include <memory>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace dorvane::test {

using Values = std::vector<std::pair<QString, QVariant>>;

// Adds one row through a record set, the values assigned in order, as the
// program adds rows; the new row's key.
inline qint32 addTo(Recordset& rs, const Values& values)
{
    rs.AddNew();
    for (const auto& [field, value] : values)
        rs.SetValue(field, value);
    rs.Update();
    return rs.Int(rs.KeyField());
}

// The same through the fresh record set `select` opens.
inline qint32 addRow(Connection& conn, const QString& select, const Values& values) { Recordset rs(select, conn); return addTo(rs, values); }

// A fresh database per test on the backend the parameter names.
class BackendTest : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        db = std::make_unique<TestDatabase>(GetParam());
        DB_ASSERT(conn.Open(db->connectionString()));
    }

    // Creates a test table: %1 in the columns stands for the auto-number
    // key's type, %2 for case-insensitive text.
    void createTable(const QString& name, const QString& columns)
    {
        DB_ASSERT(conn.Execute(u"CREATE TABLE %1 (%2)"_s.arg(name, columns.arg(db->autoKeyType(), db->textType()))));
    }

    qint32 count(const QString& sql, Connection* on = nullptr) { return Recordset(sql, on ? *on : conn).RecordCount(); }

    // Rows() as another connection sees them: what has been committed.
    QStringList committed(const QString& sql) { Connection other; other.Open(db->connectionString()); return Rows(other, sql); }

    std::unique_ptr<TestDatabase> db;
    Connection conn;
};

inline std::string backendName(const ::testing::TestParamInfo<std::string>& info) { return info.param; }

} // namespace dorvane::test
