// Doing what a plan says: one thread reads, one writes, so that a device is read
// while the last piece is written, or the other way round.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "helper/copy_plan.h"
#include "helper/descriptor.h"

namespace helper
{

class CopyQueue;

// Figures for the progress line; may be read at any time.
struct CopyFigures {
    std::atomic<uint64_t> bytes = 0;   // written, or found written already
    std::atomic<uint64_t> resumed = 0; // of these: were there already
    std::atomic<uint64_t> files = 0;
    std::atomic<uint64_t> failed = 0;
    std::atomic<bool> ended = false;
    std::atomic<bool> gone = false; // the device is, so the rest was left
};

// An errno value for people.
const char *copyReason(int error);

class CopyRun
{
  public:
    // `which`: the UDIDs of the devices that take part; without them nothing can go on.
    CopyRun(const CopyPlan &what, std::vector<std::string> which);
    ~CopyRun();
    CopyRun(const CopyRun &) = delete;
    CopyRun &operator=(const CopyRun &) = delete;

    // Lets the threads end after the piece that they are at.
    void stop() { stopping = true; }
    CopyFigures figures;

    // Readable when the threads are done.
    int ending() const { return over.get(); }

    // What failed since the last call, and the name of the file in work.
    std::vector<CopyProblem> takeProblems();
    std::string current();

  private:
    void readFiles();
    void readFile(size_t index);
    void writeFiles();
    void fail(const std::string &path, const std::string &why, int error);
    bool devicesThere() const;
    void name(const std::string &path);

    const CopyPlan &plan;
    const std::vector<std::string> udids;
    std::atomic<bool> stopping = false;
    std::atomic<size_t> given_up; // the index of a file that is not written on
    std::unique_ptr<CopyQueue> queue;
    std::mutex lock;
    std::vector<CopyProblem> problems; // under the lock
    std::string working;               // under the lock
    Descriptor over;
    std::thread reader;
    std::thread writer;
};

} // namespace helper
