// Everyday programs on the storage folder: reading, and many at once.
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
        device->Put("own/0", "");
        device->Put("own/1", "");
        Start();
    }

    // In a shell $V is the tree on the volume, $D the same on the device.
    const Environment &Folders()
    {
        folders = {{"V", Storage("tree")},
                   {"D", device->Storage("tree")},
                   {"OWN", Storage("own")}};
        return folders;
    }

    // Runs a command line that must succeed without a word of complaint.
    std::string Shell(const std::string &line)
    {
        const Finished run =
            RunProgram({"sh", "-ec", "cd '" + work + "'; " + line}, Folders());
        EXPECT_EQ(run.status, 0) << line << ": " << run.out;
        return run.out;
    }

    Environment folders;
};

TEST_F(ToolsTest, CopyingOutAndLookingAround)
{
    const struct {
        const char *line;
        const char *said;
    } cases[] = {
        {"cp -a \"$V\" copy; diff -r \"$D\" copy", ""},
        {"mkdir tarred; tar -C \"$V\" -cf - . | tar -C tarred -xf -", ""},
        {"diff -r \"$D\" tarred", ""},
        {"rsync -a \"$V/\" synced; diff -r \"$D\" synced", ""},
        {"rsync -ani \"$V/\" synced", ""},
        {"cmp \"$V/sub/big.bin\" \"$D/sub/big.bin\"", ""},
        {"ls -l \"$V\" | grep -c '[?]' || true", "0\n"},
        {"find \"$V\" -size +2M -printf '%f\\n'", "big.bin\n"},
        {"find \"$V\" -type f | wc -l", "5\n"},
        {"grep -rl summer \"$V\" | wc -l", "1\n"},
        {"df --output=fstype \"$V\" | grep -c fuse", "1\n"},
    };
    for (const auto &each : cases) {
        EXPECT_EQ(Shell(each.line), each.said) << each.line;
    }
    // Blocks of 512 bytes: 3000000 bytes are 5860.
    EXPECT_NEAR(std::stod(Shell("du -sk \"$V\"")), 2937, 8);
    EXPECT_TRUE(volume->Dialogs().empty());
}

// Several programs at once, each with its own idea of what to do.
TEST_F(ToolsTest, ManyAtOnce)
{
    const Words lines = {
        "for n in 1 2 3; do cp -r \"$V\" a$n; done",
        "for n in 1 2 3; do cat \"$V/sub/big.bin\" > b$n; done",
        "for n in $(seq 20); do ls -lR \"$V\" >/dev/null; done",
        "for n in $(seq 50); do test ! -e \"$V/no$n\"; done",
        "for n in $(seq 20); do seq $n 5000 > \"$OWN/0\"; done",
        "for n in $(seq 20); do seq $n 900 >> \"$OWN/1\"; done",
    };
    std::vector<std::unique_ptr<Process>> programs;
    for (const std::string &line : lines) {
        programs.push_back(std::make_unique<Process>(
            Words{"sh", "-ec", "cd '" + work + "'; " + line}, Folders(),
            work + "/programs.log"));
    }
    for (const auto &program : programs) {
        EXPECT_EQ(program->Wait(PATIENCE), 0) << program->Output();
    }
    EXPECT_EQ(Shell("for n in 1 2 3; do diff -r \"$D\" a$n; "
                    "cmp b$n \"$D/sub/big.bin\"; done"),
              "");
    EXPECT_EQ(device->Get("own/0"), Shell("seq 20 5000"));
    EXPECT_EQ(device->Get("own/1"),
              Shell("for n in $(seq 20); do seq $n 900; done"));
}

} // namespace
