#include "tarnifs/media/statement.h"

#include <sqlite3.h>

#include "util/log.h"

std::chrono::milliseconds longestQuery = std::chrono::minutes(10);

namespace
{
// Instructions of SQLite's machine between two looks at the clock.
constexpr int CHECK_EVERY = 100000;
} // namespace

Statement::Statement(const char *self, sqlite3 *of, const std::string &sql)
    : caller(self), database(of)
{
    if (database != nullptr) {
        prepared =
            sqlite3_prepare_v2(database, sql.c_str(), -1, &statement, nullptr);
    }
}

Statement::~Statement()
{
    sqlite3_finalize(statement);
}

int Statement::isOverdue(void *deadline)
{
    return Clock::now() > *static_cast<const Clock::time_point *>(deadline) ? 1
                                                                            : 0;
}

bool Statement::next()
{
    const Clock::time_point begin = Clock::now();
    Clock::time_point deadline = begin + longestQuery - used;
    sqlite3_progress_handler(database, CHECK_EVERY, isOverdue, &deadline);
    const int ret = sqlite3_step(statement);
    sqlite3_progress_handler(database, 0, nullptr, nullptr);
    used += Clock::now() - begin;
    if (ret != SQLITE_ROW && ret != SQLITE_DONE) {
        QNLog(3, "%s sqlite3_step failed. code : %d, msg(%s)", caller, ret,
              sqlite3_errmsg(database));
    }
    return ret == SQLITE_ROW;
}

bool Statement::isNull(int column) const
{
    return column >= sqlite3_data_count(statement) ||
           sqlite3_column_type(statement, column) == SQLITE_NULL;
}

int32_t Statement::integer(int column) const
{
    return isNull(column) ? 0 : sqlite3_column_int(statement, column);
}

int64_t Statement::integer64(int column) const
{
    return isNull(column) ? 0 : sqlite3_column_int64(statement, column);
}

std::string Statement::text(int column) const
{
    if (isNull(column)) {
        return {};
    }
    const void *bytes = sqlite3_column_text(statement, column);
    return bytes == nullptr ? std::string()
                            : std::string(static_cast<const char *>(bytes));
}
