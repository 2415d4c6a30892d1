#pragma once

#include <QString>
#include <QStringList>

#include <vector>

namespace dorvane {

class Connection;

// A backup file's tables staged on a PostgreSQL repository connection as
// temporary tables dv_file_<table> (DatabaseCopy::Side::File), so that the
// file's rows cross to and from the repository by statements the server
// runs. Each staging table has the file's own columns (a file made from an
// older template may lack some) and the repository's indexes on them.
class FileStaging {
public:
    // The file's tables, as `file` (a SQLite connection) has them.
    FileStaging(Connection& repository, Connection& file);

    // Empty staging tables, made anew. Outside any transaction of the
    // repository's connection: a read-only one refuses to create tables.
    void Create();
    // The staging tables made anew without their keys and indexes, the
    // file's rows sent to them a block to a statement, then their keys and
    // indexes built and the server told about their contents.
    void Load();
    // The staging tables' rows written into the file, table by table in
    // key order, read in blocks so that the client never holds more than
    // three. A row the file refuses fails with its table named
    // (DbError::table()).
    void Save();

private:
    // The staging tables without their keys and indexes, and those.
    void createTables();
    void createIndexes();

    struct Table {
        QString name, key;
        QStringList columns;
    };

    Connection& m_repository;
    Connection& m_file;
    std::vector<Table> m_tables;
};

} // namespace dorvane
