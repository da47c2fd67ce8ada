// News for the tray helper through its named pipe: busy signals around long
// device work, written by the operation concerned, and batches of file-transfer
// records, queued by release and sent by a background thread. The pipe belongs
// to the helper and is never made here; without a reader everything is dropped
// into the log and nothing ever waits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>

#include "tarnifs/mount/context.h"

enum TRANSFER_KIND : uint32_t {
    TRANSFER_READ = 1,    // the file was read through to its end
    TRANSFER_WRITTEN = 2, // data went to the device
};

// One transfer. Travels on the pipe as it is, in the machine's byte order.
struct __attribute__((packed)) _KTL_PIPE_DATA_BOX_FS_VALUE {
    uint32_t kind;
    uint64_t size;      // of the file at release, in bytes
    char extension[10]; // after the last "." of the name; 9 characters at most
};
static_assert(sizeof(_KTL_PIPE_DATA_BOX_FS_VALUE) == 22);
using PKTL_PIPE_DATA_BOX = _KTL_PIPE_DATA_BOX_FS_VALUE *;

// Records that wait, allocated with malloc; whoever pops one frees it. Every
// push and pop holds gQueueLock. Never destroyed, for a tray thread that
// outlives the mount.
extern std::deque<PKTL_PIPE_DATA_BOX> &gQueue;
extern std::mutex gQueueLock;

// The pipe's path; a variable for tests.
extern const char *trayPipePath;

constexpr const char *BUSY_ON = "-neon";
constexpr const char *BUSY_OFF = "-neoff";
constexpr uint32_t BUSY_ENTRIES = 30000; // a listing beyond is announced

// Writes one message in one piece (a short write counts as success). 0, or the
// negated errno after logging: ENOENT without a pipe, ENXIO without a reader or
// when what is there is no pipe.
int sendPipeMsg(const char *msg);
int sendPipeData(const char *buf, size_t len);

// Queues a record of a transfer. An allocation that fails is logged.
void QueueTransfer(uint32_t kind, uint64_t size, const char *fileName);

// Frees every record that still waits.
void DrainQueue();

// The tray thread's body; runs while the context's tray_run is 1.
void sendDataToTheTrayThread(_CONTEXT *context);

// Starts the thread. A failure is logged and leaves the mount without batches.
void StartTrayThread(_CONTEXT *context);

// Ends the thread, waiting 2 seconds at most. False: it is still running, was
// left to itself, and the context must stay.
bool StopTrayThread(_CONTEXT *context);
