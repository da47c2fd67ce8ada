// docs/errors.md has an entry for every message of the code, and for nothing
// else. The messages are read out of the sources in which they stand, so that
// one that is added there is missed here.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "helper/messages.h"

namespace
{

namespace fs = std::filesystem;

// Messages, each with the name of the exit status that belongs to it, or "".
using Messages = std::map<std::string, std::string>;

// One or more literals in a row, which the compiler joins.
const std::string LITERALS = R"re(((?:"(?:[^"\\]|\\.)*"\s*)+))re";

std::string slurp(const fs::path &path)
{
    std::ifstream file(SOURCE_FOLDER / path);
    EXPECT_TRUE(file) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string replaced(const std::string &text, const char *what, const char *by)
{
    return std::regex_replace(text, std::regex(what), by);
}

// A source without comments.
std::string code(const fs::path &path)
{
    return replaced(slurp(path), R"((#include|//)[^\n]*)", "");
}

// Joined literals as a person reads them: one line, and "…" where something is
// filled in.
std::string readable(const std::string &literals)
{
    std::string text = replaced(literals, R"re("\s*")re", "");
    if (text.empty()) {
        return "";
    }
    text = text.substr(1, text.find_last_of('"') - 1);
    text = replaced(text, R"re(\\n)re", " ");
    text = replaced(text, R"re(\\(.))re", "$1");
    text = replaced(text, R"re(%[sd]|\{\})re", "…");
    return text;
}

std::string trimmed(const std::string &text)
{
    return replaced(text, R"(\s+$)", "");
}

std::vector<std::smatch> find(const std::string &text, const std::string &what)
{
    const std::regex expression(what);
    return {std::sregex_iterator(text.begin(), text.end(), expression), {}};
}

Messages dialogs()
{
    Messages all;
    const std::string source = code("tarnifs/notify/messages.h");
    for (const std::smatch &match : find(source, LITERALS)) {
        all[readable(match[1])] = "";
    }
    all.erase("Confirm"); // the button
    return all;
}

Messages helperMessages()
{
    Messages all;
    const std::string source = code("helper/messages.h");
    for (const std::smatch &match :
         find(source, R"re((?:Status::(\w+),\s*)?)re" + LITERALS)) {
        std::string &status = all[readable(match[2])];
        status = status.empty() ? match[1].str() : status;
    }
    return all;
}

// The sentences that an expression makes of literals and of what it joins to
// them; two where it chooses.
std::vector<std::string> sentences(const std::string &expression)
{
    std::vector<std::string> all = {""};
    const std::string tokens = LITERALS + R"re(|::|\?|:|[^"?:()+\s])re";
    for (const std::smatch &token : find(expression, tokens)) {
        std::string &last = all.back();
        if (token[1].matched) {
            last += readable(token[1]);
        } else if (token.str() == "?") {
            last.clear(); // that was the condition
        } else if (token.str() == ":") {
            all.emplace_back();
        } else if (!last.ends_with("…")) {
            last += "…";
        }
    }
    return all;
}

