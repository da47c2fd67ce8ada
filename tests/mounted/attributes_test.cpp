// What programs see of files and of the volume.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "tests/mounted/fixture.h"

namespace
{

using AttributesTest = MountedTest;

// The record that a call fills, through a child; zeros when it fails.
template <typename Record>
Record Ask(int (*call)(const char *, Record *), const std::string &path)
{
    const Outcome outcome = Access([&](std::string *data) {
        data->resize(sizeof(Record));
        return call(path.c_str(), reinterpret_cast<Record *>(data->data())) == 0
                   ? 0
                   : errno;
    });
    Record record{};
    EXPECT_EQ(outcome.error, 0) << path;
    if (outcome.error == 0) {
        memcpy(&record, outcome.data.data(), sizeof(record));
    }
    return record;
}

TEST_F(AttributesTest, FilesAndTheVolumeAreSane)
{
    // More blocks than 32 bits hold.
    MakeDevice({"--capacity", "35184372088832", "--free", "17592186044416"});
    device->Put("dir/file", std::string(1000, 'x'));
    const timespec times[2] = {{1500000000, 0}, {1500000000, 999999999}};
    utimensat(AT_FDCWD, device->Storage("dir/file").c_str(), times, 0);
    Start();
    struct stat st = Ask<struct stat>(stat, Storage("dir/file"));
    EXPECT_EQ(st.st_mode, static_cast<mode_t>(S_IFREG | 0777));
    EXPECT_EQ(st.st_size, 1000);
    EXPECT_EQ(st.st_nlink, 1U);
    EXPECT_EQ(st.st_uid, getuid());
    EXPECT_EQ(st.st_gid, getgid());
    EXPECT_EQ(st.st_blocks, 2);
    EXPECT_EQ(st.st_blksize, 1024 * 1024);
    EXPECT_EQ(st.st_mtime, 1500000000);
    EXPECT_EQ(st.st_ctime, st.st_mtime);
    st = Ask<struct stat>(stat, Storage("dir"));
    EXPECT_EQ(st.st_mode, static_cast<mode_t>(S_IFDIR | 0777));
    EXPECT_EQ(st.st_nlink, 1U);

    for (const char *path : {"", "Storage", "Storage/dir/file", "Media"}) {
        const auto figures = Ask<struct statvfs>(statvfs, volume->Path(path));
        EXPECT_EQ(figures.f_frsize, figures.f_bsize);
        EXPECT_EQ(figures.f_namemax, 255U);
        // Binary units are shown as as many decimal ones.
        EXPECT_EQ(figures.f_blocks * figures.f_frsize / 1000000000, 32000U);
        // The sample files are taken from it, and two digits are shown.
        EXPECT_NEAR(static_cast<double>(figures.f_bavail * figures.f_frsize),
                    16e12, 15e9);
    }

    // Changing a time sets the present one; the rest is accepted.
    const std::string file = Storage("dir/file");
    for (const Words &words :
         {Words{"touch", "-d", "2001-01-01", file}, Words{"chmod", "600", file},
          Words{"chown", std::to_string(getuid()), file},
          Words{"touch", "-a", "-c", Storage("nosuch")}}) {
        EXPECT_EQ(RunProgram(words).status, 0) << words[0];
    }
    st = Ask<struct stat>(stat, file);
    EXPECT_NEAR(static_cast<double>(st.st_mtime),
                static_cast<double>(time(nullptr)), 30);
    EXPECT_EQ(st.st_mode, static_cast<mode_t>(S_IFREG | 0777));
    EXPECT_EQ(Stat(Storage("nosuch")).error, ENOENT);
}

TEST_F(AttributesTest, ExtendedAttributes)
{
    MakeDevice();
    device->Put("file", "x");
    Start();
    const std::string path = Storage("file");
    const Outcome outcome = Access([&](std::string *data) {
        const char *file = path.c_str();
        char value[64] = {};
        const auto fails = [](ssize_t ret, int error) {
            return ret == -1 && errno == error;
        };
        const bool steps[] = {
            fails(getxattr(file, "user.a", value, sizeof(value)), ENODATA),
            setxattr(file, "user.a", "one", 3, 0) == 0,
            setxattr(file, "user.a", "three", 5, 0) == 0,
            setxattr(file, "user.b", "two", 3, 0) == 0,
            getxattr(file, "user.a", nullptr, 0) == 5,
            getxattr(file, "user.a", value, sizeof(value)) == 5,
            memcmp(value, "three", 6) == 0,
            fails(getxattr(file, "user.a", value, 4), ERANGE),
            removexattr(file, "user.a") == 0,
            fails(removexattr(file, "user.a"), ENODATA),
            fails(getxattr(file, "security.selinux", value, 64), ENODATA),
        };
        for (const bool step : steps) {
            *data += step ? "." : "X";
        }
        return 0;
    });
    EXPECT_EQ(outcome.data, "...........");
}

// A folder that the kernel reads in many pieces: every name once, positions that
// can be gone back to, types without a look at each entry.
TEST_F(AttributesTest, LongListingHasPositions)
{
    MakeDevice();
    for (int i = 0; i < 3000; ++i) {
        device->Put("many/file number " + std::to_string(i), "");
    }
    Start();
    const std::string path = Storage("many");
    const Outcome outcome = Access([&](std::string *data) {
        DIR *folder = opendir(path.c_str());
        std::vector<std::string> names;
        std::vector<long> positions;
        for (;;) {
            positions.push_back(telldir(folder));
            const dirent *entry = readdir(folder);
            if (entry == nullptr) {
                break;
            }
            if (entry->d_type != (entry->d_name[0] == '.' ? DT_DIR : DT_REG)) {
                *data = std::string("type of ") + entry->d_name;
                return EINVAL;
            }
            names.emplace_back(entry->d_name);
        }
        *data = std::to_string(names.size());
        for (const size_t at : {size_t{2500}, size_t{7}, size_t{3001}}) {
            seekdir(folder, positions[at]);
            const dirent *entry = readdir(folder);
            if (entry == nullptr || names[at] != entry->d_name) {
                return ESPIPE;
            }
        }
        rewinddir(folder);
        size_t again = 0;
        while (readdir(folder) != nullptr) {
            ++again;
        }
        return again == names.size() ? 0 : ESTALE;
    });
    EXPECT_EQ(outcome.error, 0) << outcome.data;
    EXPECT_EQ(outcome.data, "3002");
}

} // namespace
