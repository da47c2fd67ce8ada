// Pieces of files on their way from the reading thread to the writing one.
#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "helper/copy_target.h"

namespace helper
{

struct CopyPiece {
    size_t file = 0; // its index in the plan
    bool first = false;
    bool last = false;
    uint64_t offset = 0; // of the first piece: where to go on
    std::unique_ptr<char[]> data;
    size_t length = 0;
    int error = 0;   // the file could not be read on; its last piece
    std::string why; // the same for people
};

class CopyQueue
{
  public:
    // A buffer of COPY_PIECE bytes; waits until the writer has given one back.
    std::unique_ptr<char[]> buffer()
    {
        std::unique_lock<std::mutex> hold(lock);
        changed.wait(hold, [this] { return !free.empty() || made < MOST; });
        if (free.empty()) {
            ++made;
            return std::make_unique<char[]>(COPY_PIECE);
        }
        std::unique_ptr<char[]> one = std::move(free.back());
        free.pop_back();
        return one;
    }
    void giveBack(std::unique_ptr<char[]> one)
    {
        const std::lock_guard<std::mutex> hold(lock);
        free.push_back(std::move(one));
        changed.notify_all();
    }
    void push(CopyPiece piece)
    {
        const std::lock_guard<std::mutex> hold(lock);
        pieces.push_back(std::move(piece));
        changed.notify_all();
    }
    // No piece will follow.
    void close()
    {
        const std::lock_guard<std::mutex> hold(lock);
        closed = true;
        changed.notify_all();
    }
    // Waits for a piece; false when there will be none.
    bool pop(CopyPiece &piece)
    {
        std::unique_lock<std::mutex> hold(lock);
        changed.wait(hold, [this] { return !pieces.empty() || closed; });
        if (pieces.empty()) {
            return false;
        }
        piece = std::move(pieces.front());
        pieces.pop_front();
        return true;
    }

  private:
    static constexpr size_t MOST = 8; // buffers

    std::mutex lock;
    std::condition_variable changed;
    std::deque<CopyPiece> pieces;
    std::vector<std::unique_ptr<char[]>> free;
    size_t made = 0;
    bool closed = false;
};

} // namespace helper