// Each file of quorvelfs's start refuses in a way of its own.
void collectRefusals(const std::string &source, Messages &all)
{
    const std::string value = R"re(((?:"(?:[^"\\]|\\.)*"|[^"{};])*)[;}])re";
    const std::string text = replaced(source, R"(std::string\()", "(");
    for (const char *before : {R"(\brefuse\()", R"(\bExitStatus::\w+,)",
                               R"(\bproblem =)", R"(\*why =)"}) {
        for (const std::smatch &match : find(text, before + value)) {
            for (const std::string &sentence : sentences(match[1])) {
                all[trimmed(sentence)] = "";
            }
        }
    }
    for (const std::smatch &match :
         find(text, R"re((perror\()?)re" + LITERALS)) {
        const std::string name = "quorvelfs: ";
        const std::string said = readable(match[2]);
        if (said.starts_with(name) && !match[1].matched) {
            all[trimmed(said.substr(name.size()))] = "";
        }
    }
}

Messages mountMessages()
{
    Messages all;
    for (const auto &entry : fs::recursive_directory_iterator(
             fs::path(SOURCE_FOLDER) / "tarnifs/mount")) {
        if (entry.path().extension() == ".cpp") {
            collectRefusals(code(entry.path()), all);
        }
    }
    for (const char *nothing : {"", "…"}) {
        all.erase(nothing);
    }
    return all;
}

// The page's headings of the third order, each with what stands below it.
std::map<std::string, std::string> entries()
{
    std::map<std::string, std::string> all;
    std::istringstream page(slurp("docs/errors.md"));
    std::string heading;
    for (std::string line; std::getline(page, line);) {
        if (line.starts_with("#")) {
            heading = line.starts_with("### ") ? line.substr(4) : "";
        } else if (!heading.empty()) {
            all[heading] += line + "\n";
        }
    }
    return all;
}

// The numbers in the first column of the table below a heading.
std::map<int, int> rows(const std::string &heading)
{
    std::map<int, int> all;
    const std::string section = entries().at(heading);
    for (const std::smatch &row : find(section, R"(\n\| ([-0-9, ]+) \|)")) {
        const std::string numbers = row[1];
        for (const std::smatch &number : find(numbers, "-?[0-9]+")) {
            ++all[std::stoi(number.str())];
        }
    }
    return all;
}

TEST(Docs, EveryMessageIsExplainedAndNothingElse)
{
    auto page = entries();
    for (const char *list :
         {"Error codes", "Exit statuses of quorvel",
          "Exit statuses of quorvelfs", "Why a single file was not copied",
          "What quorvel says on the way"}) {
        EXPECT_EQ(page.erase(list), 1U) << list;
    }
    std::map<std::string, std::string> gone = page;
    for (const Messages &messages :
         {dialogs(), helperMessages(), mountMessages()}) {
        EXPECT_GT(messages.size(), 3U) << "the sources are written differently";
        for (const auto &[text, status] : messages) {
            EXPECT_GT(page[text].size(), 10U) << "not explained: " << text;
            gone.erase(text);
        }
    }
    for (const auto &[text, explanation] : gone) {
        ADD_FAILURE() << "no message of the code: " << text;
    }
}

// The numbers of a source's exit statuses; each has its row.
std::map<std::string, int> statuses(const fs::path &path,
                                    const std::string &heading)
{
    std::map<std::string, int> numbers;
    const std::string source = code(path);
    auto listed = rows(heading);
    for (const std::smatch &match : find(source, R"((\w+) = (\d+),)")) {
        numbers[match[1]] = std::stoi(match[2]);
        EXPECT_EQ(listed[std::stoi(match[2])], 1) << match.str();
    }
    EXPECT_GT(numbers.size(), 5U);
    return numbers;
}

TEST(Docs, ExitStatusesAreThoseOfTheCode)
{
    const auto numbers =
        statuses("helper/messages.h", "Exit statuses of quorvel");
    statuses("tarnifs/mount/exit_status.h", "Exit statuses of quorvelfs");
    const auto page = entries();
    EXPECT_EQ(numbers.at("Usage"), static_cast<int>(helper::Status::Usage));
    for (const auto &[text, status] : helperMessages()) {
        // Without its pipe, a watch goes on.
        if (status.empty() || status == "PipeUnusable") {
            continue;
        }
        const std::string number = std::to_string(numbers.at(status));
        EXPECT_NE(page.at(text).find("Exit status " + number + "."),
                  std::string::npos)
            << text << " ends with " << number;
    }
}

TEST(Docs, EveryDeviceCodeHasItsRow)
{
    auto listed = rows("Error codes");
    const std::string source = code("device/libiusb.h");
    const auto codes = find(source, R"(LIBIUSB_ERROR_\w+ = (-\d+))");
    EXPECT_GT(codes.size(), 30U);
    for (const std::smatch &match : codes) {
        const int number = std::stoi(match[1]);
        if (number != -200) { // from where a family is counted
            EXPECT_EQ(listed[number], 1) << match.str();
        }
    }
}

// A heading's name in a link.
std::string anchorOf(const std::string &heading)
{
    std::string text = replaced(heading, R"re([.,;:()"'`?…/=])re", "");
    for (char &c : text) {
        c = c == ' '               ? '-'
            : c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32)
                                   : c;
    }
    return "#" + text;
}

bool leadsSomewhere(const fs::path &page, const std::string &file,
                    const std::string &anchor)
{
    const fs::path target = file.empty() ? page : page.parent_path() / file;
    if (!fs::exists(SOURCE_FOLDER / target)) {
        return false;
    }
    bool found = anchor.empty();
    const std::string text = anchor.empty() ? "" : slurp(target);
    for (const std::smatch &heading : find(text, "\n#+ ([^\n]*)")) {
        found = found || anchorOf(heading[1]) == anchor;
    }
    return found;
}

TEST(Docs, LinksLeadSomewhere)
{
    for (const char *name : {"README.md", "docs/errors.md", "docs/guide.md"}) {
        const std::string page = slurp(name);
        const auto links = find(page, R"re(\]\(([^):#]*)(#[^)]*)?\))re");
        EXPECT_GT(links.size(), 3U);
        for (const std::smatch &link : links) {
            EXPECT_TRUE(leadsSomewhere(name, link[1], link[2]))
                << name << ": " << link.str();
        }
    }
}

} // namespace
