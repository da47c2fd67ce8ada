#include "tarnifs/media/databases.h"

#include <sqlite3.h>

namespace
{

void closeDatabase(sqlite3 **database)
{
    if (*database != nullptr) {
        sqlite3_close(*database);
        *database = nullptr;
    }
}

} // namespace

int DownloadDBandOpen(_CONTEXT *)
{
    return 0;
}

void CloseDatabases(_CONTEXT *context)
{
    closeDatabase(&context->media_db);
    closeDatabase(&context->photo_db);
    closeDatabase(&context->record_db);
}
