// One SQL statement for a scope. Knows nothing of what is asked.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

struct sqlite3;
struct sqlite3_stmt;

// How long SQLite may work on one query. Far beyond what the largest library
// takes: a made-up file can make a query endless. A variable for tests.
extern std::chrono::milliseconds longestQuery;

class Statement
{
  public:
    // Prepares `sql` for a database; `self`, the caller's name for log lines,
    // must outlive this.
    Statement(const char *self, sqlite3 *of, const std::string &sql);
    ~Statement();
    Statement(const Statement &) = delete;
    Statement &operator=(const Statement &) = delete;

    // Whether it can be stepped. If not, code() tells SQLite's reason; 0 when
    // there is no database.
    bool ready() const { return statement != nullptr; }
    int code() const { return prepared; }

    // Goes to the next row. False at the end, which may come early because the
    // database is damaged, or after longestQuery: that is logged.
    bool next();

    // The present row's values. A column that the row has not got is NULL, and
    // NULL is 0 or an empty text. Text ends at its first NUL.
    bool isNull(int column) const;
    int32_t integer(int column) const;
    int64_t integer64(int column) const;
    std::string text(int column) const;

  private:
    using Clock = std::chrono::steady_clock;
    static int isOverdue(void *deadline);

    const char *caller;
    sqlite3 *database;
    sqlite3_stmt *statement = nullptr;
    int prepared = 0;
    Clock::duration used{}; // SQLite's time; what callers do in between is not
};
