#include "tests/mounted/exerciser.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <random>
#include <set>
#include <sstream>
#include <vector>

#include "tests/support/child.h"

namespace
{

constexpr size_t MOST_OPEN = 6;
constexpr size_t LARGEST_PIECE = 70000;
constexpr off_t LARGEST_FILE = 300000;
constexpr size_t DEEPEST = 3;

// The outcome of one call on one side.
struct Result {
    long value = 0; // -errno when it failed
    std::string data;

    bool operator==(const Result &) const = default;
};

Result Of(long value)
{
    return {value < 0 ? -errno : value, {}};
}

// One open file, on both sides.
using Pair = std::array<int, 2>;

class Exerciser
{
  public:
    Exerciser(const std::string &volume, const std::string &plain,
              std::vector<std::string> folders, uint32_t seed)
        : roots{volume, plain}, areas(std::move(folders)), random(seed)
    {
    }
    ~Exerciser()
    {
        while (!open_files.empty()) {
            Close();
        }
    }
    Exerciser(const Exerciser &) = delete;
    Exerciser &operator=(const Exerciser &) = delete;

    std::string Run(unsigned steps)
    {
        for (unsigned step = 0; step < steps && difference.empty(); ++step) {
            Step();
            if (!difference.empty()) {
                difference = "step " + std::to_string(step) + ": " + difference;
            }
        }
        while (!open_files.empty()) {
            Close();
        }
        for (const std::string &area : areas) {
            if (difference.empty()) {
                CompareTree(area);
            }
        }
        return difference;
    }

  private:
    size_t Below(size_t limit)
    {
        return std::uniform_int_distribution<size_t>(0, limit - 1)(random);
    }

    // A path that may or may not be there: few names, so that they meet.
    std::string AnyPath()
    {
        static const std::array<const char *, 7> names = {
            "a", "b.txt", "Übung c", "d", "e.txt", "folder", "写真"};
        std::string path = areas[Below(areas.size())];
        const size_t depth = 1 + Below(DEEPEST);
        for (size_t i = 0; i < depth; ++i) {
            path += "/";
            path += names[Below(names.size())];
        }
        return path;
    }

    std::string Bytes()
    {
        std::string bytes(1 + Below(LARGEST_PIECE), '\0');
        for (char &byte : bytes) {
            byte = static_cast<char>(random());
        }
        return bytes;
    }

    // Makes a call on both sides; a difference ends the run.
    template <typename Call>
    bool Both(const std::string &what, Call call)
    {
        std::array<Result, 2> results;
        for (size_t side = 0; side < 2; ++side) {
            results[side] = call(side);
        }
        if (results[0] == results[1]) {
            return results[0].value >= 0;
        }
        difference = what + ": the volume gives " +
                     std::to_string(results[0].value) + ", a disk " +
                     std::to_string(results[1].value);
        if (results[0].value == results[1].value) {
            difference += " with other data";
        }
        return false;
    }

    std::string At(size_t side, const std::string &path) const
    {
        return roots[side] + path;
    }

    // A call with a path.
    template <typename Call>
    bool On(const char *what, const std::string &path, Call call)
    {
        return Both(what + path,
                    [&](size_t side) { return call(At(side, path).c_str()); });
    }

    void Open()
    {
        static const std::array<int, 6> modes = {
            O_RDWR | O_CREAT,           O_RDWR | O_CREAT | O_EXCL,
            O_RDWR | O_CREAT | O_TRUNC, O_RDWR,
            O_WRONLY | O_APPEND,        O_RDWR | O_APPEND | O_CREAT};
        if (open_files.size() >= MOST_OPEN) {
            Close();
        }
        const std::string path = AnyPath();
        const int flags = modes[Below(modes.size())];
        Pair pair{};
        const bool opened = Both("open " + path, [&](size_t side) {
            pair[side] = open(At(side, path).c_str(), flags | O_CLOEXEC, 0666);
            return Of(std::min(pair[side], 0));
        });
        if (opened) {
            open_files.push_back(pair);
        }
    }

    void Close()
    {
        const size_t which = Below(open_files.size());
        const Pair pair = open_files[which];
        open_files.erase(open_files.begin() +
                         static_cast<std::ptrdiff_t>(which));
        Both("close", [&](size_t side) { return Of(close(pair[side])); });
    }

    void Write(const Pair &pair)
    {
        const std::string bytes = Bytes();
        const off_t offset = static_cast<off_t>(Below(LARGEST_FILE));
        Both("write", [&](size_t side) {
            // At the end of a file opened for appending, else at the offset.
            const bool append = (fcntl(pair[side], F_GETFL) & O_APPEND) != 0;
            return Of(append ? write(pair[side], bytes.data(), bytes.size())
                             : pwrite(pair[side], bytes.data(), bytes.size(),
                                      offset));
        });
    }

