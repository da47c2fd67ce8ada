#include "tarnifs/media/databases.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <set>
#include <string>

#include <sqlite3.h>

#include "device/libiusb.h"
#include "tarnifs/catalogue/object.h"
#include "tarnifs/media/download.h"
#include "tarnifs/media/generation.h"
#include "tarnifs/media/listing.h"
#include "tarnifs/media/sql.h"
#include "tarnifs/mount/private_folder.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "DownloadDBandOpen";
// More than this together is worth telling the tray helper, in bytes.
constexpr uint64_t LONG_DOWNLOAD = 3000000;
// Of all databases together, in bytes; the largest libraries sort in a tenth.
constexpr sqlite3_int64 MOST_MEMORY = 256 << 20;

struct DATABASE {
    const char *device; // path on the media file system
    const char *local;  // name in the private folder
    const char *logTag;
    sqlite3 *_CONTEXT::*handle;
};

constexpr DATABASE DATABASES[] = {
    {"/iTunes_Control/iTunes/MediaLibrary.sqlitedb", "/MediaLibrary.sqlitedb",
     "Mediadb", &_CONTEXT::media_db},
    {"/PhotoData/Photos.sqlite", "/Photos.sqlite", "Photodb",
     &_CONTEXT::photo_db},
    {"/Recordings/Recordings.db", "/Recordings.db", "Recoddb",
     &_CONTEXT::record_db},
};
// Newer devices keep their recordings here, some of them where we can see it.
constexpr DATABASE CLOUD_RECORDINGS = {"/Recordings/CloudRecordings.db",
                                       "/CloudRecordings.db", "Recoddb",
                                       &_CONTEXT::record_db};

// A database is these files together; the last is SQLite's own, of a writer.
constexpr const char *DEVICE_SUFFIXES[] = {"", "-shm", "-wal"};
constexpr const char *LOCAL_SUFFIXES[] = {"", "-shm", "-wal", "-journal"};

// Those that could not be had for want of a connection. The caller holds
// tarni_mutex.
std::set<const DATABASE *> toFetchAgain;

void closeDatabase(sqlite3 **database)
{
    if (*database != nullptr) {
        sqlite3_close(*database);
        *database = nullptr;
    }
}

void removeCopy(const _CONTEXT *context, const DATABASE &database)
{
    for (const char *suffix : LOCAL_SUFFIXES) {
        const std::string local =
            PrivateFolder(context) + database.local + suffix;
        if (unlink(local.c_str()) != 0 && errno != ENOENT) {
            QNLog(3, "%s unlink failed. path(%s). errno : %d", "removeCopy",
                  local.c_str(), errno);
        }
    }
}

// Bytes of the three main files; what can't be asked about counts nothing.
uint64_t totalSize(_CONTEXT *context, ConnectionWatch *connection)
{
    uint64_t total = 0;
    for (const DATABASE &database : DATABASES) {
        libiusb_afc_file_info info{};
        const int ret = libiusb_afc_file_get_info(context->afc_handle,
                                                  database.device, &info);
        connection->note(ret);
        if (ret != 0) {
            QNLog(3,
                  "%s libiusb_afc_file_get_info failed. code : %d, path : %s",
                  SELF, ret, database.logTag);
        }
        total += info.size;
    }
    return total;
}

// How a file's copy went.
enum class COPY { DONE, NONE_THERE, FAILED, LOST };

COPY fetchFile(_CONTEXT *context, const std::string &device,
               const std::string &local, ConnectionWatch *connection)
{
    if (connection->isGone()) {
        return COPY::LOST;
    }
    const int ret = downloadfile(context, device.c_str(), local.c_str());
    connection->note(ret);
    if (ConnectionWatch::isLost(ret)) {
        return COPY::LOST;
    }
    if (ret == LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND) {
        return COPY::NONE_THERE;
    }
    // A copy that broke off was removed, and may still have ended well.
    const bool isThere =
        access((PrivateFolder(context) + local).c_str(), F_OK) == 0;
    return ret == 0 && isThere ? COPY::DONE : COPY::FAILED;
}

// Copies a database's files and nothing else: what an earlier copy had beside
// it goes first. Without its log a database would show an older state, so that
// it is all or nothing. *lost: for want of a connection.
void fetch(_CONTEXT *context, const DATABASE &database,
           ConnectionWatch *connection, bool *lost)
{
    removeCopy(context, database);
    for (const char *suffix : DEVICE_SUFFIXES) {
        const COPY result =
            fetchFile(context, std::string(database.device) + suffix,
                      std::string(database.local) + suffix, connection);
        *lost = *lost || result == COPY::LOST;
        // SQLite makes an index of the log anew.
        const bool needed = strcmp(suffix, "-shm") != 0;
        if (needed && (result == COPY::FAILED || result == COPY::LOST)) {
            removeCopy(context, database);
            return;
        }
    }
}

int fetchAndOpen(_CONTEXT *context, const DATABASE &database,
                 ConnectionWatch *connection)
{
    sqlite3 *&handle = context->*database.handle;
    closeDatabase(&handle);
    bool lost = false;
    fetch(context, database, connection, &lost);
    const int ret = opendb(context, database.local, &handle);
    if (handle == nullptr && lost) {
        toFetchAgain.insert(&database);
    } else {
        toFetchAgain.erase(&database);
    }
    return ret;
}

