#include "simdevice/file_maker.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <vector>

#include "simdevice/device_folder.h"

namespace sim
{

namespace fs = std::filesystem;

namespace
{

bool writeAll(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t n = write(fd, bytes.data(), bytes.size());
        if (n < 0 && errno != EINTR) {
            return false;
        }
        bytes.remove_prefix(n > 0 ? static_cast<size_t>(n) : 0);
    }
    return true;
}

} // namespace

void FileMaker::note(const std::string &problem)
{
    if (m_problem.empty()) {
        m_problem = problem;
    }
}

void FileMaker::noteErrno(const std::string &path, int error)
{
    note(m_root + "/" + path + ": " + errorText(error));
}

void FileMaker::folder(const std::string &path)
{
    if (!m_made.insert(path).second) {
        return;
    }
    std::error_code error;
    fs::create_directories(m_root + "/" + path, error);
    if (error) {
        noteErrno(path, error.value());
    }
}

void FileMaker::parentOf(const std::string &path)
{
    const size_t slash = path.rfind('/');
    if (slash != std::string::npos) {
        folder(path.substr(0, slash));
    }
}

void FileMaker::file(const std::string &path, std::string_view bytes)
{
    file(path, bytes, m_time);
    m_time += 60;
}

void FileMaker::file(const std::string &path, std::string_view bytes,
                     int64_t time)
{
    parentOf(path);
    const int fd = open((m_root + "/" + path).c_str(),
                        O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        noteErrno(path, errno);
        return;
    }
    const timespec times[2] = {{time, 0}, {time, 0}};
    if (!writeAll(fd, bytes) || futimens(fd, times) != 0) {
        noteErrno(path, errno);
    }
    if (::close(fd) != 0) {
        noteErrno(path, errno);
    }
}

std::string FileMaker::place(const std::string &path)
{
    parentOf(path);
    return m_root + "/" + path;
}

void FileMaker::written(const std::string &path, const std::string &problem)
{
    if (!problem.empty()) {
        note(problem);
        return;
    }
    for (const char *tail : {"", "-wal", "-shm"}) {
        std::error_code error;
        if (fs::exists(m_root + "/" + path + tail, error)) {
            setTime(path + tail, kFirstTime);
        }
    }
}

void FileMaker::setTime(const std::string &path, int64_t time)
{
    const timespec times[2] = {{time, 0}, {time, 0}};
    if (utimensat(AT_FDCWD, (m_root + "/" + path).c_str(), times, 0) != 0) {
        noteErrno(path, errno);
    }
}

void FileMaker::finishFolders()
{
    std::vector<std::string> folders;
    std::error_code error;
    for (fs::recursive_directory_iterator it(m_root, error), end;
         !error && it != end; it.increment(error)) {
        if (it->is_directory(error)) {
            folders.push_back(it->path().string());
        }
    }
    for (const std::string &path : folders) {
        setTime(path.substr(m_root.size() + 1), kFirstTime);
    }
}

} // namespace sim
