#include "tarnifs/media/generation.h"

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <sqlite3.h>

#include "tarnifs/media/sql.h"
#include "tarnifs/media/statement.h"
#include "util/log.h"

namespace
{

// A table that our queries ask, with the columns they use.
struct TABLE {
    const char *name;
    std::vector<const char *> columns;
};

const std::vector<TABLE> &photoTables()
{
    static const std::vector<TABLE> tables = {
        {"ZGENERICASSET",
         {"Z_PK", "Z_ENT", "Z_OPT", "ZKIND", "ZKINDSUBTYPE", "ZTRASHEDSTATE",
          "ZVISIBILITYSTATE", "ZAVALANCHEPICKTYPE", "ZADDITIONALATTRIBUTES",
          "ZMASTER", "ZMOMENT", "ZDATECREATED", "ZMODIFICATIONDATE",
          "ZDIRECTORY", "ZFILENAME", "ZUUID", "ZCLOUDASSETGUID"}},
        {"ZADDITIONALASSETATTRIBUTES",
         {"Z_PK", "ZASSET", "ZCAMERACAPTUREDEVICE", "ZORIGINALFILENAME",
          "ZORIGINALFILESIZE"}},
        {"ZMOMENT", {"Z_PK", "ZREPRESENTATIVEDATE"}},
        {"ZGENERICALBUM",
         {"Z_PK", "ZTITLE", "ZKIND", "ZCACHEDCOUNT", "ZTRASHEDSTATE"}},
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

void execute(const char *self, sqlite3 *database, const std::string &sql)
{
    const int ret =
        sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr);
    if (ret != SQLITE_OK) {
        QNLog(3, "%s sqlite3_exec failed. code : %d, msg(%s)", self, ret,
              sqlite3_errmsg(database));
    }
}

// The select list of a view of `table` over `source`. *complete: the table
// itself would do.
std::string selectList(const char *self, const TABLE &table,
                       const std::string &source,
                       const std::set<std::string> &present, bool *complete)
{
    const bool renamed = source != table.name;
    *complete = !renamed;
    std::string list;
    for (const std::string_view column : table.columns) {
        list += list.empty() ? "" : ", ";
        if (!present.contains(std::string(column))) {
            QNLog(3, "%s column is missing. table : %s, column : %s", self,
                  source.c_str(), column.data());
            *complete = false;
            list += "NULL AS ";
        } else if (renamed && column == "Z_ENT") {
            // The rows of old were of a sub-entity, numbered one higher.
            list += "Z_ENT+1 AS ";
        }
        list += column;
    }
    return list;
}

void showAs(const char *self, sqlite3 *database, const TABLE &table,
            const std::string &source)
{
    if (!hasTable(self, database, source)) {
        QNLog(3, "%s table is missing. table : %s", self, source.c_str());
        return;
    }
    const std::set<std::string> present = columnsOf(self, database, source);
    bool complete = false;
    const std::string list =
        selectList(self, table, source, present, &complete);
    if (!complete) {
        execute(self, database, ViewText(table.name, list, source));
    }
}

// The recording's title: the columns that may hold it, best first.
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
    return "coalesce(" + choices + "NULL, NULL)";
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
        showAs(self, database, table,
               renamed && isAsset ? "ZASSET" : table.name);
    }
    if (renamed) {
        execute(self, database, SQL_ENTITY_VIEW);
    }
}

bool InstallRecordingView(sqlite3 *database)
{
    static const char *const self = "InstallRecordingView";
    const std::set<std::string> present =
        columnsOf(self, database, "ZCLOUDRECORDING");
    for (const char *column : {"Z_PK", "ZPATH"}) {
        if (!present.contains(column)) {
            QNLog(3, "%s column is missing. table : %s, column : %s", self,
                  "ZCLOUDRECORDING", column);
            return false;
        }
    }
    execute(self, database,
            RecordingViewText(titleOf(present),
                              present.contains("ZDATE") ? "ZDATE" : "NULL",
                              present.contains("ZEVICTIONDATE")));
    return true;
}