    void Read(const Pair &pair)
    {
        const size_t size = 1 + Below(LARGEST_PIECE);
        const off_t offset = static_cast<off_t>(Below(LARGEST_FILE));
        Both("read", [&](size_t side) {
            std::string bytes(size, '\0');
            const Result result =
                Of(pread(pair[side], bytes.data(), size, offset));
            bytes.resize(static_cast<size_t>(std::max(result.value, long{0})));
            return Result{result.value, bytes};
        });
    }

    void OnOpenFile()
    {
        if (open_files.empty()) {
            Open();
            return;
        }
        const Pair pair = open_files[Below(open_files.size())];
        const off_t size = static_cast<off_t>(Below(LARGEST_FILE));
        switch (Below(8)) {
        case 0:
            Both("ftruncate",
                 [&](size_t side) { return Of(ftruncate(pair[side], size)); });
            return;
        case 1:
            Both("fstat", [&](size_t side) {
                struct stat st {
                };
                const Result result = Of(fstat(pair[side], &st));
                return result.value < 0 ? result : Of(st.st_size);
            });
            return;
        case 2:
        case 3:
        case 4:
            return Read(pair);
        default:
            return Write(pair);
        }
    }

    static Result Look(const std::string &path)
    {
        struct stat st {
        };
        const Result result = Of(stat(path.c_str(), &st));
        if (result.value < 0 || S_ISDIR(st.st_mode)) {
            return {result.value, "folder"};
        }
        return {st.st_size, "file"};
    }

    static Result Names(const std::string &path)
    {
        DIR *folder = opendir(path.c_str());
        if (folder == nullptr) {
            return Of(-1);
        }
        std::set<std::string> names;
        while (const dirent *entry = readdir(folder)) {
            names.insert(entry->d_name);
        }
        closedir(folder);
        Result result;
        for (const std::string &name : names) {
            if (name[0] != '.') {
                result.data += name + "\n";
            }
        }
        return result;
    }

    void Rename()
    {
        const std::string from = AnyPath();
        const std::string to = AnyPath();
        Both("rename " + from + " " + to, [&](size_t side) {
            return Of(rename(At(side, from).c_str(), At(side, to).c_str()));
        });
    }

    void OnPath()
    {
        const std::string path = AnyPath();
        const off_t size = static_cast<off_t>(Below(LARGEST_FILE));
        switch (Below(7)) {
        case 0:
            On("mkdir ", path,
               [](const char *p) { return Of(mkdir(p, 0777)); });
            return;
        case 1:
            On("rmdir ", path, [](const char *p) { return Of(rmdir(p)); });
            return;
        case 2:
            // Removing a folder so is EISDIR here and EPERM elsewhere.
            On("unlink ", path, [](const char *p) {
                const long value = Of(unlink(p)).value;
                return Result{value == -EPERM ? -EISDIR : value, {}};
            });
            return;
        case 3:
            On("truncate ", path,
               [&](const char *p) { return Of(truncate(p, size)); });
            return;
        case 4:
            On("list ", path, Names);
            return;
        case 5:
            return Rename();
        default:
            On("stat ", path, Look);
        }
    }

    void Step()
    {
        switch (Below(4)) {
        case 0:
            return Below(2) == 0 || open_files.empty() ? Open() : Close();
        case 1:
            return OnPath();
        default:
            return OnOpenFile();
        }
    }

    static Result Contents(const std::string &path)
    {
        const Outcome read = ReadFile(path);
        return {-read.error, read.data};
    }

    void CompareTree(const std::string &path)
    {
        On("list ", path, Names);
        std::istringstream names(Names(At(1, path)).data);
        for (std::string name; std::getline(names, name);) {
            const std::string child = path + "/" + name;
            if (On("stat ", child, Look) &&
                Look(At(1, child)).data == "folder") {
                CompareTree(child);
            } else {
                On("contents of ", child, Contents);
            }
        }
    }

    const std::array<std::string, 2> roots;
    const std::vector<std::string> areas;
    std::mt19937 random;
    std::vector<Pair> open_files;
    std::string difference;
};

} // namespace

std::string Exercise(const std::string &volume, const std::string &plain,
                     const std::vector<std::string> &areas, uint32_t seed,
                     unsigned steps)
{
    return Exerciser(volume, plain, areas, seed).Run(steps);
}
