// One SQL statement for a scope. Knows nothing of what is asked.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

struct sqlite3;
struct sqlite3_stmt;

// How long SQLite may work on one query, preparing it included. Far beyond what
// the largest library takes: a made-up file can make a query endless. A variable
// for tests. The caller of everything here holds tarni_mutex.
extern std::chrono::milliseconds longestQuery;
// Rows after which a query ends, likewise.
extern size_t mostRows;

// Runs statements that give no rows, within the same limit. SQLite's code; a
// failure is logged in the name of `self`.
int Execute(const char *self, sqlite3 *database, const char *sql);

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
    // database is damaged, or after longestQuery or mostRows: that is logged.
    bool next();

    // Whether the present row has a text or blob too long to be a name or path.
    bool isTooLong() const;

    // The present row's values. A column that the row has not got is NULL, and
    // NULL is 0 or an empty text. Text ends at its first NUL.
    bool isNull(int column) const;
    int32_t integer(int column) const;
    int64_t integer64(int column) const;
    std::string text(int column) const;

  private:
    const char *caller;
    sqlite3 *database;
    sqlite3_stmt *statement = nullptr;
    int prepared = 0;
    size_t rows = 0;
    // SQLite's time; what callers do in between is not.
    std::chrono::steady_clock::duration used{};
};
