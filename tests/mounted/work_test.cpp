// A day's work: what editors and everyday programs do, in the storage and in an
// app's folder. Whatever a program was told is compared with what the device
// holds the moment the program is done.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "tests/mounted/fixture.h"

namespace
{

struct Place {
    const char *name;
    const char *on_volume;
    const char *on_device;
};

// The names of tests are made of it.
void PrintTo(const Place &place, std::ostream *out)
{
    *out << place.name;
}

constexpr Place STORAGE = {"Storage", "Storage", "Media/general_storage"};
constexpr Place APP = {"App", "Apps/Caf\xC3\xA9 Reader",
                       "Apps/com.example.reader/Documents"};

class WorkTest : public MountedTest, public ::testing::WithParamInterface<Place>
{
  protected:
    void SetUp() override
    {
        Start();
        Shell("mkdir -p plain; mkdir \"$V/w\"");
    }

    void TearDown() override
    {
        EXPECT_TRUE(volume->Dialogs().empty());
        ExpectNothingOpen();
        // Nobody's temporary files are left, on the device neither.
        EXPECT_EQ(Shell("find \"$D\" -name '.fuse_hidden*'"), "");
    }

    // What a shell says to a line that must succeed. $V is the place on the
    // volume, $D the same on the device, the working folder one on the disk
    // with $T in it.
    std::string Shell(const std::string &line)
    {
        const Finished run =
            RunProgram({"sh", "-ec", "cd '" + work + "'; " + line},
                       {{"V", OnVolume("")},
                        {"D", OnDevice("")},
                        {"T", work + "/tree"},
                        {"HOME", work},
                        // Its names are suspicious words in the log.
                        {"GIT_TEMPLATE_DIR", ""},
                        {"GIT_CONFIG_NOSYSTEM", "1"}});
        EXPECT_EQ(run.status, 0) << line << "\n" << run.out;
        return run.out;
    }

    // "w" of the volume and of the device are as "plain" is, to the last byte
    // and name.
    void ExpectAsPlain()
    {
        EXPECT_EQ(Shell("diff -r plain \"$D/w\" || true"), "");
        EXPECT_EQ(Shell("diff -r plain \"$V/w\" || true"), "");
    }

    // The same commands in "plain" and in "w", where they must say the same.
    void DoInBoth(const std::string &commands)
    {
        const std::string said = Shell("cd plain; " + commands);
        EXPECT_EQ(Shell("cd \"$V/w\"; " + commands), said);
        ExpectAsPlain();
    }

