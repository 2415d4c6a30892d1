#pragma once

#include <QByteArray>
#include <QString>

#include <exception>
#include <utility>

namespace dorvane {

// A failure reported by the database layer, as a value. The description is
// the text for the administrator, ready to be put after a caller's "Error
// while ...: " prefix; the other fields are for the code that handles the
// failure and are empty where there is nothing to tell: the database's own
// text, its code (SQLite's result code, PostgreSQL's SQLSTATE as the driver
// reports it), the statement that failed, and the table whose held rows a
// batched statement carried. Callers test the fields, not the type.
class DbError : public std::exception {
public:
    explicit DbError(QString description);

    const QString& description() const noexcept { return m_description; }
    const QString& databaseText() const noexcept { return m_databaseText; }
    const QString& code() const noexcept { return m_code; }
    const QString& statement() const noexcept { return m_statement; }
    const QString& table() const noexcept { return m_table; }
    const char* what() const noexcept override { return m_utf8.constData(); }

    DbError& WithDatabaseText(QString text, QString code = {})
    {
        m_databaseText = std::move(text);
        m_code = std::move(code);
        return *this;
    }
    DbError& WithStatement(QString statement)
    {
        m_statement = std::move(statement);
        return *this;
    }
    DbError& WithTable(QString table)
    {
        m_table = std::move(table);
        return *this;
    }

private:
    QString m_description;
    QString m_databaseText;
    QString m_code;
    QString m_statement;
    QString m_table;
    QByteArray m_utf8;
};

} // namespace dorvane
