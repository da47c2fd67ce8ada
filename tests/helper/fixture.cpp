#include "tests/helper/fixture.h"

#include <signal.h>
#include <stdlib.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "helper/mounts.h"

HelperTest::HelperTest()
{
    work = (std::filesystem::temp_directory_path() / "quorvel-helper.XXXXXX")
               .string();
    if (mkdtemp(work.data()) == nullptr) {
        ADD_FAILURE() << "no temporary folder";
    }
    work = std::filesystem::canonical(work);
    std::filesystem::create_directory(work + "/home");
    environment = {{"USBMUXD_SOCKET_ADDRESS", "UNIX:" + work + "/usbmuxd"},
                   {"HOME", work + "/home"},
                   {"QUORVEL_MOUNTS", work + "/home"},
                   {"XDG_STATE_HOME", work + "/state"},
                   {"QUORVEL_DIALOG", "/bin/true"},
                   {"DISPLAY", ""},
                   {"WAYLAND_DISPLAY", ""}};
}

HelperTest::~HelperTest()
{
    EXPECT_FALSE(Mounted(work));
    for (const helper::Mount &mount : helper::readMounts()) {
        if (mount.point.starts_with(work + "/")) {
            Quorvel({"unmount", "--force", mount.point});
        }
    }
    simulator.reset();
    std::error_code error;
    if (!Mounted(work)) {
        std::filesystem::remove_all(work, error);
    }
}

SampleDevice &HelperTest::Add(const std::string &name, const Words &options)
{
    const std::string udid =
        "00008110-000A1C2E3F40800" + std::to_string(devices.size());
    Words words = {"--name",   name, "--udid",  udid,
                   "--photos", "2",  "--songs", "2"};
    words.insert(words.end(), options.begin(), options.end());
    devices.push_back(std::make_unique<SampleDevice>(work, words));
    return *devices.back();
}

void HelperTest::Serve(const Words &options)
{
    std::vector<std::string> folders;
    for (const auto &device : devices) {
        folders.push_back(device->folder);
    }
    simulator = std::make_unique<Simulator>(work, folders, options);
}

Finished HelperTest::Quorvel(const Words &words, double limit) const
{
    Words all = {Program("quorvel")};
    all.insert(all.end(), words.begin(), words.end());
    return RunProgram(all, environment, limit);
}

std::unique_ptr<Process> HelperTest::Start(const Words &words,
                                           const std::string &log) const
{
    Words all = {Program("quorvel")};
    all.insert(all.end(), words.begin(), words.end());
    return std::make_unique<Process>(all, environment, work + "/" + log);
}

std::string HelperTest::Point(const std::string &name) const
{
    return work + "/home/" + name;
}

void HelperTest::KillServer(const std::string &point) const
{
    const auto status =
        nlohmann::json::parse(Quorvel({"status", "--json"}).out);
    for (const auto &one : status["volumes"]) {
        if (one["mounted"] == point) {
            EXPECT_EQ(kill(one["process"].get<pid_t>(), SIGKILL), 0);
            return;
        }
    }
    ADD_FAILURE() << "nothing is mounted at " << point;
}

bool HelperTest::Mounted(const std::string &path)
{
    // Blanks are written as octal numbers there.
    std::string escaped;
    for (const char c : path) {
        escaped += c == ' ' ? "\\040" : std::string(1, c);
    }
    const std::string table = Slurp("/proc/self/mountinfo");
    return table.find(" " + escaped + " ") != std::string::npos ||
           table.find(" " + escaped + "/") != std::string::npos;
}
