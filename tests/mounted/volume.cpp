#include "tests/mounted/volume.h"

#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "tests/support/simulator.h"

namespace
{

// Keeps what it is called with. The fields and calls are set apart by
// characters that no text has.
constexpr const char *DIALOG_PROGRAM = R"sh(#!/bin/sh
printf '%s\037%s\037%s\037%s\036' "$1" "$2" "$3" "$(umask)" >> "$QUORVEL_TEST_DIALOGS"
)sh";

std::vector<std::string> Split(const std::string &text, char separator)
{
    std::vector<std::string> parts;
    std::istringstream stream(text);
    std::string part;
    while (std::getline(stream, part, separator)) {
        parts.push_back(part);
    }
    return parts;
}

std::string LogName()
{
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    char name[64] = {};
    strftime(name, sizeof(name), "Quorvelfs%mM%dD.log", &local);
    return name;
}

void WriteProgram(const std::string &path, const std::string &text)
{
    Spill(path, text);
    chmod(path.c_str(), 0755);
}

size_t SizeOf(const std::string &path)
{
    struct stat st {
    };
    return stat(path.c_str(), &st) == 0 ? static_cast<size_t>(st.st_size) : 0;
}

} // namespace

Volume::Volume(const std::string &work, const std::string &socket,
               uint32_t location_id)
    : Volume(work, socket, location_id, Options())
{
}

Volume::Volume(const std::string &work, const std::string &socket,
               uint32_t location_id, const Options &options)
    : mount_point(work + "/mnt" + std::to_string(location_id)),
      dialog_file(work + "/dialogs" + std::to_string(location_id)),
      state(work + "/state"), location(location_id)
{
    std::filesystem::create_directories(mount_point);
    WriteProgram(work + "/dialog", DIALOG_PROGRAM);
    // Whoever may write to /var/log logs there, among others.
    log_file = access("/var/log", W_OK) == 0 ? "/var/log/" + LogName()
                                             : state + "/quorvel/" + LogName();
    log_begin = SizeOf(log_file);
    Environment environment = {
        {"USBMUXD_SOCKET_ADDRESS", "UNIX:" + socket},
        {"QUORVEL_DIALOG", work + "/dialog"},
        {"QUORVEL_TEST_DIALOGS", dialog_file},
        {"XDG_STATE_HOME", state},
    };
    for (const auto &[name, value] : options.environment) {
        environment[name] = value;
    }
    Words words = {Program("quorvelfs"), mount_point};
    if (!options.background) {
        words.emplace_back("-f");
    }
    words.insert(words.end(), options.words.begin(), options.words.end());
    words.insert(words.end(), {"-devopt", std::to_string(location)});
    process =
        std::make_unique<Process>(words, environment, work + "/quorvelfs.log");
    server = process->Pid();
    mounted =
        Eventually([this] { return IsMounted() || !process->Running(); }) &&
        IsMounted();
    if (!mounted) {
        ADD_FAILURE() << "not mounted: " << Output();
        return;
    }
    // Held back by the kernel until start-up is over.
    if (Stat(mount_point).error == -1) {
        ADD_FAILURE() << "the volume does not answer";
    }
}

Volume::~Volume()
{
    if (mounted) {
        Unmount();
    }
}

std::string Volume::Path(const std::string &path) const
{
    return mount_point + "/" + path;
}

std::string Volume::PrivateFolder() const
{
    return "/tmp/" + std::to_string(location);
}

bool Volume::IsMounted() const
{
    return Slurp("/proc/self/mountinfo").find(" " + mount_point + " ") !=
           std::string::npos;
}

void Volume::Unmount()
{
    const bool gone = Eventually(
        [this] {
            return RunProgram({"fusermount3", "-u", mount_point}).status == 0 ||
                   !IsMounted();
        },
        5);
    if (!gone) {
        ADD_FAILURE() << "the volume is busy";
        RunProgram({"fusermount3", "-uz", mount_point});
    }
    mounted = false;
    EXPECT_EQ(process->Wait(PATIENCE), 0) << Output();
    EXPECT_TRUE(Eventually(
        [this] { return access(PrivateFolder().c_str(), F_OK) != 0; }, 5))
        << "the private folder is still there";
    if (!trouble_expected) {
        EXPECT_EQ(UnexpectedLine(), "");
    }
}

std::vector<Dialog> Volume::Dialogs() const
{
    std::vector<Dialog> dialogs;
    for (const std::string &record : Split(Slurp(dialog_file), '\036')) {
        std::vector<std::string> fields = Split(record, '\037');
        fields.resize(4);
        dialogs.push_back({fields[0], fields[1], fields[2], fields[3]});
    }
    return dialogs;
}

bool Volume::WaitForDialog(const std::string &text, double seconds) const
{
    return Eventually(
        [&] {
            for (const Dialog &dialog : Dialogs()) {
                if (dialog.text == text) {
                    return true;
                }
            }
            return false;
        },
        seconds);
}

std::vector<std::string> Volume::Log() const
{
    const std::string all = Slurp(log_file);
    const std::string mark = "][" + std::to_string(server) + "]";
    std::vector<std::string> lines;
    for (const std::string &line :
         Split(all.substr(std::min(log_begin, all.size())), '\n')) {
        const size_t at = line.find(mark);
        if (at != std::string::npos) {
            lines.push_back(line.substr(at + mark.size()));
        }
    }
    return lines;
}

size_t Volume::CountInLog(const std::string &text) const
{
    size_t count = 0;
    for (const std::string &line : Log()) {
        count += line.find(text) != std::string::npos ? 1 : 0;
    }
    return count;
}

std::string Volume::UnexpectedLine() const
{
    for (const std::string &line : Log()) {
        // The tray helper's pipe is not there.
        if (line.starts_with("sendPipe") || line.starts_with("sendData")) {
            continue;
        }
        for (const char *word : {"fail", "NULL", "null", "Unexpected",
                                 "refused", "nvalid", "EXIST", "QN_CHECK"}) {
            if (line.find(word) != std::string::npos) {
                return line;
            }
        }
    }
    return "";
}
