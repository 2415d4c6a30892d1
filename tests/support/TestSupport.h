#pragma once

#include "repository/Connection.h"
#include "repository/Interaction.h"

#include <gtest/gtest.h>

#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace dorvane::test {

// The backends a repository test runs on: "sqlite" always, "odbc" when
// DORVANE_TEST_DSN names an ODBC data source (PostgreSQL through psqlODBC).
std::vector<std::string> TestBackends();
QString TestDsn();

// A fresh, empty database on one backend: a new SQLite file in a temporary
// folder, or the test data source with every table dropped.
class TestDatabase {
public:
    explicit TestDatabase(const std::string& backend);
    ~TestDatabase();

    const std::string& backend() const { return m_backend; }
    bool isOdbc() const { return m_backend == "odbc"; }
    // The suite's connection string for it.
    QString connectionString() const { return m_connectionString; }
    // A folder that lives as long as this object.
    QString tempPath() const { return m_dir.path(); }

    // Column types for a test's own tables: an auto-number integer primary
    // key whose values are never reused, and case-insensitive text.
    QString autoKeyType() const;
    QString textType() const;

private:
    std::string m_backend;
    QTemporaryDir m_dir;
    QString m_connectionString;
};

// Records every message and answers questions from a queue (Ok when empty
// for Ok boxes; a question with no queued answer fails the test).
class ScriptedMessages : public MessageSink {
public:
    Answer Show(const QString& text, Buttons buttons) override;
    void Queue(Answer answer) { m_answers.push_back(answer); }

    QStringList shown;

private:
    std::deque<Answer> m_answers;
};

// The rows of a table or a query as comparable text, one string a row: the
// cells joined by '|', Null as <null>, the columns named in `without` left
// out. A repository table is read in key order, any other table as stored.
QStringList Rows(Connection& conn, const QString& tableOrQuery, const QStringList& without = {});

// Rows() of each table, every row prefixed with its table's name and ':'.
// Without tables: every repository table.
QStringList TableRows(Connection& conn, const QStringList& tables = {}, const QStringList& without = {});

// Every table of a database file, such as a test data database, by name.
QStringList FileTables(Connection& conn);

// Prints the database's description when a statement fails.
#define DB_ASSERT(statement)                                                       \
    try {                                                                          \
        statement;                                                                 \
    } catch (const ::dorvane::DbError& e) {                                        \
        FAIL() << #statement << " failed: " << e.description().toStdString();      \
    }

} // namespace dorvane::test

// Lets GoogleTest print QStrings.
QT_BEGIN_NAMESPACE
inline void PrintTo(const QString& s, std::ostream* os) { *os << '"' << s.toStdString() << '"'; }
QT_END_NAMESPACE
