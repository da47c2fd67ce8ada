// Everyday programs on the storage folder.
#include <filesystem>
#include <fstream>

#include "tests/mounted/fixture.h"

namespace
{

class ToolsTest : public MountedTest
{
  protected:
    void SetUp() override
    {
        MakeDevice();
        device->Put("tree/a.txt", "alpha\n");
        device->Put("tree/empty", "");
        device->Put("tree/sub/big.bin", std::string(3000000, 'b'));
        device->Put("tree/sub/deeper/\xC3\xA9t\xC3\xA9.txt", "summer\n");
        device->Put("tree/with space/x", "x");
        Start();
    }

    // Runs a command line that must succeed without a word of complaint.
    std::string Shell(const std::string &line)
    {
        const Finished run =
            RunProgram({"sh", "-c", "cd '" + work + "'; " + line});
        EXPECT_EQ(run.status, 0) << line << ": " << run.out;
        return run.out;
    }

    void ExpectCopy(const std::string &copy)
    {
        EXPECT_EQ(RunProgram({"diff", "-r", device->Storage("tree"),
                              work + "/" + copy})
                      .out,
                  "");
    }

    std::string Tree() const { return "'" + Storage("tree") + "'"; }
};

TEST_F(ToolsTest, CopyingOut)
{
    EXPECT_EQ(Shell("cp -a " + Tree() + " copy"), "");
    ExpectCopy("copy");
    Shell("mkdir tarred && tar -C " + Tree() +
          " -cf - . | tar -C tarred -xf -");
    ExpectCopy("tarred");
    if (RunProgram({"rsync", "--version"}).status == 0) {
        EXPECT_EQ(Shell("rsync -a " + Tree() + "/ synced"), "");
        ExpectCopy("synced");
        EXPECT_EQ(Shell("rsync -ani " + Tree() + "/ synced"), "");
    }
    EXPECT_TRUE(volume->Dialogs().empty());
}

// Several programs at once, each with its own idea of what to do.
TEST_F(ToolsTest, ManyAtOnce)
{
    for (int i = 0; i < 4; ++i) {
        device->Put("own/" + std::to_string(i), "");
    }
    const Words lines = {
        "for n in 1 2 3; do cp -r " + Tree() + " a$n; done",
        "for n in 1 2 3; do cat " + Tree() + "/sub/big.bin > b$n; done",
        "for n in $(seq 20); do ls -lR " + Tree() + " >/dev/null; done",
        "for n in $(seq 50); do test ! -e " + Tree() + "/no$n; done",
        "for n in $(seq 20); do seq $n 5000 > '" + Storage("own/0") + "'; done",
        "for n in $(seq 20); do seq $n 900 >> '" + Storage("own/1") + "'; done",
    };
    std::vector<std::unique_ptr<Process>> programs;
    for (const std::string &line : lines) {
        programs.push_back(std::make_unique<Process>(
            Words{"sh", "-ec", "cd '" + work + "'; " + line}, Environment(),
            work + "/programs.log"));
    }
    for (const auto &program : programs) {
        EXPECT_EQ(program->Wait(PATIENCE), 0) << program->Output();
    }
    for (const char *copy : {"a1", "a2", "a3"}) {
        ExpectCopy(copy);
    }
    EXPECT_EQ(Shell("cmp b3 '" + device->Storage("tree/sub/big.bin") + "'"),
              "");
    EXPECT_EQ(device->Get("own/0"), Shell("seq 20 5000"));
    EXPECT_EQ(device->Get("own/1"),
              Shell("for n in $(seq 20); do seq $n 900; done"));
}

TEST_F(ToolsTest, LookingAround)
{
    const std::string list = Shell("ls -l " + Tree());
    EXPECT_NE(list.find("a.txt"), std::string::npos);
    EXPECT_EQ(list.find('?'), std::string::npos) << list;
    EXPECT_EQ(Shell("find " + Tree() + " -size +2M -printf '%f\\n'"),
              "big.bin\n");
    EXPECT_EQ(Shell("find " + Tree() + " -type f | wc -l"), "5\n");
    // Blocks of 512 bytes: 3000000 bytes are 5860.
    const long used = std::stol(Shell("du -sk " + Tree()));
    EXPECT_GE(used, 2930);
    EXPECT_LE(used, 2945);
    EXPECT_NE(Shell("df " + Tree()).find(volume->Folder()), std::string::npos);
    EXPECT_EQ(Shell("cmp " + Tree() + "/sub/big.bin '" +
                    device->Storage("tree/sub/big.bin") + "'"),
              "");
    EXPECT_EQ(Shell("grep -rl summer " + Tree() + " | wc -l"), "1\n");
}

} // namespace
