#include "tarnifs/namespace/copy.h"

#include <vector>

#include "util/log.h"

namespace
{

constexpr uint32_t PIECE = 65536;                // bytes
constexpr uint64_t LARGE = uint64_t{16} * PIECE; // takes more than a moment

int failedRead(const FILE_COPY &copy, int ret)
{
    QNLog(3, "%s libiusb_afc_file_read failed. from : %s, to : %s, ret : %d",
          copy.self, copy.from, copy.to, ret);
    return ret;
}

int failedWrite(const FILE_COPY &copy, int ret)
{
    QNLog(3, "%s libiusb_afc_file_write failed. from : %s, to : %s, ret : %d",
          copy.self, copy.from, copy.to, ret);
    return ret;
}

// One piece; *count is 0 at the source's end.
int copyPiece(FILE_COPY &copy, std::vector<char> &piece, uint64_t offset,
              uint32_t *count)
{
    int ret = libiusb_afc_file_read(copy.source.afc, copy.source.file,
                                    piece.data(), PIECE, offset, count);
    if (ret != 0) {
        return failedRead(copy, ret);
    }
    if (*count == 0) {
        return 0;
    }
    uint32_t written = 0;
    ret = libiusb_afc_file_write(copy.target.afc, copy.target.file,
                                 piece.data(), *count, offset, &written);
    if (ret == 0 && written != *count) {
        ret = LIBIUSB_ERROR_AFC_WRITE;
    }
    return ret == 0 ? 0 : failedWrite(copy, ret);
}

// A last piece that is fuller than the size promised says that the source has
// grown; it is then followed to its end.
int copyPieces(FILE_COPY &copy)
{
    std::vector<char> piece(copy.info.size == 0 ? 0 : PIECE);
    uint64_t offset = 0;
    bool more = copy.info.size > 0;
    while (more) {
        uint32_t count = 0;
        const int ret = copyPiece(copy, piece, offset, &count);
        if (ret != 0) {
            return ret;
        }
        offset += count;
        if (count == 0 && offset < copy.info.size) {
            return failedRead(copy, LIBIUSB_ERROR_AFC_END_OF_DATA);
        }
        more = offset < copy.info.size ||
               (offset > copy.info.size && count == PIECE);
    }
    copy.info.size = offset;
    return 0;
}

// A source that was read up to a size that ends a piece may have grown after
// that, and a large one was on its way for a while. One that will be removed must
// be as it was read.
int checkUnchanged(const FILE_COPY &copy)
{
    if (copy.sourceStays ||
        (copy.info.size % PIECE != 0 && copy.info.size < LARGE)) {
        return 0;
    }
    libiusb_afc_file_info info{};
    const int ret = libiusb_afc_file_get_info(copy.sourceAfc,
                                              copy.sourcePath.c_str(), &info);
    if (ret != 0) {
        return failedRead(copy, ret);
    }
    return info.size == copy.info.size
               ? 0
               : failedRead(copy, LIBIUSB_ERROR_AFC_OBJECT_BUSY);
}

} // namespace

HouseClient::~HouseClient()
{
    if (close() != 0) {
        close();
    }
}

int HouseClient::open(const _CONTEXT *context, const char *appId,
                      const char *self, const char *word)
{
    int ret = libiusb_housearrest_init(context->device_handle, &handle);
    if (ret != 0) {
        QNLog(3, "%s libiusb_housearrest_init failed%s : %d", self, word, ret);
        return ret;
    }
    ret = libiusb_housearrest_openapp(handle, appId);
    if (ret != 0) {
        QNLog(3, "%s libiusb_housearrest_openapp failed%s : %d", self, word,
              ret);
    }
    return ret;
}

int HouseClient::close()
{
    const int ret = handle == nullptr ? 0 : libiusb_housearrest_exit(handle);
    if (ret == 0) {
        handle = nullptr;
    }
    return ret;
}

DeviceFile::~DeviceFile()
{
    close();
}

int DeviceFile::open(libiusb_afc *connection, const std::string &path, int mode)
{
    afc = connection;
    return libiusb_afc_file_open(connection, path.c_str(), mode, &file);
}

int DeviceFile::close()
{
    if (file == 0) {
        return 0;
    }
    const int ret = libiusb_afc_file_close(afc, file);
    file = 0;
    return ret;
}

Announcement::~Announcement()
{
    giveUp();
}

void Announcement::giveUp()
{
    if (afc != nullptr) {
        libiusb_afc_prefetch_file(afc, nullptr);
        afc = nullptr;
    }
}

void Announcement::make(libiusb_afc *connection, const std::string &path)
{
    afc = connection;
    libiusb_afc_prefetch_file(connection, path.c_str());
}

void AnnounceSource(FILE_COPY &copy)
{
    copy.announcement.make(copy.sourceAfc, copy.sourcePath);
}

int AskSource(FILE_COPY &copy)
{
    return libiusb_afc_file_get_info(copy.sourceAfc, copy.sourcePath.c_str(),
                                     &copy.info);
}

int OpenSource(FILE_COPY &copy)
{
    copy.announcement.taken();
    return copy.source.open(copy.sourceAfc, copy.sourcePath, LIBIUSB_MODE_READ);
}

int OpenTarget(FILE_COPY &copy)
{
    return copy.target.open(copy.targetAfc, copy.targetPath,
                            LIBIUSB_MODE_WRITE);
}

int CopyFile(FILE_COPY &copy)
{
    libiusb_afc_file_write_behind(copy.target.afc, copy.target.file);
    int ret = copyPieces(copy);
    // Written, and both closed, in one flight.
    libiusb_afc_file_close_ahead(copy.target.afc, copy.target.file);
    libiusb_afc_file_close_ahead(copy.source.afc, copy.source.file);
    const int drained =
        libiusb_afc_file_drain(copy.target.afc, copy.target.file);
    if (ret == 0 && drained != 0) {
        ret = failedWrite(copy, drained);
    }
    const int closed = copy.target.close();
    if (ret == 0 && closed != 0) {
        ret = failedWrite(copy, closed);
    }
    return ret == 0 ? checkUnchanged(copy) : ret;
}

void NoteUnfinished(const FILE_COPY &copy, _KTL_OBJECT *folder,
                    _KTL_OBJECT *target)
{
    libiusb_afc_file_info info{};
    if (libiusb_afc_file_get_info(copy.targetAfc, copy.targetPath.c_str(),
                                  &info) == 0) {
        target->size = info.size;
    } else {
        NoteListing(folder, false);
    }
}
