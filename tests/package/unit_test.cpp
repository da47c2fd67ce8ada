// The watch as systemd's user unit runs it.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "tests/helper/fixture.h"

namespace
{

// The datagrams that a service sends.
class Manager
{
  public:
    explicit Manager(const std::string &path)
        : fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        const timeval limit = {20, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
        EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address),
                       sizeof(address)),
                  0);
    }
    ~Manager() { close(fd); }
    Manager(const Manager &) = delete;
    Manager &operator=(const Manager &) = delete;

    std::string Hear() const
    {
        char text[512];
        const ssize_t n = recv(fd, text, sizeof(text), 0);
        return n > 0 ? std::string(text, static_cast<size_t>(n)) : "";
    }

  private:
    int fd;
};

class UnitTest : public HelperTest
{
};

TEST_F(UnitTest, WatchTellsWhenItIsReadyAndWhenItEnds)
{
    Add("Anna's iPhone");
    Serve();
    const Manager manager(work + "/manager");
    environment["NOTIFY_SOCKET"] = work + "/manager";
    environment["QUORVEL_NOTIFY_PIPE"] = work + "/pipe";
    const std::unique_ptr<Process> watch =
        Start({"watch", "--no-notify"}, "watch.log");
    EXPECT_EQ(manager.Hear().rfind("READY=1\n", 0), 0U);
    EXPECT_TRUE(Eventually([&] { return Mounted(Point("Anna's iPhone")); }));
    watch->Signal(SIGTERM);
    EXPECT_EQ(manager.Hear().rfind("STOPPING=1\n", 0), 0U);
    EXPECT_EQ(watch->Wait(30), 0);
    EXPECT_FALSE(Mounted(work)) << "a clean end unmounts";
}

} // namespace
