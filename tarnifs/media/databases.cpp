#include "tarnifs/media/databases.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
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

// Copies a database's files and nothing else: what an earlier copy had beside
// it goes first.
void fetch(_CONTEXT *context, const DATABASE &database,
           ConnectionWatch *connection)
{
    removeCopy(context, database);
    for (const char *suffix : DEVICE_SUFFIXES) {
        if (!connection->isGone()) {
            const std::string device = std::string(database.device) + suffix;
            const std::string local = std::string(database.local) + suffix;
            connection->note(
                downloadfile(context, device.c_str(), local.c_str()));
        }
    }
}

int fetchAndOpen(_CONTEXT *context, const DATABASE &database,
                 ConnectionWatch *connection)
{
    sqlite3 *&handle = context->*database.handle;
    closeDatabase(&handle);
    fetch(context, database, connection);
    return opendb(context, database.local, &handle);
}

bool hasRecordings(sqlite3 *database)
{
    Statement query(SELF, database, SQL_COUNT_MEMOS);
    return query.ready() && CountOf(&query) != 0;
}

// The newer recordings database serves where the older one has nothing.
void openNewerRecordings(_CONTEXT *context, ConnectionWatch *connection)
{
    if (hasRecordings(context->record_db)) {
        return;
    }
    sqlite3 *newer = nullptr;
    fetch(context, CLOUD_RECORDINGS, connection);
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
    sqlite3_limit(database, SQLITE_LIMIT_LENGTH, 16 << 20);
    sqlite3_limit(database, SQLITE_LIMIT_SQL_LENGTH, 1 << 20);
    sqlite3_limit(database, SQLITE_LIMIT_LIKE_PATTERN_LENGTH, 256);
    sqlite3_limit(database, SQLITE_LIMIT_ATTACHED, 0);
    sqlite3_limit(database, SQLITE_LIMIT_TRIGGER_DEPTH, 1);
    sqlite3_exec(database,
                 "PRAGMA trusted_schema=OFF; PRAGMA mmap_size=0; "
                 "PRAGMA cell_size_check=ON; PRAGMA temp_store=MEMORY",
                 nullptr, nullptr, nullptr);
}

} // namespace

int DownloadDBandOpen(_CONTEXT *context)
{
    ConnectionWatch connection;
    BusySignal busy;
    if (totalSize(context, &connection) > LONG_DOWNLOAD) {
        busy.begin();
    }
    int ret = 0;
    for (const DATABASE &database : DATABASES) {
        ret = fetchAndOpen(context, database, &connection);
    }
    if (context->photo_db != nullptr) {
        InstallPhotoViews(context->photo_db);
    }
    openNewerRecordings(context, &connection);
    if (connection.wasLost() && context->media_db == nullptr &&
        context->photo_db == nullptr) {
        NoteListing(GetObject("/Media"), false);
    }
    return ret;
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
}

void RemoveDatabaseCopies(const _CONTEXT *context)
{
    for (const DATABASE &database : DATABASES) {
        removeCopy(context, database);
    }
    removeCopy(context, CLOUD_RECORDINGS);
}
