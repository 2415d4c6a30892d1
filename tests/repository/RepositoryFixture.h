#pragma once

#include "repository/Connection.h"
#include "repository/Recordset.h"
#include "support/TestSupport.h"

#include <functional>
#include <memory>

using namespace Qt::StringLiterals;

namespace dorvane::test {

// The description of the error an action throws, or "<no error>".
inline QString descriptionOf(const std::function<void()>& action)
{
    try {
        action();
    } catch (const DbError& e) {
        return e.description();
    }
    return u"<no error>"_s;
}

// A fresh database per test on the backend the parameter names.
class BackendTest : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        db = std::make_unique<TestDatabase>(GetParam());
        DB_ASSERT(conn.Open(db->connectionString()));
    }

    qint32 count(const QString& sql)
    {
        Recordset rs(sql, conn);
        return rs.RecordCount();
    }

    // One column's texts over the rows a statement selects.
    QStringList texts(const QString& sql, const QString& field)
    {
        QStringList values;
        for (Recordset rs(sql, conn); !rs.Eof(); rs.MoveNext())
            values << rs.Text(field);
        return values;
    }

    std::unique_ptr<TestDatabase> db;
    Connection conn;
};

inline std::string backendName(const ::testing::TestParamInfo<std::string>& info) { return info.param; }

} // namespace dorvane::test
