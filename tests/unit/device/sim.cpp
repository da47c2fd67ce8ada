#include "sim.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

extern char **environ;

namespace fs = std::filesystem;
using nlohmann::json;

// ---------------------------------------------------------------------------
// Processes

// Starts the simulator program; its standard output is the write end of a pipe
// whose read end goes to *output.
static pid_t startProgram(const std::vector<std::string> &arguments,
                          int *output)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC))
        throw std::runtime_error("pipe");
    std::vector<char *> argv;
    std::string program = SIM_PROGRAM;
    argv.push_back(program.data());
    for (const std::string &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    pid_t process = -1;
    int error = posix_spawn(&process, program.c_str(), &actions, nullptr,
                            argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    *output = ends[0];
    if (error)
        throw std::runtime_error("cannot start the simulator");
    return process;
}

static std::string firstLine(int fd)
{
    std::string line;
    char c = 0;
    while (::read(fd, &c, 1) == 1 && c != '\n')
        line.push_back(c);
    return line;
}

static void makeDevice(const fs::path &folder,
                       const std::vector<std::string> &options)
{
    std::vector<std::string> arguments{"make", folder.string()};
    arguments.insert(arguments.end(), options.begin(), options.end());
    int output = -1, status = -1;
    pid_t process = startProgram(arguments, &output);
    while (!firstLine(output).empty())
        continue;
    close(output);
    waitpid(process, &status, 0);
    if (status != 0)
        throw std::runtime_error("cannot make a sample device");
}

Sim::Sim(const std::vector<std::string> &run,
         const std::vector<std::vector<std::string>> &make)
{
    std::string name = fs::temp_directory_path() / "device-test.XXXXXX";
    if (!mkdtemp(name.data()))
        throw std::runtime_error("mkdtemp");
    root = name;
    std::vector<std::string> arguments{"run", "--socket", root / "mux",
                                       "--control", root / "control"};
    for (size_t i = 0; i < make.size(); i++) {
        fs::path folder = root / ("device" + std::to_string(i));
        makeDevice(folder, make[i]);
        arguments.insert(arguments.end(), {"--device", folder.string()});
    }
    arguments.insert(arguments.end(), run.begin(), run.end());
    int output = -1;
    process = startProgram(arguments, &output);
    std::string line = firstLine(output);
    close(output);
    if (line != "ready")
        throw std::runtime_error("the simulator did not start: " + line);
    setenv("USBMUXD_SOCKET_ADDRESS",
           ("UNIX:" + (root / "mux").string()).c_str(), 1);
}

Sim::~Sim()
{
    int status = 0;
    kill(process, SIGTERM);
    waitpid(process, &status, 0);
    EXPECT_EQ(status, 0) << "the simulator did not end cleanly";
    std::error_code ignored;
    fs::remove_all(root, ignored);
}

std::string Sim::control(const std::string &command) const
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string path = root / "control";
    strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::string answer;
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) ==
        0) {
        std::string line = command + "\n";
        if (send(fd, line.data(), line.size(), MSG_NOSIGNAL) > 0)
            answer = firstLine(fd);
    }
    close(fd);
    EXPECT_EQ(answer.substr(0, 2), "ok") << command << ": " << answer;
    return answer.size() > 3 ? answer.substr(3) : std::string();
}

json Sim::stats() const
{
    return json::parse(control("stats"));
}

int Sim::afc(const std::string &operation) const
{
    return stats()["afc"].value(operation, 0);
}

fs::path Sim::media(int device) const
{
    return root / ("device" + std::to_string(device)) / "Media";
}

fs::path Sim::documents(const std::string &bundle_id) const
{
    return root / "device0" / "Apps" / bundle_id / "Documents";
}

// ---------------------------------------------------------------------------

Setting::Setting(const char *name, const std::string &value) : variable(name)
{
    setenv(name, value.c_str(), 1);
}

Setting::~Setting()
{
    unsetenv(variable);
}

Opened::Opened()
{
    signal(SIGPIPE, SIG_IGN);
    libiusb_init_ex("", 0);
    libiusb_context_init(&context);
}

