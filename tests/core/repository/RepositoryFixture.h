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

inline std::string backendName(const ::testing::TestParamInfo<std::string>& info) { return info.param; }

} // namespace dorvane::test