    std::string OnVolume(const std::string &path) const
    {
        return volume->Path(std::string(GetParam().on_volume) + "/" + path);
    }
    std::string OnDevice(const std::string &path) const
    {
        return device->folder + "/" + GetParam().on_device + "/" + path;
    }
};

INSTANTIATE_TEST_SUITE_P(, WorkTest, ::testing::Values(STORAGE, APP),
                         [](const auto &place) {
                             return std::string(place.param.name);
                         });

// The backup that is moved away and removed (vim, emacs), the new file that
// takes the old one's name (gedit, sed), the old file that is cut and written
// (nano).
TEST_P(WorkTest, EditorsSave)
{
    DoInBoth("printf 'one\\ntwo\\nthree\\n' > text;"
             "mv text text~; cat text~ > text; echo four >> text; rm text~;"
             "cat text > .goutputstream-ABC123; echo five >> "
             ".goutputstream-ABC123; mv .goutputstream-ABC123 text; cat text");
    DoInBoth("sed -i 's/two/zwei/' text; sed -i.bak 's/one/eins/' text;"
             "for n in 1 2 3 4 5; do sed -i \"s/^/$n/\" text; done; cat text");
    DoInBoth("cp text text.save; echo short > text; cat text text.save; ls -A");
}

TEST_P(WorkTest, VimSaves)
{
    DoInBoth("seq 100 > numbers; vim -u NONE -N -es -c 'set backup"
             " backupcopy=no backupdir=.' -c '%s/1/one/' -c 'w' -c '1d' -c 'x'"
             " numbers </dev/null; ls -A; cat numbers");
    DoInBoth("vim -u NONE -N -es -c 'set swapfile backupcopy=yes directory=.'"
             " -c '2,50d' -c 'x' numbers; ls -A; cat numbers");
}

TEST_P(WorkTest, TreesComeAndGo)
{
    Shell("mkdir -p tree/a/b/c 'tree/with space' tree/empty; seq 20000 > "
          "tree/a/big; printf x > tree/a/b/c/x; : > 'tree/with space/.dot';"
          "for n in $(seq 40); do echo $n > tree/a/b/$n; done");
    DoInBoth("cp -r \"$T\" one; mv one two; mv two/a two/empty/moved; "
             "cp -r two/empty three; rm -r two/empty; ls -A . *");
    DoInBoth("tar -C \"$T\" -cf - . | tar -xf - ; mkdir -p p/q/r/s p/q; "
             "mv -n p a/p; find . | sort; rm -r a 'with space' empty");
    DoInBoth("! rmdir three 2>/dev/null; rm -rf three two; ls -A");
}

TEST_P(WorkTest, RsyncKeepsATree)
{
    ASSERT_EQ(RunProgram({"rsync", "--version"}).status, 0);
    Shell("mkdir -p tree/sub; seq 50000 > tree/sub/f; echo a > tree/a; "
          "cp -a tree/. plain; rsync -rt tree/ \"$V/w\"");
    ExpectAsPlain();
    EXPECT_EQ(Shell("rsync -rcni tree/ \"$V/w\""), "");
    Shell("sleep 1; echo more >> tree/sub/f; rm tree/a; echo b > tree/b;"
          "rm -r plain; cp -a tree plain; rsync -rt --delete tree/ \"$V/w\"");
    ExpectAsPlain();
    Shell("seq 7 > tree/sub/f; cp tree/sub/f plain/sub/f;"
          "rsync -rt --inplace tree/ \"$V/w\"");
    ExpectAsPlain();
}

TEST_P(WorkTest, GitClonesAndCommits)
{
    Shell("git init -q repo; cd repo; git config user.name n; git config "
          "user.email e@example.org; mkdir d; for n in $(seq 30); do "
          "echo $n > d/$n; git add d; git commit -qm $n; done");
    Shell("git clone -q repo \"$V/w/clone\"");
    EXPECT_EQ(Shell("git -C \"$V/w/clone\" fsck --full 2>&1; "
                    "git -C \"$V/w/clone\" status --porcelain"),
              "");
    Shell("cd \"$V/w/clone\"; git config user.name n; git config user.email "
          "e@example.org; echo x > d/new; git add d; git commit -qm new; "
          "git gc -q; git checkout -q HEAD~3; test ! -e d/new");
    // A copy of what the device holds is a whole repository.
    Shell("cp -r \"$D/w/clone\" copied; git -C copied fsck --full; "
          "git -C copied checkout -q -");
    EXPECT_EQ(Shell("git -C copied log --oneline | wc -l"), "31\n");
    Shell("rm -rf \"$V/w/clone\"; test ! -e \"$D/w/clone\"");
}

TEST_P(WorkTest, TouchAndFlags)
{
    DoInBoth("touch new; stat -c %s new; echo old > old; touch old new; cat "
             "old; touch -c none; ls -A");
    const int make = O_CREAT | O_WRONLY;
    EXPECT_EQ(WriteFile(OnVolume("w/x"), make | O_EXCL, "x").error, 0);
    EXPECT_EQ(WriteFile(OnVolume("w/x"), make | O_EXCL, "y").error, EEXIST);
    EXPECT_EQ(WriteFile(OnVolume("w/x"), make | O_APPEND, "yz").error, 0);
    EXPECT_EQ(Slurp(OnDevice("w/x")), "xyz");
    EXPECT_EQ(WriteFile(OnVolume("w/no/x"), make, "x").error, ENOENT);
    EXPECT_EQ(WriteFile(OnVolume("w/x/x"), make, "x").error, ENOTDIR);
    EXPECT_EQ(Stat(OnVolume("w/x/x")).error, ENOTDIR);
}

// What was written is on the device when the call returns, not when the file is
// closed.
TEST_P(WorkTest, NothingIsKeptBack)
{
    const std::string path = OnVolume("w/f");
    const std::string there = OnDevice("w/f");
    const Outcome outcome = Access([&](std::string *data) {
        const int fd = open(path.c_str(), O_CREAT | O_RDWR | O_EXCL, 0666);
        if (fd < 0 || access(there.c_str(), F_OK) != 0) {
            return EIO;
        }
        std::string expected;
        for (const size_t size : {5U, 4096U, 300000U, 1U}) {
            const std::string piece(size, 'p');
            expected += piece;
            if (write(fd, piece.data(), size) != static_cast<ssize_t>(size)) {
                return errno;
            }
            if (Slurp(there) != expected) {
                *data = "not there after " + std::to_string(size);
            }
        }
        return close(fd) == 0 ? 0 : errno;
    });
    EXPECT_EQ(outcome.error, 0);
    EXPECT_EQ(outcome.data, "");
}

// Open files keep going, whatever becomes of their names.
TEST_P(WorkTest, OpenFilesLoseTheirNames)
{
    Shell("mkdir -p \"$V/w/d/e\"");
    const std::string dir = OnVolume("w/d");
    const std::string moved = OnVolume("w/m");
    const Outcome outcome = Access([&](std::string *data) {
        const int fd =
            open((dir + "/e/f").c_str(), O_CREAT | O_RDWR | O_EXCL, 0666);
        const auto step = [&](const char *letter, bool done) {
            char text[16] = {};
            if (!done || write(fd, letter, 1) != 1 ||
                pread(fd, text, sizeof(text) - 1, 0) < 0) {
                *data += std::string(" errno ") + std::to_string(errno);
            }
            *data = *data + text + ";";
        };
        step("1", fd >= 0);
        step("2", rename((dir + "/e/f").c_str(), (dir + "/e/g").c_str()) == 0);
        step("3", rename(dir.c_str(), moved.c_str()) == 0);
        step("4",
             rename((moved + "/e/g").c_str(), (moved + "/h").c_str()) == 0);
        step("5", unlink((moved + "/h").c_str()) == 0);
        step("6", rename(moved.c_str(), dir.c_str()) == 0);
        struct stat st {
        };
        step("7",
             ftruncate(fd, 3) == 0 && fstat(fd, &st) == 0 && st.st_size == 3);
        return close(fd) == 0 ? 0 : errno;
    });
    EXPECT_EQ(outcome.error, 0);
    // Printed as text, what lies between the cut and the last letter ends it.
    EXPECT_EQ(outcome.data, "1;12;123;1234;12345;123456;123;");
    EXPECT_EQ(List(dir).data, "e\n");
    Shell("rm -r \"$V/w/d\"; test ! -e \"$D/w/d\"");
}

TEST_P(WorkTest, NamesAndSpellings)
{
    const std::string composed = "\xC3\xA9";
    const std::string decomposed = "e\xCC\x81";
    const int make = O_CREAT | O_WRONLY;
    ASSERT_EQ(WriteFile(OnVolume("w/" + composed), make, "1").error, 0);
    ASSERT_EQ(
        WriteFile(OnVolume("w/" + decomposed), make | O_APPEND, "2").error, 0);
    EXPECT_EQ(WriteFile(OnVolume("w/" + decomposed), make | O_EXCL, "").error,
              EEXIST);
    EXPECT_EQ(ReadFile(OnVolume("w/" + composed)).data, "12");
    EXPECT_EQ(Shell("ls -A \"$D/w\" | wc -l"), "1\n");
    Shell("mkdir \"$V/w/d" + composed + "\"; mv \"$V/w/" + decomposed +
          "\" \"$V/w/d" + decomposed + "/x\"; rm -r \"$V/w/d" + decomposed +
          "\"");
    EXPECT_EQ(Shell("ls -A \"$D/w\" \"$V/w\" | grep -c ."), "2\n");

    const std::string name(255, 'n');
    std::string deep = "w";
    for (int i = 0; i < 12; ++i) {
        deep += "/" + std::string(80, static_cast<char>('a' + i));
    }
    Shell("mkdir -p \"$V/" + deep + "\"; echo 1 > \"$V/w/" + name +
          "\"; mv \"$V/w/" + name + "\" \"$V/" + deep + "/f\"; mv \"$V/" +
          deep + "/f\" \"$V/w/" + std::string(255, 'm') + "\"");
    EXPECT_EQ(Slurp(OnDevice("w/" + std::string(255, 'm'))), "1\n");
    ASSERT_EQ(WriteFile(OnVolume(deep + "/f"), make, "deep").error, 0);
    EXPECT_EQ(Slurp(OnDevice(deep + "/f")), "deep");
    EXPECT_EQ(WriteFile(OnVolume("w/" + name + "n"), make, "").error,
              ENAMETOOLONG);
}

} // namespace
