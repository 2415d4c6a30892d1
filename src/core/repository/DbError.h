#pragma once

#include <QByteArray>
#include <QString>

#include <exception>

namespace dorvane {

// A failure reported by the database layer. The description is the
// database's (or driver's) own text, ready to be put after a caller's
// "Error while ...: " prefix.
class DbError : public std::exception {
public:
    explicit DbError(QString description);

    const QString& description() const noexcept { return m_description; }
    const char* what() const noexcept override { return m_utf8.constData(); }

private:
    QString m_description;
    QByteArray m_utf8;
};

} // namespace dorvane
