#include "sim.h"

#include <csignal>

Sim::Sim(const Words &run, const std::vector<Words> &make)
{
    std::vector<std::string> folders;
    for (const Words &options : make) {
        devices.emplace_back(root.path, options);
        folders.push_back(devices.back().folder);
    }
    simulator.emplace(root.path, folders, run);
    setenv("USBMUXD_SOCKET_ADDRESS", ("UNIX:" + simulator->socket).c_str(), 1);
}

Sim::~Sim()
{
    EXPECT_EQ(simulator->End(), 0) << "the simulator did not end cleanly";
}

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

void DeviceTest::start(const Words &run, const Words &make)
{
    if (sim)
        TearDown();
    sim = std::make_unique<Sim>(run, std::vector<Words>{make});
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
    Eventually([&] { return sim->stats()["device_connections"] == 0; }, 2);
    auto stats = sim->stats();
    EXPECT_EQ(stats["open_files"], 0);
    EXPECT_EQ(stats["device_connections"], 0);
    EXPECT_EQ(stats["house_arrest_connections"], 0);
    sim.reset();
}

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

// Limits tell a wait that ends from one that does not; other programs may have
// the machine for themselves for a while.
constexpr double BUSY = 2 * SLOWNESS;

void expectWithin(double milliseconds, const std::function<void()> &call)
{
    double begin = Now();
    call();
    EXPECT_LT((Now() - begin) * 1000, milliseconds * BUSY);
}

std::string DeviceTest::makeFile(const std::string &name, size_t size) const
{
    create_directories((sim->storage() / name).parent_path());
    Spill(sim->storage() / name, pattern(size));
    return "/general_storage/" + name;
}

Bytes DeviceTest::onDevice(const std::string &name) const
{
    return fileBytes(sim->storage() / name);
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

int DeviceTest::readCode(libiusb_file file, uint64_t offset,
                         uint32_t length) const
{
    std::string buffer(length, '\0');
    uint32_t count = 77;
    int code =
        libiusb_afc_file_read(afc, file, buffer.data(), length, offset, &count);
    EXPECT_TRUE(code == 0 || count == 0);
    return code;
}

int DeviceTest::write(libiusb_file file, uint64_t offset,
                      const std::string &bytes, uint32_t *count) const
{
    uint32_t unused = 0;
    return libiusb_afc_file_write(afc, file, bytes.data(),
                                  static_cast<uint32_t>(bytes.size()), offset,
                                  count ? count : &unused);
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
