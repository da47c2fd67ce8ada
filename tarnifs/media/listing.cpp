#include "tarnifs/media/listing.h"

#include "util/log.h"

bool ConnectionWatch::isLost(int code)
{
    return code == LIBIUSB_ERROR_LOST_CONNECTION ||
           code == LIBIUSB_ERROR_NO_DEVICE || code == LIBIUSB_ERROR_MUX ||
           code == LIBIUSB_ERROR_DEVICE_LOCKED ||
           code == LIBIUSB_ERROR_TRUST_PENDING ||
           code == LIBIUSB_ERROR_NO_DAEMON ||
           code <= LIBIUSB_ERROR_TRUST_DENIED;
}

void ConnectionWatch::note(int code)
{
    lostInRow = isLost(code) ? lostInRow + 1 : 0;
}

int AskDevice(MEDIA_LISTING *listing, const std::string &devicePath,
              libiusb_afc_file_info *info)
{
    ConnectionWatch &connection = listing->connection;
    int ret = 0;
    do {
        ret = libiusb_afc_file_get_info(listing->context->afc_handle,
                                        devicePath.c_str(), info);
        connection.note(ret);
    } while (ConnectionWatch::isLost(ret) && connection.isFirstLoss());
    if (ConnectionWatch::isLost(ret)) {
        listing->isIncomplete = true;
        NoteListing(listing->folder, false);
    }
    if (ret == 0 && info->file_type == LIBIUSB_FILE_FOLDER) {
        return LIBIUSB_ERROR_AFC_OBJECT_IS_DIR;
    }
    return ret;
}

void Publish(const MEDIA_LISTING &listing, _KTL_OBJECT *object)
{
    if (IsLinked(object)) {
        return;
    }
    LinkChild(listing.folder, object);
    if (listing.filler != nullptr) {
        listing.filler(listing.buffer, object->file_name, nullptr, 0);
    }
}

_KTL_OBJECT *PublishFolder(const MEDIA_LISTING &listing,
                           const std::string &path)
{
    _KTL_OBJECT *folder = GetObjectWithFileName(path.c_str());
    if (!IsLinked(folder)) {
        folder->mode = KTL_MODE_FOLDER;
        folder->type = KTL_DEVICE_FOLDER;
        SetPresentTimes(folder);
        Publish(listing, folder);
    }
    return folder;
}

int64_t CountOf(Statement *query)
{
    return query->next() ? query->integer64(0) : 0;
}

bool IsInside(const char *caller, const std::string &devicePath)
{
    if (!LeadsOut(devicePath)) {
        return true;
    }
    QNLog(3, "%s path leads out of the media folder. path(%s)", caller,
          devicePath.c_str());
    return false;
}

bool HasUsableTexts(const MEDIA_LISTING &listing, const Statement &row)
{
    if (!row.isTooLong()) {
        return true;
    }
    QNLog(3, "%s text is too long, row left out. path(%s)", "enumMedia",
          listing.path);
    return false;
}

void AskAhead(const MEDIA_LISTING &listing,
              const std::vector<const std::string *> &paths)
{
    if (paths.empty()) {
        return;
    }
    std::vector<const char *> texts;
    texts.reserve(paths.size());
    for (const std::string *path : paths) {
        texts.push_back(path->c_str());
    }
    // Whether it could be done shows in the answers.
    libiusb_afc_prefetch_info(listing.context->afc_handle, texts.data(),
                              texts.size());
}
