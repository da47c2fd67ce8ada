// What a copy has to do, found out before it begins.
#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "helper/copy_ends.h"

namespace helper
{

struct CopyFile {
    std::string source;
    std::string target;
    uint64_t size = 0;
    timespec time{};       // when the source was changed
    bool replaces = false; // something is at the target
};

struct CopyFolder {
    std::string target;
    timespec time{};
};

// A file or folder that will not be copied, and why.
struct CopyProblem {
    std::string path;
    std::string why;
    bool failure = true; // false: left out on purpose
};

struct CopyPlan {
    bool to_device = false;
    std::vector<CopyFolder> folders; // to be made, or there, in this order
    std::vector<CopyFile> files;
    std::vector<CopyProblem> problems;
    uint64_t bytes = 0;         // of `files`
    uint64_t present_files = 0; // are at the target already
    uint64_t present_bytes = 0;
};

// Looks at the sources and at what is at the target already. Folders go into
// the target folder under their own name, and so do files if `target` is or must
// be a folder; a single file may also get a new name. The answer does not
// depend on what an earlier, interrupted copy has left, so that the same command
// goes on with it. `stopped` ends the looking.
//
// A file counts as present when it has the source's size and its time (into a
// device: when it is not older, since a device sets its own).
Result planCopy(const std::vector<CopyEnd> &sources, const CopyEnd &target,
                bool target_is_folder, const std::function<bool()> &stopped,
                CopyPlan &plan);

} // namespace helper
