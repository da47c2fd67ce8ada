// A new folder, gone with the record unless something is mounted in it: a mount
// that is left would lose its files.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

struct TempFolder {
    TempFolder()
        : path(std::filesystem::temp_directory_path() / "quorvel-test.XXXXXX")
    {
        if (mkdtemp(path.data()) == nullptr) {
            throw std::runtime_error("no temporary folder");
        }
    }
    ~TempFolder()
    {
        std::ifstream file("/proc/self/mountinfo");
        const std::string mounts(std::istreambuf_iterator<char>(file), {});
        if (mounts.find(" " + path + "/") == std::string::npos) {
            std::error_code ignored;
            std::filesystem::remove_all(path, ignored);
        }
    }
    TempFolder(const TempFolder &) = delete;
    TempFolder &operator=(const TempFolder &) = delete;

    std::string path;
};