// A question that can't be asked is logged with what is missing.
bool hasRecordings(sqlite3 *database)
{
    Statement query(SELF, database, SQL_COUNT_MEMOS);
    if (database != nullptr && !query.ready()) {
        QNLog(3, "%s recorddb can't be asked. code : %d, msg(%s)", SELF,
              query.code(), sqlite3_errmsg(database));
    }
    return query.ready() && CountOf(&query) != 0;
}

// The newer recordings database serves where the older one has nothing.
void openNewerRecordings(_CONTEXT *context, ConnectionWatch *connection)
{
    if (hasRecordings(context->record_db)) {
        return;
    }
    sqlite3 *newer = nullptr;
    bool lost = false;
    fetch(context, CLOUD_RECORDINGS, connection, &lost);
    if (lost) {
        toFetchAgain.insert(&DATABASES[2]);
    }
    opendb(context, CLOUD_RECORDINGS.local, &newer);
    if (newer != nullptr && InstallRecordingView(newer)) {
        closeDatabase(&context->record_db);
        context->record_db = newer;
        return;
    }
    closeDatabase(&newer);
}

// What a made-up file could do to the process is switched off: code in the
// schema, virtual tables, mapped pages, texts and patterns without bounds.
void harden(sqlite3 *database)
{
    sqlite3_db_config(database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(database, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(database, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    // Of the file's own views; temporary ones are not concerned.
    sqlite3_db_config(database, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
    sqlite3_db_config(database, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    sqlite3_drop_modules(database, nullptr);
    sqlite3_limit(database, SQLITE_LIMIT_LENGTH, 1 << 20);
    sqlite3_limit(database, SQLITE_LIMIT_SQL_LENGTH, 1 << 20);
    sqlite3_limit(database, SQLITE_LIMIT_LIKE_PATTERN_LENGTH, 64);
    sqlite3_limit(database, SQLITE_LIMIT_ATTACHED, 0);
    sqlite3_limit(database, SQLITE_LIMIT_TRIGGER_DEPTH, 1);
    // Sorting happens in memory, and a query that needs more than this fails.
    sqlite3_hard_heap_limit64(MOST_MEMORY);
    Execute("opendb", database,
            "PRAGMA trusted_schema=OFF; PRAGMA mmap_size=0; "
            "PRAGMA cell_size_check=ON; PRAGMA temp_store=MEMORY");
}

// All of DownloadDBandOpen, or of what is to be fetched again.
int fetchDatabases(_CONTEXT *context, bool all, ConnectionWatch *connection)
{
    int ret = 0;
    for (const DATABASE &database : DATABASES) {
        if (!all && !toFetchAgain.contains(&database)) {
            continue;
        }
        ret = fetchAndOpen(context, database, connection);
        sqlite3 *handle = context->*database.handle;
        if (database.handle == &_CONTEXT::photo_db && handle != nullptr) {
            InstallPhotoViews(handle);
        } else if (database.handle == &_CONTEXT::record_db) {
            openNewerRecordings(context, connection);
        }
    }
    if (!toFetchAgain.empty()) {
        NoteListing(GetObject("/Media"), false);
    }
    return ret;
}

int downloadAndOpen(_CONTEXT *context)
{
    ConnectionWatch connection;
    BusySignal busy;
    if (totalSize(context, &connection) > LONG_DOWNLOAD) {
        busy.begin();
    }
    return fetchDatabases(context, true, &connection);
}

} // namespace

int DownloadDBandOpen(_CONTEXT *context)
{
    try {
        return downloadAndOpen(context);
    } catch (const std::bad_alloc &) {
        return SQLITE_NOMEM;
    }
}

bool FetchLostDatabases(_CONTEXT *context)
{
    if (!toFetchAgain.empty()) {
        ConnectionWatch connection;
        fetchDatabases(context, false, &connection);
    }
    return toFetchAgain.empty();
}

int opendb(_CONTEXT *context, const char *localName, sqlite3 **out)
{
    static const char *const self = "opendb";
    const std::string local = PrivateFolder(context) + localName;
    struct stat st {
    };
    if (stat(local.c_str(), &st) != 0) {
        QNLog(3, "%s target db not exist", self);
        return 0;
    }
    sqlite3 *database = nullptr;
    const int ret = sqlite3_open(local.c_str(), &database);
    if (ret != SQLITE_OK) {
        QNLog(3, "%s sqlite3_open failed code : %d, msg(%s)", self, ret,
              sqlite3_errmsg(database));
        sqlite3_close(database);
        return ret;
    }
    harden(database);
    *out = database;
    return 0;
}

void CloseDatabases(_CONTEXT *context)
{
    for (const DATABASE &database : DATABASES) {
        closeDatabase(&(context->*database.handle));
    }
    toFetchAgain.clear();
}

void RemoveDatabaseCopies(const _CONTEXT *context)
{
    for (const DATABASE &database : DATABASES) {
        removeCopy(context, database);
    }
    removeCopy(context, CLOUD_RECORDINGS);
}