Opened::~Opened()
{
    libiusb_device_close(device);
    libiusb_context_exit(context);
}

int Opened::open()
{
    libiusb_device **devices = nullptr;
    int code = libiusb_device_get_list(context, &devices);
    if (code)
        return code;
    return devices[0] ? libiusb_device_open(devices[0], &device)
                      : static_cast<int>(LIBIUSB_ERROR_NO_DEVICE);
}

void DeviceTest::start(const std::vector<std::string> &run,
                       const std::vector<std::string> &make)
{
    sim =
        std::make_unique<Sim>(run, std::vector<std::vector<std::string>>{make});
    opened = std::make_unique<Opened>();
    ASSERT_EQ(opened->open(), 0);
    ASSERT_EQ(libiusb_afc_init(opened->device, &afc), 0);
    sim->resetStats();
}

void DeviceTest::TearDown()
{
    if (!sim)
        return;
    libiusb_afc_exit(afc);
    opened.reset();
    // The simulator notices the end of a connection a moment later.
    json stats;
    for (int i = 0; i < 100; i++) {
        stats = sim->stats();
        if (stats["device_connections"] == 0)
            break;
        poll(nullptr, 0, 20);
    }
    EXPECT_EQ(stats["open_files"], 0);
    EXPECT_EQ(stats["device_connections"], 0);
    EXPECT_EQ(stats["house_arrest_connections"], 0);
    sim.reset();
}

// ---------------------------------------------------------------------------

void PrintTo(const Bytes &bytes, std::ostream *out)
{
    constexpr size_t shown = 32;
    *out << bytes.size()
         << " bytes: " << testing::PrintToString(bytes.substr(0, shown));
}

Bytes pattern(size_t size, uint64_t offset)
{
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; i++) {
        uint64_t at = (offset + i) / 8;
        uint64_t word = (at + 1) * 0x9E3779B97F4A7C15U;
        bytes[i] = static_cast<char>(word >> ((offset + i) % 8 * 8));
    }
    return bytes;
}

void writeFile(const fs::path &path, const std::string &bytes)
{
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

Bytes fileBytes(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

int64_t duration(const std::function<void()> &call)
{
    using namespace std::chrono;
    auto begin = steady_clock::now();
    call();
    return duration_cast<milliseconds>(steady_clock::now() - begin).count();
}

std::string DeviceTest::makeFile(const std::string &name, size_t size) const
{
    writeFile(sim->media() / "general_storage" / name, pattern(size));
    return "/general_storage/" + name;
}

libiusb_file DeviceTest::openFile(const std::string &path, int mode) const
{
    libiusb_file file = 0;
    EXPECT_EQ(libiusb_afc_file_open(afc, path.c_str(), mode, &file), 0) << path;
    return file;
}

Bytes DeviceTest::read(libiusb_file file, uint64_t offset, size_t length) const
{
    std::string bytes(length, '\0');
    uint32_t count = 0;
    EXPECT_EQ(libiusb_afc_file_read(afc, file, bytes.data(),
                                    static_cast<uint32_t>(length), offset,
                                    &count),
              0)
        << "at " << offset;
    bytes.resize(count);
    return bytes;
}

Bytes DeviceTest::readAll(libiusb_file file, size_t call) const
{
    std::string bytes;
    for (;;) {
        std::string piece = read(file, bytes.size(), call);
        bytes += piece;
        if (piece.size() < call)
            return bytes;
    }
}

std::vector<std::string> DeviceTest::list(const std::string &path) const
{
    char **names = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(
        libiusb_afc_file_read_directory(afc, path.c_str(), &names, &count), 0)
        << path;
    std::vector<std::string> result;
    for (char **name = names; name && *name; name++)
        result.emplace_back(*name);
    libiusb_misc_free_strings_array(names);
    EXPECT_EQ(result.size(), count);
    return result;
}

int DeviceTest::info(const std::string &path, libiusb_afc_file_info *out) const
{
    libiusb_afc_file_info unused;
    return libiusb_afc_file_get_info(afc, path.c_str(), out ? out : &unused);
}
