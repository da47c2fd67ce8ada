#include "tarnifs/media/statement.h"

#include <sqlite3.h>

#include "util/log.h"

std::chrono::milliseconds longestQuery = std::chrono::minutes(5);
size_t mostRows = 500000;

namespace
{

using Clock = std::chrono::steady_clock;

// Instructions of SQLite's machine between two looks at the clock. Few: one that
// compares long texts takes a while.
constexpr int CHECK_EVERY = 200;
// Bytes; a device takes no longer path.
constexpr int LONGEST_TEXT = 16384;

// Of the work under way.
Clock::time_point deadline;

int isOverdue(void * /*unused*/)
{
    return Clock::now() > deadline ? 1 : 0;
}

// While it lives, SQLite's work on a database counts towards `used` and ends when
// that reaches longestQuery.
class TimedWork
{
  public:
    TimedWork(sqlite3 *of, Clock::duration *counted)
        : database(of), used(counted), begin(Clock::now())
    {
        deadline = begin + longestQuery - *used;
        sqlite3_progress_handler(database, CHECK_EVERY, isOverdue, nullptr);
    }
    ~TimedWork()
    {
        sqlite3_progress_handler(database, 0, nullptr, nullptr);
        *used += Clock::now() - begin;
    }
    TimedWork(const TimedWork &) = delete;
    TimedWork &operator=(const TimedWork &) = delete;

  private:
    sqlite3 *database;
    Clock::duration *used;
    Clock::time_point begin;
};

} // namespace

int Execute(const char *self, sqlite3 *database, const char *sql)
{
    Clock::duration used{};
    const TimedWork work(database, &used);
    const int ret = sqlite3_exec(database, sql, nullptr, nullptr, nullptr);
    if (ret != SQLITE_OK) {
        QNLog(3, "%s sqlite3_exec failed. code : %d, msg(%s)", self, ret,
              sqlite3_errmsg(database));
    }
    return ret;
}

Statement::Statement(const char *self, sqlite3 *of, const std::string &sql)
    : caller(self), database(of)
{
    if (database != nullptr) {
        const TimedWork work(database, &used);
        prepared =
            sqlite3_prepare_v2(database, sql.c_str(), -1, &statement, nullptr);
    }
}

Statement::~Statement()
{
    sqlite3_finalize(statement);
}

bool Statement::next()
{
    if (rows == mostRows) {
        QNLog(3, "%s query ended after %zu rows.", caller, rows);
        return false;
    }
    const TimedWork work(database, &used);
    const int ret = sqlite3_step(statement);
    if (ret != SQLITE_ROW && ret != SQLITE_DONE) {
        QNLog(3, "%s sqlite3_step failed. code : %d, msg(%s)", caller, ret,
              sqlite3_errmsg(database));
    }
    rows++;
    return ret == SQLITE_ROW;
}

bool Statement::isTooLong() const
{
    for (int column = 0; column < sqlite3_data_count(statement); ++column) {
        const int type = sqlite3_column_type(statement, column);
        if ((type == SQLITE_TEXT || type == SQLITE_BLOB) &&
            sqlite3_column_bytes(statement, column) > LONGEST_TEXT) {
            return true;
        }
    }
    return false;
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
