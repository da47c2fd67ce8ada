#include "tarnifs/media/generation.h"

#include <cstring>
#include <set>
#include <string>
#include <vector>

#include <sqlite3.h>

#include "tarnifs/media/sql.h"
#include "tarnifs/media/statement.h"
#include "util/log.h"

namespace
{

// A column that our queries use, and what stands in where there is none.
struct COLUMN {
    const char *name;
    const char *otherwise;
};

// For a column that not every sound generation has: without it, it is left out.
constexpr const char *LEFT_OUT = nullptr;

struct TABLE {
    const char *name;
    std::vector<COLUMN> columns;
};

const std::vector<TABLE> &photoTables()
{
    static const std::vector<TABLE> tables = {
        {"ZGENERICASSET",
         {{"Z_PK", "NULL"},
          {"Z_ENT", "NULL"},
          {"Z_OPT", "NULL"},
          {"ZKIND", "0"},
          {"ZKINDSUBTYPE", "0"},
          {"ZTRASHEDSTATE", "0"},
          {"ZVISIBILITYSTATE", "0"},
          {"ZAVALANCHEPICKTYPE", "0"},
          {"ZADDITIONALATTRIBUTES", "NULL"},
          {"ZMASTER", LEFT_OUT}, // from 9.3 on
          {"ZMOMENT", "NULL"},
          {"ZDATECREATED", "NULL"},
          {"ZMODIFICATIONDATE", "NULL"},
          {"ZDIRECTORY", "NULL"},
          {"ZFILENAME", "NULL"},
          {"ZUUID", "NULL"},
          {"ZCLOUDASSETGUID", "NULL"}}},
        {"ZADDITIONALASSETATTRIBUTES",
         {{"Z_PK", "NULL"},
          {"ZASSET", "NULL"},
          {"ZCAMERACAPTUREDEVICE", "0"},
          {"ZORIGINALFILENAME", "NULL"},
          {"ZORIGINALFILESIZE", "NULL"},
          {"ZCLOUDMASTER", LEFT_OUT}}}, // before 9.3
        {"ZMOMENT", {{"Z_PK", "NULL"}, {"ZREPRESENTATIVEDATE", "NULL"}}},
        {"ZGENERICALBUM",
         {{"Z_PK", "NULL"},
          {"ZTITLE", "NULL"},
          {"ZKIND", "NULL"},
          {"ZCACHEDCOUNT", "1"},
          {"ZTRASHEDSTATE", "0"}}},
    };
    return tables;
}

bool hasTable(const char *self, sqlite3 *database, const std::string &name)
{
    Statement query(self, database, HasTableQuery(name));
    return query.ready() && query.next();
}

std::set<std::string> columnsOf(const char *self, sqlite3 *database,
                                const std::string &table)
{
    std::set<std::string> names;
    Statement query(self, database, ColumnsQuery(table));
    while (query.ready() && query.next()) {
        names.insert(query.text(1));
    }
    return names;
}

// A file that is no database, or is damaged at its root, shows at the first
// question.
bool isReadable(const char *self, sqlite3 *database)
{
    const Statement query(self, database, HasTableQuery(""));
    if (!query.ready()) {
        QNLog(3, "%s database can't be read. code : %d, msg(%s)", self,
              query.code(), sqlite3_errmsg(database));
    }
    return query.ready();
}

// The select list of a view of `table` over `source`, of which `present` are the
// columns. *complete: the table itself would do.
std::string selectList(const char *self, const TABLE &table,
                       const std::string &source,
                       const std::set<std::string> &present, bool *complete)
{
    const bool renamed = source != table.name;
    *complete = !renamed;
    std::string list;
    for (const COLUMN &column : table.columns) {
        const bool isPresent = present.contains(column.name);
        if (!isPresent && column.otherwise == LEFT_OUT) {
            continue;
        }
        list += list.empty() ? "" : ", ";
        if (!isPresent) {
            QNLog(3, "%s column is missing. table : %s, column : %s", self,
                  source.c_str(), column.name);
            *complete = false;
            list += std::string(column.otherwise) + " AS ";
        } else if (renamed && strcmp(column.name, "Z_ENT") == 0) {
            // The rows of old were of a sub-entity, numbered one higher.
            list += "Z_ENT+1 AS ";
        }
        list += column.name;
    }
    return list;
}

// A table that is not there at all: a view of the same columns and no rows, so
// that what else there is can be joined to it.
void showEmpty(const char *self, sqlite3 *database, const TABLE &table)
{
    QNLog(3, "%s table is missing. table : %s", self, table.name);
    std::string list;
    for (const COLUMN &column : table.columns) {
        list += list.empty() ? "" : ", ";
        list += std::string("NULL AS ") + column.name;
    }
    Execute(self, database, EmptyViewText(table.name, list).c_str());
}

void showAs(const char *self, sqlite3 *database, const TABLE &table,
            const std::string &source)
{
    const std::set<std::string> present = columnsOf(self, database, source);
    bool complete = false;
    const std::string list =
        selectList(self, table, source, present, &complete);
    if (!complete) {
        Execute(self, database, ViewText(table.name, list, source).c_str());
    }
}

// The recording's title: the columns that may hold it, best first. Empty when
// there is none.
std::string titleOf(const std::set<std::string> &present)
{
    std::string choices;
    for (const char *column :
         {"ZENCRYPTEDTITLE", "ZCUSTOMLABELFORSORTING", "ZCUSTOMLABEL"}) {
        if (present.contains(column)) {
            choices += column;
            choices += ", ";
        }
    }
    return choices.empty() ? choices : "coalesce(" + choices + "NULL)";
}

} // namespace

void InstallPhotoViews(sqlite3 *database)
{
    static const char *const self = "InstallPhotoViews";
    if (!isReadable(self, database)) {
        return;
    }
    const bool renamed = hasTable(self, database, "ZASSET") &&
                         !hasTable(self, database, "ZGENERICASSET");
    for (const TABLE &table : photoTables()) {
        const bool isAsset = &table == &photoTables().front();
        const char *source = renamed && isAsset ? "ZASSET" : table.name;
        if (hasTable(self, database, source)) {
            showAs(self, database, table, source);
        } else if (strcmp(table.name, "ZMOMENT") == 0) {
            showEmpty(self, database, table); // gives dates only
        } else {
            QNLog(3, "%s table is missing. table : %s", self, source);
        }
    }
    if (renamed) {
        Execute(self, database, SQL_ENTITY_VIEW);
    }
}

bool InstallRecordingView(sqlite3 *database)
{
    static const char *const self = "InstallRecordingView";
    if (!isReadable(self, database)) {
        return false;
    }
    const std::set<std::string> present =
        columnsOf(self, database, "ZCLOUDRECORDING");
    for (const char *column : {"Z_PK", "ZPATH"}) {
        if (!present.contains(column)) {
            QNLog(3, "%s column is missing. table : %s, column : %s", self,
                  "ZCLOUDRECORDING", column);
            return false;
        }
    }
    const std::string title = titleOf(present);
    if (title.empty()) {
        QNLog(3, "%s column is missing. table : %s, column : %s", self,
              "ZCLOUDRECORDING", "ZCUSTOMLABEL");
        return false;
    }
    const std::string view =
        RecordingViewText(title, present.contains("ZDATE") ? "ZDATE" : "NULL",
                          present.contains("ZEVICTIONDATE"));
    return Execute(self, database, view.c_str()) == SQLITE_OK;
}
