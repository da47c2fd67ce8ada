// Writes SQLite files: a thin owner over the C interface. The first failure is
// remembered and makes everything after it a no-op; close() tells it.
//
// The same calls make the same bytes: SQLite's random numbers (salts of its
// logs) begin at one seed for every database.
#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <sqlite3.h>

namespace sim
{

class Database
{
  public:
    // A new file in UTF-8 with a device's page size. Rows go straight into it,
    // without a journal, until logFromHere().
    explicit Database(const std::string &path);
    ~Database();
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;

    // One or more statements without results.
    void run(const std::string &sql);

    // What comes from here on stays in the write-ahead log, which (with its
    // index) is left beside the file by close(): as on a device in use.
    void logFromHere();

    // Commits and closes. Empty, or what went wrong in words for the user.
    std::string close();

    sqlite3 *get() const { return m_handle; }
    bool failed() const { return !m_problem.empty(); }
    void fail();

  private:
    std::string m_path;
    std::string m_problem;
    sqlite3 *m_handle = nullptr;
};

// A value for a column: nothing, a number or a text. Texts and blobs are not
// copied: they must live until the row is added.
class Value
{
  public:
    Value(std::nullptr_t) {}
    template <std::integral T>
    Value(T number) : m_type(Type::whole), m_whole(static_cast<int64_t>(number))
    {
    }
    Value(double number) : m_type(Type::real), m_real(number) {}
    Value(const char *text) { setText(text); }
    Value(const std::string &text) : m_type(Type::text), m_text(text) {}
    template <typename T>
    Value(const std::optional<T> &value)
        : Value(value ? Value(*value) : Value(nullptr))
    {
    }
    static Value blob(std::string_view bytes);

    int bind(sqlite3_stmt *statement, int place) const;

  private:
    enum class Type { null, whole, real, text, blob };

    void setText(const char *text)
    {
        if (text != nullptr) {
            m_type = Type::text;
            m_text = text;
        }
    }

    Type m_type = Type::null;
    int64_t m_whole = 0;
    double m_real = 0;
    std::string_view m_text;
};

struct Cell {
    const char *column;
    Value value;
};

using Row = std::vector<Cell>;

// Adds rows to one table. All rows of a table have the columns of its first.
class Table
{
  public:
    Table(Database &database, std::string name);
    ~Table() { sqlite3_finalize(m_insert); }
    Table(Table &&other) noexcept
        : m_database(other.m_database), m_name(std::move(other.m_name)),
          m_insert(std::exchange(other.m_insert, nullptr)),
          m_columns(other.m_columns)
    {
    }
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;
    Table &operator=(Table &&) = delete;

    void add(const Row &row);

  private:
    void prepare(const Row &row);

    Database &m_database;
    std::string m_name;
    sqlite3_stmt *m_insert = nullptr;
    size_t m_columns = 0;
};

} // namespace sim
