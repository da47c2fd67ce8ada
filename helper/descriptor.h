// A file descriptor that closes itself.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace helper
{

class Descriptor
{
  public:
    explicit Descriptor(int number = -1) : fd(number) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor &&other) noexcept : fd(std::exchange(other.fd, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        reset(std::exchange(other.fd, -1));
        return *this;
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    int get() const { return fd; }
    bool open() const { return fd >= 0; }
    void reset(int number = -1)
    {
        if (fd >= 0) {
            ::close(fd);
        }
        fd = number;
    }
    // Gives the descriptor up without closing it.
    int release() { return std::exchange(fd, -1); }

  private:
    int fd;
};

// A pipe that children do not inherit.
struct Pipe {
    Descriptor out; // read here
    Descriptor in;  // write here

    bool open()
    {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            return false;
        }
        out.reset(ends[0]);
        in.reset(ends[1]);
        return true;
    }
};

} // namespace helper
