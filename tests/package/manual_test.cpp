// The manual pages against the programs: options, exit statuses, and examples
// that work as they stand.
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "tests/helper/fixture.h"

namespace
{

const std::string SOURCE = SOURCE_FOLDER;

struct Page {
    std::string program;
    std::string file;
    Words commands; // of which each has a --help of its own
};

const Page PAGES[] = {
    {"quorvelfs", "quorvelfs.1", {}},
    {"quorvel",
     "quorvel.1",
     {"list", "mount", "unmount", "status", "watch", "copy", "apps"}},
    {"quorvel-simdevice", "quorvel-simdevice.1", {"make", "run", "ctl"}},
    {"mount.quorvelfs", "mount.quorvelfs.8", {}},
};

std::string Read(const Page &page)
{
    return Slurp(SOURCE + "/packaging/man/" + page.file);
}

// From a line ".Sh NAME" to the next.
std::string Section(const std::string &page, const std::string &name)
{
    const size_t begin = page.find("\n.Sh " + name + "\n");
    return begin == std::string::npos
               ? ""
               : page.substr(begin + 1, page.find("\n.Sh ", begin + 1) - begin);
}

using Names = std::set<std::string>;

Names Find(const std::string &text, const char *pattern)
{
    const std::regex form(pattern);
    Names names;
    for (std::sregex_iterator at(text.begin(), text.end(), form), end;
         at != end; ++at) {
        names.insert((*at)[1]);
    }
    return names;
}

// "-f", "--wait" and "usbmux=" of a program and its commands.
Names OptionsOfProgram(const Page &page)
{
    std::string help = RunProgram({Program(page.program), "--help"}).out + "\n";
    for (const std::string &command : page.commands) {
        const std::string own =
            RunProgram({Program(page.program), command, "--help"}).out;
        // What comes behind is the help of the control socket, or an example.
        help += own.substr(0, own.find("\n\n", own.find("Options:"))) + "\n";
    }
    Names names = Find(help, "\n +(--?[a-zA-Z][a-z-]*)");
    names.merge(Find(help, "\n +--?[a-zA-Z][a-z-]*, ?(--?[a-zA-Z][a-z-]*)"));
    names.merge(Find(help, "\n +-o ([a-z_]+=)"));
    return names;
}

Names OptionsOfPage(const std::string &text)
{
    const std::string options = Section(text, "OPTIONS");
    Names names;
    for (const char *pattern :
         {"\n\\.It Fl ([a-zA-Z-]+)", "\n\\.It Fl [^\n]*, Fl ([a-zA-Z-]+)"}) {
        for (const std::string &name : Find(options, pattern)) {
            names.insert("-" + name);
        }
    }
    for (const std::string &key : Find(options, "\n\\.It Cm ([a-z_]+) Ns =")) {
        names.insert(key + "=");
    }
    return names;
}

TEST(Manual, OptionsAreThoseOfThePrograms)
{
    for (const Page &page : PAGES) {
        const Names program = OptionsOfProgram(page);
        EXPECT_GE(program.size(), 3U) << page.program;
        EXPECT_EQ(OptionsOfPage(Read(page)), program) << page.file;
    }
}

TEST(Manual, ExitStatusesAreThoseOfTheCode)
{
    const struct {
        const Page &page;
        const char *header;
    } cases[] = {
        {PAGES[0], "/tarnifs/mount/exit_status.h"},
        {PAGES[1], "/helper/messages.h"},
        {PAGES[3], "/helper/mount_main.cpp"},
    };
    for (const auto &one : cases) {
        std::string code = Slurp(SOURCE + one.header);
        code = code.substr(code.find(" : int {"));
        code.resize(code.find("};"));
        const Names numbers = Find(code, " = ([0-9]+)");
        EXPECT_GE(numbers.size(), 5U) << one.header;
        EXPECT_EQ(
            Find(Section(Read(one.page), "EXIT STATUS"), "\n\\.It ([0-9]+)\n"),
            numbers)
            << one.page.file;
    }
}

TEST(Manual, HasItsSectionsAndNoFaults)
{
    for (const Page &page : PAGES) {
        const std::string text = Read(page);
        for (const char *name :
             {"NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "ENVIRONMENT",
              "FILES", "EXIT STATUS", "EXAMPLES", "SEE ALSO", "CAVEATS"}) {
            EXPECT_NE(Section(text, name), "") << page.file << " " << name;
        }
        const Finished lint =
            RunProgram({"mandoc", "-T", "lint", "-W", "warning",
                        SOURCE + "/packaging/man/" + page.file});
        EXPECT_EQ(lint.status, 0) << lint.out;
    }
}

class ManualTest : public HelperTest
{
  protected:
    // The blocks of EXAMPLES that are commands.
    static Words Blocks(const std::string &page)
    {
        Words blocks;
        const std::string examples = Section(page, "EXAMPLES");
        const std::string begin = "\n.Bd -literal -offset indent\n";
        size_t at = 0;
        while ((at = examples.find(begin, at)) != std::string::npos) {
            at += begin.size();
            const std::string block =
                examples.substr(at, examples.find("\n.Ed", at) - at);
            const bool file =
                block[0] == '[' || block.find(" 0 0") != std::string::npos;
            if (!file) {
                blocks.push_back(
                    std::regex_replace(block, std::regex("20123456"),
                                       std::to_string(devices_location)));
            }
        }
        return blocks;
    }
    static uint32_t devices_location;
};
uint32_t ManualTest::devices_location = 0;

TEST_F(ManualTest, ExamplesWorkAsTheyStand)
{
    devices_location = Add("Anna's iPhone").location;
    Serve();
    const std::string bin = Program("quorvel");
    environment["PATH"] =
        bin.substr(0, bin.rfind('/')) + ":/usr/sbin:/usr/bin:/sbin:/bin";
    const std::string before =
        "set -euo pipefail; cd; "
        "mount() { mount.quorvelfs \"$@\"; }; umount() { fusermount3 -u \"$@\"; }\n";
    size_t count = 0;
    for (const Page &page : PAGES) {
        for (const std::string &block : Blocks(Read(page))) {
            const Finished done =
                RunProgram({"bash", "-c", before + block}, environment);
            EXPECT_EQ(done.status, 0) << page.file << "\n"
                                      << block << "\n"
                                      << done.out;
            ++count;
        }
    }
    EXPECT_GE(count, 5U);
    EXPECT_TRUE(std::filesystem::exists(work + "/home/Pictures/Trip"));
}

// fstab's line: mount(8)'s helper takes all that is handed on.
TEST_F(ManualTest, TheLineOfFstabIsUnderstood)
{
    const std::string page = Read(PAGES[3]);
    std::smatch found;
    ASSERT_TRUE(std::regex_search(
        page, found, std::regex("\n(.*) (/mnt/\\S+) quorvelfs (\\S+) 0 0\n")));
    const Finished done =
        RunProgram({Program("mount.quorvelfs"), "Anna's iPhone", found[2], "-f",
                    "-o", found[3]},
                   environment);
    EXPECT_EQ(done.status, 0) << done.out;
    EXPECT_EQ(found[1], "Anna's\\e040iPhone");
}

} // namespace
