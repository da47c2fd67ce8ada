#include "tarnifs/notify/tray_pipe.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>

#include "util/log.h"

std::deque<PKTL_PIPE_DATA_BOX> &gQueue = *new std::deque<PKTL_PIPE_DATA_BOX>;
std::mutex gQueueLock;
const char *trayPipePath = "/tmp/QNNOTIPIPE";

namespace
{

constexpr size_t HEADER_SIZE = 18;
constexpr size_t COUNT_OFFSET = 14;
constexpr uint32_t BATCH_RECORDS = 30;
constexpr size_t BATCH_SIZE =
    HEADER_SIZE + BATCH_RECORDS * sizeof(_KTL_PIPE_DATA_BOX_FS_VALUE);
constexpr int READY_MS = 10;
constexpr useconds_t IDLE_US = 1000;
constexpr useconds_t AFTER_BATCH_US = 300;

// Anybody may put something under the pipe's name in a shared folder: only a
// real pipe is written to. -1 with errno.
int openPipe()
{
    const int fd =
        open(trayPipePath, O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) {
        return -1;
    }
    struct stat st {
    };
    if (fstat(fd, &st) == 0 && S_ISFIFO(st.st_mode)) {
        return fd;
    }
    close(fd);
    errno = ENXIO;
    return -1;
}

// Waits a moment for the pipe, as `select` with the descriptor in the read set
// does but for descriptors of any number, and writes.
int writePipe(const char *self, int fd, const char *buf, size_t len)
{
    pollfd ready{fd, POLLIN, 0};
    if (poll(&ready, 1, READY_MS) == -1) {
        const int error = errno;
        QNLog(3, "%s select failed. errno : %d", self, error);
        return -error;
    }
    if (write(fd, buf, len) == -1) {
        const int error = errno;
        QNLog(3, "%s write error. errno : %d", self, error);
        return -error;
    }
    return 0;
}

int sendBytes(const char *self, const char *buf, size_t len)
{
    const int fd = openPipe();
    if (fd < 0) {
        const int error = errno;
        QNLog(3, "%s open pipe failed. errno : %d", self, error);
        return -error;
    }
    const int result = writePipe(self, fd, buf, len);
    close(fd);
    return result;
}

PKTL_PIPE_DATA_BOX popBox()
{
    const std::lock_guard<std::mutex> guard(gQueueLock);
    if (gQueue.empty()) {
        return nullptr;
    }
    PKTL_PIPE_DATA_BOX box = gQueue.front();
    gQueue.pop_front();
    return box;
}

// Fills a batch from the front of the queue; returns the number of records.
uint32_t takeBatch(char (&message)[BATCH_SIZE])
{
    memset(message, 0, sizeof(message));
    memcpy(message, "-ncdat", 6);
    uint32_t count = 0;
    while (count < BATCH_RECORDS) {
        PKTL_PIPE_DATA_BOX box = popBox();
        if (box == nullptr) {
            break;
        }
        memcpy(message + HEADER_SIZE + count * sizeof(*box), box, sizeof(*box));
        free(box);
        ++count;
    }
    memcpy(message + COUNT_OFFSET, &count, sizeof(count));
    return count;
}

void setExtension(PKTL_PIPE_DATA_BOX box, const char *fileName)
{
    if (fileName == nullptr) {
        return;
    }
    const char *dot = strrchr(fileName, '.');
    const char *text = dot == nullptr ? fileName : dot + 1;
    memcpy(box->extension, text, strnlen(text, sizeof(box->extension) - 1));
}

} // namespace

int sendPipeMsg(const char *msg)
{
    return sendBytes("sendPipeMsg", msg, strlen(msg));
}

int sendPipeData(const char *buf, size_t len)
{
    return sendBytes("sendPipeData", buf, len);
}

void QueueTransfer(uint32_t kind, uint64_t size, const char *fileName)
{
    auto *box = static_cast<PKTL_PIPE_DATA_BOX>(
        calloc(1, sizeof(_KTL_PIPE_DATA_BOX_FS_VALUE)));
    if (box == nullptr) {
        QNLog(3, "%s PKTL_PIPE_DATA_BOX alloc failed", "tarnifs_release");
        return;
    }
    box->kind = kind;
    box->size = size;
    setExtension(box, fileName);
    const std::lock_guard<std::mutex> guard(gQueueLock);
    gQueue.push_back(box);
}

void DrainQueue()
{
    while (PKTL_PIPE_DATA_BOX box = popBox()) {
        free(box);
    }
}

void sendDataToTheTrayThread(_CONTEXT *context)
{
    char message[BATCH_SIZE];
    while (context->tray_run == 1) {
        const uint32_t count = takeBatch(message);
        if (count == 0) {
            usleep(IDLE_US);
            continue;
        }
        sendPipeData(message,
                     HEADER_SIZE + count * sizeof(_KTL_PIPE_DATA_BOX_FS_VALUE));
        usleep(AFTER_BATCH_US);
    }
}

void StartTrayThread(_CONTEXT *context)
{
    context->tray_run = 1;
    try {
        context->tray_thread =
            new boost::thread(sendDataToTheTrayThread, context);
    } catch (const std::exception &error) {
        QNLog(3, "%s tray thread create fail. %s", "tarnifs_init",
              error.what());
    }
}

bool StopTrayThread(_CONTEXT *context)
{
    boost::thread *thread = context->tray_thread;
    if (thread == nullptr) {
        return true;
    }
    bool ended = true;
    if (thread->joinable()) {
        context->tray_run = 0;
        ended = thread->timed_join(boost::get_system_time() +
                                   boost::posix_time::seconds(2));
    }
    delete thread; // detaches one that still runs
    context->tray_thread = nullptr;
    return ended;
}
