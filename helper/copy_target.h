// One file being written by a copy. A file that is not complete never has its
// final name, unless it is new and small enough to be written at once.
#pragma once

#include <string>

#include "helper/copy_plan.h"
#include "helper/descriptor.h"

namespace helper
{

constexpr size_t COPY_PIECE = 1U << 20; // bytes read and written at once

// The name under which the file grows. It tells the source's size and time, so
// that what an interrupted copy has left is only gone on with when it is of the
// same source.
std::string partialName(const CopyFile &file);

// How much of the file an earlier copy has left: where to go on. 0: nothing.
uint64_t partialSize(const CopyFile &file);

class CopyTarget
{
  public:
    CopyTarget() = default;
    ~CopyTarget() { abandon(true); }
    CopyTarget(const CopyTarget &) = delete;
    CopyTarget &operator=(const CopyTarget &) = delete;

    // Opens for writing from `offset` on. All of these: 0 or an errno value.
    int begin(const CopyFile &what, uint64_t offset, bool device);
    int write(const char *data, size_t length);
    // Makes sure of the size (*actual: what there is, when it is another one:
    // EIO), keeps the source's time outside of a device, and gives the file its
    // name.
    int finish(uint64_t *actual);
    // Gives up: what was written stays for the next time if `keep` and worth
    // it.
    void abandon(bool keep);

  private:
    int closeAndName();

    Descriptor fd;
    CopyFile file;
    std::string path; // what is open; the final name or the partial one
    uint64_t written = 0;
    bool to_device = false;
};

} // namespace helper
