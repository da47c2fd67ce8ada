#include "helper/copy_run.h"

#include <sys/eventfd.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "helper/copy_queue.h"

namespace helper
{

namespace
{

constexpr size_t NO_FILE = SIZE_MAX;

// Reads until the buffer is full or the file ends; -1 with errno.
ssize_t readFull(int fd, char *data, size_t length)
{
    size_t done = 0;
    while (done < length) {
        const ssize_t n = read(fd, data + done, length - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            return -1;
        }
        if (n == 0) {
            break;
        }
        done += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(done);
}

// What of a failed file is of no use for the next time.
bool worthKeeping(int error)
{
    return error != ENOSPC && error != EDQUOT && error != EFBIG;
}

} // namespace

// A volume shows its refusals to people and gives programs this one error.
const char *copyReason(int error)
{
    return error == ECANCELED ? message::COPY_REFUSED : strerrordesc_np(error);
}

CopyRun::CopyRun(const CopyPlan &what, std::vector<std::string> which)
    : plan(what), udids(std::move(which)), given_up(NO_FILE),
      queue(std::make_unique<CopyQueue>()),
      over(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      reader([this] { readFiles(); }), writer([this] { writeFiles(); })
{
}

CopyRun::~CopyRun()
{
    stop();
    reader.join();
    writer.join();
}

// ---------------------------------------------------------------------------
// Reading

// One piece after the other; the last one tells whether it went well.
void CopyRun::readFile(size_t index)
{
    const CopyFile &file = plan.files[index];
    CopyPiece piece;
    piece.file = index;
    piece.first = true;
    piece.offset = partialSize(file);
    uint64_t at = piece.offset;
    const Descriptor fd(open(file.source.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.open() ||
        (at > 0 && lseek(fd.get(), static_cast<off_t>(at), SEEK_SET) < 0)) {
        piece.error = errno;
    }
    while (!piece.last) {
        piece.data = queue->buffer();
        if (piece.error == 0) {
            const size_t wanted =
                std::min<uint64_t>(COPY_PIECE, file.size - at);
            const ssize_t n = readFull(fd.get(), piece.data.get(), wanted);
            piece.error = n < 0 ? errno : 0;
            piece.length = n < 0 ? 0 : static_cast<size_t>(n);
            at += piece.length;
            if (n >= 0 && piece.length < wanted) {
                piece.error = EIO;
                piece.why =
                    fill(message::COPY_SHORTER,
                         {std::to_string(at), std::to_string(file.size)});
            }
        }
        const bool given = given_up == index || stopping;
        piece.last = piece.error != 0 || at == file.size || given;
        if (piece.last && piece.error == 0 && at < file.size) {
            piece.error = EINTR;
        }
        CopyPiece next;
        next.file = index;
        const bool last = piece.last;
        queue->push(std::move(piece));
        piece = std::move(next);
        piece.last = last;
    }
}

void CopyRun::readFiles()
{
    for (size_t i = 0; i < plan.files.size() && !stopping; ++i) {
        readFile(i);
    }
    queue->close();
}

// ---------------------------------------------------------------------------
// Writing

// What is being written, and whether it still can be.
struct Writing {
    CopyTarget target;
    int error = 0;
    std::string why;
};

static void writePiece(Writing &writing, const CopyFile &file,
                       const CopyPiece &piece, bool to_device)
{
    if (piece.first) {
        writing.why.clear();
        // A source that cannot be opened makes no target.
        writing.error =
            piece.error != 0 && piece.length == 0
                ? piece.error
                : writing.target.begin(file, piece.offset, to_device);
    }
    if (writing.error == 0) {
        writing.error = writing.target.write(piece.data.get(), piece.length);
    }
    if (writing.error == 0 && piece.error != 0) {
        writing.error = piece.error;
        writing.why = piece.why;
    }
    uint64_t actual = 0;
    if (writing.error == 0 && piece.last) {
        writing.error = writing.target.finish(&actual);
        if (writing.error == EIO && actual != file.size) {
            writing.why =
                fill(message::COPY_WRONG_SIZE,
                     {std::to_string(actual), std::to_string(file.size)});
        }
    }
    if (writing.error != 0) {
        writing.target.abandon(worthKeeping(writing.error));
    }
}

void CopyRun::writeFiles()
{
    Writing writing;
    CopyPiece piece;
    uint64_t of_file = 0; // bytes of the one in work
    while (queue->pop(piece)) {
        const CopyFile &file = plan.files[piece.file];
        if (piece.first) {
            name(file.source);
            figures.resumed += piece.offset;
            figures.bytes += piece.offset;
            of_file = 0;
        }
        if (piece.first || writing.error == 0) {
            writePiece(writing, file, piece, plan.to_device);
            if (writing.error == 0) {
                figures.bytes += piece.length;
                of_file += piece.length;
            } else {
                figures.bytes -= worthKeeping(writing.error) ? 0 : of_file;
                given_up = piece.file;
                fail(file.source, writing.why, writing.error);
            }
        }
        if (piece.last && writing.error == 0) {
            ++figures.files;
        }
        queue->giveBack(std::move(piece.data));
    }
    figures.ended = true;
    eventfd_write(over.get(), 1);
}

// ---------------------------------------------------------------------------
// Failures

bool CopyRun::devicesThere() const
{
    Library library;
    std::vector<libiusb_device *> listed;
    library.list(listed);
    return std::all_of(
        udids.begin(), udids.end(), [&](const std::string &udid) {
            return std::any_of(
                listed.begin(), listed.end(), [&](libiusb_device *one) {
                    const auto place = placeOf(one);
                    return place.location_id != 0 && udid == place.udid;
                });
        });
}

// A file that was merely interrupted has not failed. When the device is gone,
// every other file would only fail as well.
void CopyRun::fail(const std::string &path, const std::string &why, int error)
{
    if (figures.gone || (error == EINTR && stopping)) {
        return;
    }
    ++figures.failed;
    {
        const std::lock_guard<std::mutex> hold(lock);
        problems.push_back({path, why.empty() ? copyReason(error) : why, true});
    }
    if (error == ENOTCONN || !devicesThere()) {
        figures.gone = true;
        stopping = true;
    }
}

std::vector<CopyProblem> CopyRun::takeProblems()
{
    const std::lock_guard<std::mutex> hold(lock);
    return std::exchange(problems, {});
}

void CopyRun::name(const std::string &path)
{
    const std::lock_guard<std::mutex> hold(lock);
    working = path.substr(path.find_last_of('/') + 1);
}

std::string CopyRun::current()
{
    const std::lock_guard<std::mutex> hold(lock);
    return working;
}

} // namespace helper
