#include "simdevice/sql.h"

namespace sim
{

namespace
{

// Every database begins its random numbers here; 0 gives chance back its
// place.
void seedRandomNumbers(int seed)
{
    sqlite3_test_control(SQLITE_TESTCTRL_PRNG_SEED, seed, nullptr);
}

} // namespace

Database::Database(const std::string &path) : m_path(path)
{
    seedRandomNumbers(1);
    if (sqlite3_open_v2(path.c_str(), &m_handle,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                        nullptr) != SQLITE_OK) {
        fail();
    }
    // The file is made from nothing: a failure needs no way back.
    run("PRAGMA page_size=4096; PRAGMA auto_vacuum=2; PRAGMA encoding='UTF-8';"
        "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF; BEGIN");
}

Database::~Database()
{
    sqlite3_close_v2(m_handle);
}

void Database::fail()
{
    if (m_problem.empty()) {
        m_problem = m_path + ": " +
                    (m_handle != nullptr ? sqlite3_errmsg(m_handle)
                                         : "not enough memory");
    }
}

void Database::run(const std::string &sql)
{
    if (!failed() && sqlite3_exec(m_handle, sql.c_str(), nullptr, nullptr,
                                  nullptr) != SQLITE_OK) {
        fail();
    }
}

void Database::logFromHere()
{
    run("COMMIT; PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=0; BEGIN");
    // Else the last connection empties and removes the log when it closes.
    if (!failed() &&
        sqlite3_db_config(m_handle, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1,
                          nullptr) != SQLITE_OK) {
        fail();
    }
}

std::string Database::close()
{
    run("COMMIT");
    if (sqlite3_close(m_handle) != SQLITE_OK) {
        fail();
        sqlite3_close_v2(m_handle);
    }
    m_handle = nullptr;
    seedRandomNumbers(0);
    return m_problem;
}

Value Value::blob(std::string_view bytes)
{
    Value value(nullptr);
    value.m_type = Type::blob;
    value.m_text = bytes;
    return value;
}

int Value::bind(sqlite3_stmt *statement, int place) const
{
    const int size = static_cast<int>(m_text.size());
    switch (m_type) {
    case Type::whole:
        return sqlite3_bind_int64(statement, place, m_whole);
    case Type::real:
        return sqlite3_bind_double(statement, place, m_real);
    case Type::text:
        return sqlite3_bind_text(statement, place, m_text.data(), size,
                                 nullptr);
    case Type::blob:
        return sqlite3_bind_blob(statement, place, m_text.data(), size,
                                 nullptr);
    case Type::null:
        break;
    }
    return sqlite3_bind_null(statement, place);
}

Table::Table(Database &database, std::string name)
    : m_database(database), m_name(std::move(name))
{
}

void Table::prepare(const Row &row)
{
    std::string columns;
    std::string places;
    for (const Cell &cell : row) {
        columns += (columns.empty() ? "" : ",") + std::string(cell.column);
        places += places.empty() ? "?" : ",?";
    }
    const std::string sql =
        "INSERT INTO " + m_name + " (" + columns + ") VALUES (" + places + ")";
    if (sqlite3_prepare_v2(m_database.get(), sql.c_str(), -1, &m_insert,
                           nullptr) != SQLITE_OK) {
        m_database.fail();
    }
    m_columns = row.size();
}

void Table::add(const Row &row)
{
    if (m_database.failed()) {
        return;
    }
    if (m_insert == nullptr) {
        prepare(row);
    }
    bool good = !m_database.failed() && row.size() == m_columns;
    for (size_t i = 0; good && i < row.size(); i++) {
        good =
            row[i].value.bind(m_insert, static_cast<int>(i) + 1) == SQLITE_OK;
    }
    if (!good || sqlite3_step(m_insert) != SQLITE_DONE) {
        m_database.fail();
    }
    sqlite3_reset(m_insert);
}

} // namespace sim
