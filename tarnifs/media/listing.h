// What the listings of all media folders share: the entries they make, the
// questions to the device, and how rows become both.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "device/libiusb.h"
#include "tarnifs/catalogue/object.h"
#include "tarnifs/media/naming.h"
#include "tarnifs/media/statement.h"
#include "tarnifs/mount/context.h"
#include "tarnifs/mount/host.h"
#include "tarnifs/notify/busy_signal.h"

// Follows the results of device calls. One lost connection is made up for by the
// next call; several in a row mean that the device is gone, or back and still
// locked, and asking on would cost a wait each time.
class ConnectionWatch
{
  public:
    // Whether a code tells of the connection, not of the file asked about.
    static bool isLost(int code);

    void note(int code);
    bool isGone() const { return lostInRow >= MOST_LOST; }
    // Whether the last call was the first in a row to be lost.
    bool isFirstLoss() const { return lostInRow == 1; }

  private:
    static constexpr int MOST_LOST = 3;
    int lostInRow = 0;
};

// One run of enumMedia.
struct MEDIA_LISTING {
    _CONTEXT *context;
    const char *path;
    _KTL_OBJECT *folder; // record of `path`
    void *buffer;
    tarni_filler filler; // null: records only
    FreeNames names;
    ConnectionWatch connection;
    bool isIncomplete = false; // the device gave no answer about an item
};

// libiusb_afc_file_get_info on the media file system. A folder, which is no
// entry of these views, is AFC_OBJECT_IS_DIR. After a lost connection the
// question is asked once more; without an answer then the listing fails.
int AskDevice(MEDIA_LISTING *listing, const std::string &devicePath,
              libiusb_afc_file_info *info);

// Links a record at the end of the folder and announces it; one that is linked
// already stays as it is.
void Publish(const MEDIA_LISTING &listing, _KTL_OBJECT *object);

// The record of a folder in the listed one, made and published unless it is
// there already.
_KTL_OBJECT *PublishFolder(const MEDIA_LISTING &listing,
                           const std::string &path);

// The first column of a query's first row, 0 without one.
int64_t CountOf(Statement *query);

// Whether a path that a database gives lies below the root of the media file
// system; one that does not is logged.
bool IsInside(const char *caller, const std::string &devicePath);

// Whether a row's texts can be names and paths; one too long is logged.
bool HasUsableTexts(const MEDIA_LISTING &listing, const Statement &row);

// Asks the device about several paths ahead.
void AskAhead(const MEDIA_LISTING &listing,
              const std::vector<const std::string *> &paths);

constexpr size_t ROWS_AHEAD = 256;

// Goes through the rows of a query, a batch at a time: the device is asked ahead
// about all files of a batch, so that a row costs a request and no round trip.
// `take` reads a row and tells whether it is of use; `paths` adds the addresses
// of the paths in the order in which `use` will ask about them; `use` makes the
// entries and stops the walk with a result that is not 0. LOST_CONNECTION when
// the device is gone, or gave no answer about an item: part of a folder must not
// pass for all of it.
template <typename ROW, typename Take, typename Paths, typename Use>
int ForEachRow(MEDIA_LISTING *listing, Statement *query, Take take, Paths paths,
               Use use)
{
    std::vector<ROW> rows;
    std::vector<const std::string *> ahead;
    bool more = true;
    while (more) {
        rows.clear();
        while (rows.size() < ROWS_AHEAD && (more = query->next())) {
            ROW row;
            if (HasUsableTexts(*listing, *query) && take(*query, &row)) {
                rows.push_back(std::move(row));
            }
        }
        ahead.clear();
        for (const ROW &row : rows) {
            paths(row, &ahead);
        }
        AskAhead(*listing, ahead);
        for (const ROW &row : rows) {
            const int ret = use(row);
            if (ret != 0) {
                return ret;
            }
            if (listing->connection.isGone()) {
                return LIBIUSB_ERROR_LOST_CONNECTION;
            }
        }
    }
    return listing->isIncomplete ? LIBIUSB_ERROR_LOST_CONNECTION : 0;
}
