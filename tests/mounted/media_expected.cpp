#include "tests/mounted/media_expected.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>
#include <utility>

#include <gtest/gtest.h>

namespace
{

constexpr int64_t NOW = -1;
constexpr int64_t OF_FILE = -2;

std::string Trim(const std::string &text)
{
    const size_t begin = text.find_first_not_of(' ');
    const size_t end = text.find_last_not_of(' ');
    return begin == std::string::npos ? ""
                                      : text.substr(begin, end - begin + 1);
}

// The fields of a line, without its comment.
std::vector<std::string> Fields(const std::string &line)
{
    std::istringstream stream(line.substr(0, line.find('#')));
    std::vector<std::string> fields;
    std::string field;
    while (std::getline(stream, field, '|')) {
        fields.push_back(Trim(field));
    }
    fields.resize(std::max<size_t>(fields.size(), 4));
    return fields;
}

double Number(const Generation &generation)
{
    return strtod(generation.ios, nullptr);
}

bool Holds(const std::string &when, const Generation &generation)
{
    const std::string family =
        std::string(Number(generation) < 10 ? "9" : "10") +
        (generation.cloud ? "c" : "");
    bool named = false;
    bool named_this = false;
    std::istringstream words(when);
    std::string word;
    while (words >> word) {
        if (word[0] == '<') {
            if (Number(generation) >= std::stod(word.substr(1))) {
                return false;
            }
        } else if (word.starts_with(">=")) {
            if (Number(generation) < std::stod(word.substr(2))) {
                return false;
            }
        } else {
            named = true;
            named_this = named_this || word == family;
        }
    }
    return !named || named_this;
}

// One character below U+10000 as UTF-8.
std::string Utf8(unsigned c)
{
    if (c < 0x800) {
        return {static_cast<char>(0xC0 | (c >> 6)),
                static_cast<char>(0x80 | (c & 0x3F))};
    }
    return {static_cast<char>(0xE0 | (c >> 12)),
            static_cast<char>(0x80 | ((c >> 6) & 0x3F)),
            static_cast<char>(0x80 | (c & 0x3F))};
}

// What a text with \uXXXX, {xN ...} and {-n} stands for.
std::string Spell(std::string text, const Generation &generation)
{
    size_t at = 0;
    while ((at = text.find("\\u")) != std::string::npos) {
        const std::string digits = text.substr(at + 2, 4);
        text.replace(
            at, 6,
            Utf8(static_cast<unsigned>(std::stoul(digits, nullptr, 16))));
    }
    while ((at = text.find('{')) != std::string::npos) {
        const size_t end = text.find('}', at);
        const std::string inner = text.substr(at + 1, end - at - 1);
        std::string whole;
        if (inner[0] == 'x') {
            for (int i = std::stoi(inner.substr(1)); i > 0; --i) {
                whole += inner.substr(inner.find(' ') + 1);
            }
        } else if (Number(generation) >= 12) {
            whole = "-4FA300" + inner.substr(1);
        }
        text.replace(at, end - at + 1, whole);
    }
    return text;
}

int64_t Utc(int year, int month, int day, int hour, int minute, int second)
{
    tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    return timegm(&parts);
}

// Featured photos were taken an hour after each other, plain ones ten minutes;
// all were changed a minute after that.
int64_t TimeOfPhoto(const std::string &file)
{
    const int number = std::stoi(file.substr(file.rfind("/IMG_") + 5));
    return number > 9000
               ? Utc(2020, 6, 1, 12, 1, 0) + int64_t{3600} * (number - 9000)
               : Utc(2021, 1, 1, 0, 1, 0) + int64_t{600} * (number - 1);
}

// "20200201 100000.m4a"
int64_t TimeInName(const std::string &file)
{
    const size_t at = file.rfind('/') + 1;
    const auto part = [&](size_t begin, size_t digits) {
        return std::stoi(file.substr(at + begin, digits));
    };
    return Utc(part(0, 4), part(4, 2), part(6, 2), part(9, 2), part(11, 2),
               part(13, 2));
}

int64_t Time(const std::string &text, const std::string &file,
             const std::string &usual)
{
    if (text.size() == 16) { // "2020-06-02 02:01"
        const auto part = [&](size_t begin, size_t digits) {
            return std::stoi(text.substr(begin, digits));
        };
        return Utc(part(0, 4), part(5, 2), part(8, 2), part(11, 2), part(14, 2),
                   0);
    }
    if (text == "now") {
        return NOW;
    }
    return usual == "taken"  ? TimeOfPhoto(file)
           : usual == "name" ? TimeInName(file)
                             : OF_FILE;
}

// The head of a section, and the lines below it.
struct Section {
    std::string name, folder, usual, note;
    bool present = true;

    Section() = default;
    Section(const std::string &head, const Generation &generation)
        : name(Spell(head.substr(1, head.find(']') - 1), generation))
    {
        std::string rest = head.substr(head.find(']') + 1);
        rest = Trim(rest.substr(0, rest.find('#')));
        const size_t comma = rest.find(", ");
        if (comma != std::string::npos) {
            note = rest.substr(comma + 2);
            rest.resize(comma);
        }
        std::string when;
        std::istringstream words(rest);
        words >> folder >> usual >> when;
        if (usual.empty()) {
            note = std::exchange(folder, "");
        }
        present = Holds(when, generation);
    }

    ExpectedEntry Entry(const std::vector<std::string> &fields,
                        const Generation &generation) const
    {
        ExpectedEntry entry;
        entry.name = fields[0] == "-" ? "" : Spell(fields[0], generation);
        if (entry.name.ends_with("/")) {
            entry.name.pop_back();
            entry.folder = true;
            return entry;
        }
        entry.file = Spell(fields[1], generation);
        entry.file = entry.file[0] == '/' ? entry.file.substr(1)
                                          : folder + "/" + entry.file;
        entry.time = Time(fields[3], entry.file, usual);
        return entry;
    }
};

} // namespace

ExpectedMedia ReadExpectedMedia(const Generation &generation)
{
    std::ifstream file(QUORVEL_MEDIA_EXPECTED);
    ExpectedMedia media;
    Section section;
    std::string line;
    while (std::getline(file, line)) {
        if (line.starts_with("[")) {
            section = Section(line, generation);
            if (section.present && section.name != "log") {
                media.folders.push_back({section.name, section.note, {}});
            }
            continue;
        }
        const std::vector<std::string> fields = Fields(line);
        if (fields[0].empty() || !section.present) {
            continue;
        }
        if (section.name == "log") {
            if (Holds(fields[1], generation)) {
                media.log.push_back(
                    {Spell(fields[0], generation), fields[2] == "*" ? -1
                                                   : fields[2].empty()
                                                       ? 1
                                                       : std::stoi(fields[2])});
            }
        } else if (Holds(fields[2], generation)) {
            media.folders.back().entries.push_back(
                section.Entry(fields, generation));
        }
    }
    if (media.folders.size() < 20 || media.log.size() < 10) {
        ADD_FAILURE() << "media_expected.txt can't be read";
    }
    return media;
}
