#include "helper/mount_line.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace helper
{

namespace
{

constexpr double LONGEST_WAIT = 86400;

// Of fstab's options, what other programs or the kernel's defaults take care
// of. Names that end with "=" or "-" stand for all that begin so.
constexpr std::string_view NOT_OURS[] = {
    "defaults",    "auto",          "noauto",     "user",     "user=",
    "users",       "nouser",        "owner",      "noowner",  "group",
    "nogroup",     "_netdev",       "nofail",     "comment=", "x-",
    "X-",          "uhelper=",      "helper=",    "relatime", "norelatime",
    "strictatime", "nostrictatime", "atime",      "diratime", "lazytime",
    "nolazytime",  "iversion",      "noiversion", "mand",     "nomand",
    "silent",      "loud"};

// What quorvelfs and the FUSE library know. A sloppy mount goes on without what
// is not among these.
constexpr std::string_view KNOWN[] = {"ro",
                                      "rw",
                                      "suid",
                                      "nosuid",
                                      "dev",
                                      "nodev",
                                      "exec",
                                      "noexec",
                                      "sync",
                                      "async",
                                      "dirsync",
                                      "noatime",
                                      "nodiratime",
                                      "allow_other",
                                      "allow_root",
                                      "auto_unmount",
                                      "default_permissions",
                                      "fsname=",
                                      "max_read=",
                                      "uid=",
                                      "gid=",
                                      "umask=",
                                      "entry_timeout=",
                                      "attr_timeout=",
                                      "usbmux=",
                                      "dialog=",
                                      "log_level=",
                                      "timeout_ms=",
                                      "afc_window="};

template <size_t N>
bool among(const std::string_view (&names)[N], std::string_view option)
{
    return std::any_of(
        std::begin(names), std::end(names), [&](std::string_view name) {
            const char last = name.back();
            return last == '=' || last == '-' ? option.starts_with(name)
                                              : option == name;
        });
}

// At commas, except behind a backslash; the backslashes stay.
std::vector<std::string> splitOptions(const std::string &text)
{
    std::vector<std::string> options(1);
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == ',') {
            options.emplace_back();
            continue;
        }
        options.back() += text[i];
        if (text[i] == '\\' && i + 1 < text.size()) {
            options.back() += text[++i];
        }
    }
    return options;
}

std::string unescaped(const std::string &text)
{
    std::string plain;
    for (size_t i = 0; i < text.size(); ++i) {
        i += text[i] == '\\' && i + 1 < text.size() ? 1 : 0;
        plain += text[i];
    }
    return plain;
}

std::string takeWait(const std::string &text, MountLine &line)
{
    unsigned seconds = 0;
    const char *end = text.data() + text.size();
    const auto [at, error] = std::from_chars(text.data(), end, seconds);
    if (error != std::errc() || at != end || seconds > LONGEST_WAIT) {
        return "-o wait needs a number of seconds, not \"" + text + "\"";
    }
    line.trust_wait = line.device_wait = seconds;
    return "";
}

// One option: to us, to nobody, or to quorvelfs.
std::string takeOption(const std::string &option, MountLine &line)
{
    const auto value = [&](std::string_view key) {
        return unescaped(option.substr(key.size()));
    };
    if (option.empty() || among(NOT_OURS, option)) {
        return "";
    }
    if (option == "remount" || option == "bind" || option == "move") {
        return "-o " + option + " is not possible; unmount and mount again";
    }
    if (option.starts_with("device=")) {
        line.device = value("device=");
        return "";
    }
    // That of quorvelfs, for where the device's name stands here.
    if (option.starts_with("location_id=")) {
        line.device = value("location_id=");
        return "";
    }
    if (option.starts_with("wait=")) {
        return takeWait(value("wait="), line);
    }
    if (option.starts_with("usbmux=")) {
        line.usbmux = value("usbmux=");
    }
    line.options += (line.options.empty() ? "" : ",") + option;
    return "";
}

// -s may come after -o.
void leaveUnknownOut(MountLine &line)
{
    std::string kept;
    for (const std::string &option : splitOptions(line.options)) {
        if (among(KNOWN, option)) {
            kept += (kept.empty() ? "" : ",") + option;
        }
    }
    line.options = kept;
}

std::string takeOptions(const std::string &text, MountLine &line)
{
    for (const std::string &option : splitOptions(text)) {
        std::string problem = takeOption(option, line);
        if (!problem.empty()) {
            return problem;
        }
    }
    return "";
}

std::string takeFlags(const std::string &word, MountLine &line)
{
    for (const char flag : word.substr(1)) {
        switch (flag) {
        case 's':
            line.sloppy = true;
            break;
        case 'f':
            line.fake = true;
            break;
        case 'v':
            line.verbose = true;
            break;
        case 'r':
            takeOption("ro", line);
            break;
        case 'n': // there is no table of mounts to write
        case 'w':
            break;
        default:
            return "unknown option " + word;
        }
    }
    return "";
}

std::string takeType(const std::string &type)
{
    const bool ours = type == "quorvelfs" || type == "fuse.quorvelfs";
    return ours ? "" : "-t " + type + " is not what this program mounts";
}

std::string takeWithValue(char option, const std::string &value,
                          MountLine &line)
{
    if (option == 'o') {
        return takeOptions(value, line);
    }
    if (option == 't') {
        return takeType(value);
    }
    line.name_space = value;
    return "";
}

std::string takePlace(const std::string &word, MountLine &line)
{
    if (line.source.empty()) {
        line.source = word;
    } else if (line.point.empty()) {
        line.point = word;
    } else {
        return "too many words: " + word;
    }
    return "";
}

// "none" and the name of the type leave it to device=, or to the only device.
std::string settleDevice(MountLine &line)
{
    const bool open = line.source == "none" || line.source == "quorvelfs";
    if (!open && !line.device.empty() && line.device != line.source) {
        return "\"" + line.source + "\" and device=" + line.device +
               " contradict each other";
    }
    if (!open) {
        line.device = line.source;
    }
    return "";
}

} // namespace

std::string parseMountLine(const std::vector<std::string> &words,
                           MountLine &line)
{
    std::string problem;
    for (size_t i = 0; i < words.size() && problem.empty(); ++i) {
        const std::string &word = words[i];
        if (word.size() < 2 || word[0] != '-') {
            problem = takePlace(word, line);
        } else if (std::string_view("otN").find(word[1]) ==
                   std::string_view::npos) {
            problem = takeFlags(word, line);
        } else if (word.size() > 2) {
            problem = takeWithValue(word[1], word.substr(2), line);
        } else if (i + 1 < words.size()) {
            problem = takeWithValue(word[1], words[++i], line);
        } else {
            problem = word + " needs a value";
        }
    }
    if (problem.empty() && line.point.empty()) {
        problem = "a device and a mount point are needed";
    }
    if (line.sloppy) {
        leaveUnknownOut(line);
    }
    return problem.empty() ? settleDevice(line) : problem;
}

} // namespace helper
