// Open files. libfuse's `fh` is the address of one of these: a file goes on
// being read and written under whatever name it has by now. All functions are
// called with the gate held.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tarnifs/mount/host.h"

struct fuse_file_info;

struct OpenFile {
    std::string path;     // the volume path that it has now
    tarni_file_info info; // the handlers' part
};

// Registers an open file; the number that stands for it in fuse_file_info::fh.
uint64_t AddOpenFile(std::unique_ptr<OpenFile> file);

// The open file behind a request, or null when it has none (`fi` may be null).
OpenFile *OpenFileOf(const fuse_file_info *fi);

// Takes an open file off the register.
std::unique_ptr<OpenFile> TakeOpenFile(const fuse_file_info *fi);

// What a rename does to open files. The catalogue makes a new record for the new
// name and closes the old one's device file. So OpensBelow notes, before, what
// hangs on the records of `path` and below; LetGo ends what is left of the old
// names, and OpenAnew opens the files under the new ones and gives the records
// back what release will ask for.
struct OpenState {
    OpenFile *file;
    bool reading;
    bool writing;
    uint64_t read_offset;
};
std::vector<OpenState> OpensBelow(const std::string &path);
// Gives those that moved. With the folder's old name still there (a rename that
// copied, or moved some entries only) those are the files whose own record went;
// the others stay with the old name.
std::vector<OpenState> LetGo(const std::vector<OpenState> &states,
                             const std::string &from);
void OpenAnew(const std::vector<OpenState> &states, const std::string &from,
              const std::string &to);
