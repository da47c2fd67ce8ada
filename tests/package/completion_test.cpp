// What the shells offer at the Tab key.
#include <unistd.h>

#include "tests/helper/fixture.h"

namespace
{

const std::string SOURCE = SOURCE_FOLDER;

class CompletionTest : public HelperTest
{
  protected:
    // What bash offers for the last of these words, one a line.
    std::string Bash(const Words &words)
    {
        const std::string bin = Program("quorvel");
        environment["PATH"] = bin.substr(0, bin.rfind('/')) + ":/usr/bin:/bin";
        Words all = {"bash", "-c",
                     "compopt() { :; }; . \"$0\"; COMP_WORDS=(\"$@\"); "
                     "COMP_CWORD=$(($# - 1)); f=${1//-/_}; "
                     "\"_$f\"; printf '%s\\n' \"${COMPREPLY[@]}\"",
                     SOURCE + "/packaging/completions/quorvel.bash"};
        all.insert(all.end(), words.begin(), words.end());
        const Finished done = RunProgram(all, environment);
        EXPECT_EQ(done.status, 0) << done.out;
        return done.out;
    }
};

TEST_F(CompletionTest, BashOffersWhatFits)
{
    Add("Anna's iPhone");
    Add("Bert");
    Serve();
    EXPECT_EQ(Bash({"quorvel", "m"}), "mount\n");
    EXPECT_EQ(Bash({"quorvel", "mount", ""}), "Anna\\'s\\ iPhone\nBert\n");
    EXPECT_EQ(Bash({"quorvel", "mount", "Anna\\'"}), "Anna\\'s\\ iPhone\n");
    EXPECT_EQ(Bash({"quorvel", "mount", "\"Ann"}), "Anna's iPhone\n");
    EXPECT_EQ(Bash({"quorvel", "copy", "B"}), "Bert:\n");
    EXPECT_EQ(Bash({"quorvel", "watch", "--no-"}), "--no-mount\n--no-notify\n");
    EXPECT_EQ(Bash({"quorvel", "mount", "-o", "r"}), "ro\n");
    EXPECT_EQ(Bash({"quorvelfs", "-o", "usb"}), "usbmux=\n");
    EXPECT_EQ(Bash({"quorvel-simdevice", "run", "--soc"}), "--socket\n");
    // What stands on the line is never run.
    Bash({"quorvel", "mount", "$(touch " + work + "/ran)"});
    EXPECT_NE(access((work + "/ran").c_str(), F_OK), 0);
}

TEST_F(CompletionTest, ZshLoads)
{
    const Finished done = RunProgram(
        {"zsh", "-fc",
         "fpath=(\"$1\" $fpath); autoload -Uz compinit; compinit -D -u; "
         "autoload +X _quorvel && print -r -- $_comps[quorvel] "
         "$_comps[quorvelfs] $_comps[quorvel-simdevice]",
         "zsh", SOURCE + "/packaging/completions"},
        environment);
    EXPECT_EQ(done.out, "_quorvel _quorvel _quorvel\n");
}

} // namespace
