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

class AttributesTest : public MountedTest
{
};

// The record of a path, through a child.
Outcome StatRecord(const std::string &path, struct stat *st)
{
    Outcome outcome = Access([&](std::string *data) {
        struct stat record {
        };
        if (stat(path.c_str(), &record) != 0) {
            return errno;
        }
        data->assign(reinterpret_cast<const char *>(&record), sizeof(record));
        return 0;
    });
    if (outcome.error == 0) {
        memcpy(st, outcome.data.data(), sizeof(*st));
    }
    return outcome;
}

TEST_F(AttributesTest, FileIsSane)
{
    MakeDevice();
    device->Put("dir/file", std::string(1000, 'x'));
    const timespec times[2] = {{1500000000, 0}, {1500000000, 999999999}};
    utimensat(AT_FDCWD, device->Storage("dir/file").c_str(), times, 0);
    Start();
    struct stat st {
    };
    ASSERT_EQ(StatRecord(Storage("dir/file"), &st).error, 0);
    EXPECT_EQ(st.st_mode, static_cast<mode_t>(S_IFREG | 0777));
    EXPECT_EQ(st.st_size, 1000);
    EXPECT_EQ(st.st_nlink, 1U);
    EXPECT_EQ(st.st_uid, getuid());
    EXPECT_EQ(st.st_gid, getgid());
    EXPECT_EQ(st.st_blocks, 2);
    EXPECT_EQ(st.st_blksize, 1024 * 1024);
    EXPECT_EQ(st.st_mtime, 1500000000);
    EXPECT_EQ(st.st_ctime, st.st_mtime);
    ASSERT_EQ(StatRecord(Storage("dir"), &st).error, 0);
    EXPECT_EQ(st.st_mode, static_cast<mode_t>(S_IFDIR | 0777));
    EXPECT_EQ(st.st_nlink, 1U);
}

TEST_F(AttributesTest, VolumeFiguresAreTheSameEverywhere)
{
    // More blocks than 32 bits hold.
    MakeDevice({"--capacity", "35184372088832", "--free", "17592186044416"});
    device->Put("dir/file", "x");
    Start();
    struct statvfs root {
    };
    const auto ask = [&](const std::string &path, struct statvfs *figures) {
        const Outcome outcome = Access([&](std::string *data) {
            struct statvfs st {
            };
            if (statvfs(path.c_str(), &st) != 0) {
                return errno;
            }
            data->assign(reinterpret_cast<const char *>(&st), sizeof(st));
            return 0;
        });
        ASSERT_EQ(outcome.error, 0);
        memcpy(figures, outcome.data.data(), sizeof(*figures));
    };
    ask(volume->Path(), &root);
    EXPECT_EQ(root.f_frsize, root.f_bsize);
    EXPECT_EQ(root.f_namemax, 255U);
    // Binary units are shown as as many decimal ones.
    EXPECT_EQ(root.f_blocks * root.f_frsize / 1000000000, 32000U);
    // The sample files are taken from it, and two decimal digits are shown.
    EXPECT_NEAR(static_cast<double>(root.f_bavail * root.f_frsize), 16e12,
                15e9);
    for (const char *path : {"Storage", "Storage/dir/file", "Media"}) {
        struct statvfs figures {
        };
        ask(volume->Path(path), &figures);
        EXPECT_EQ(figures.f_blocks, root.f_blocks) << path;
        EXPECT_EQ(figures.f_bavail, root.f_bavail) << path;
    }
}

TEST_F(AttributesTest, ChangingTimesSetsThePresentTime)
{
    MakeDevice();
    device->Put("file", "x");
    const timespec old[2] = {{1000000000, 0}, {1000000000, 0}};
    utimensat(AT_FDCWD, device->Storage("file").c_str(), old, 0);
    Start();
    EXPECT_EQ(RunProgram({"touch", "-d", "2001-01-01", Storage("file")}).status,
              0);
    EXPECT_EQ(RunProgram({"chmod", "600", Storage("file")}).status, 0);
    EXPECT_EQ(
        RunProgram({"chown", std::to_string(getuid()), Storage("file")}).status,
        0);
    struct stat st {
    };
    ASSERT_EQ(StatRecord(Storage("file"), &st).error, 0);
    EXPECT_NEAR(static_cast<double>(st.st_mtime),
                static_cast<double>(time(nullptr)), 30);
    EXPECT_EQ(st.st_mode, static_cast<mode_t>(S_IFREG | 0777));
    EXPECT_EQ(
        RunProgram({"touch", "-a", "-d", "2001-01-01", Storage("nosuch"), "-c"})
            .status,
        0);
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
        if (getxattr(file, "user.a", value, sizeof(value)) != -1 ||
            errno != ENODATA) {
            *data = "missing";
        } else if (setxattr(file, "user.a", "one", 3, 0) != 0 ||
                   setxattr(file, "user.a", "three", 5, 0) != 0 ||
                   setxattr(file, "user.b", "two", 3, 0) != 0) {
            *data = "set";
        } else if (getxattr(file, "user.a", nullptr, 0) != 5 ||
                   getxattr(file, "user.a", value, sizeof(value)) != 5 ||
                   memcmp(value, "three", 6) != 0) {
            *data = "get";
        } else if (getxattr(file, "user.a", value, 4) != -1 ||
                   errno != ERANGE) {
            *data = "short";
        } else if (removexattr(file, "user.a") != 0 ||
                   removexattr(file, "user.a") != -1 || errno != ENODATA) {
            *data = "remove";
        } else if (getxattr(file, "security.selinux", value, 64) != -1 ||
                   errno != ENODATA) {
            *data = "security";
        }
        return data->empty() ? 0 : errno;
    });
    EXPECT_EQ(outcome.error, 0) << outcome.data;
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
