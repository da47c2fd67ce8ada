#include "util/log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>

#include "util/log_host.h"

namespace
{

constexpr int32_t LOUDEST = 3;

std::atomic<int32_t> g_logLevel{LOUDEST};
char logpath[1024];
char s[2048];
std::string chosenFolder; // QNLogUseFolder
std::mutex logLock;       // guards the buffers and the folder

// More than the default cannot be had.
int32_t configuredLevel()
{
    return std::min(LogHostLevel(LOUDEST), LOUDEST);
}

// The file holds paths and device names of one user: the mode is given here
// because the process's file-creation mask is 0.
int openLog(const char *path)
{
    return open(path, O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW,
                S_IRUSR | S_IWUSR);
}

bool isWritable(const std::string &path)
{
    const int fd = openLog(path.c_str());
    if (fd < 0) {
        return false;
    }
    close(fd);
    return true;
}

// Makes every missing folder of a path, for the owner alone.
void makeFolders(const std::string &path)
{
    for (size_t at = path.find('/', 1); at != std::string::npos;
         at = path.find('/', at + 1)) {
        mkdir(path.substr(0, at).c_str(), S_IRWXU);
    }
    mkdir(path.c_str(), S_IRWXU);
}

// Where the log goes. /var/log stays the answer when nothing can be written, so
// that the complaint on standard error names the usual place's trouble.
// A silent log is not even tried: the try leaves an empty file.
std::string chooseLogFile(const std::string &name)
{
    if (!chosenFolder.empty()) {
        return chosenFolder + "/" + name;
    }
    std::string usual = "/var/log/" + name;
    if (g_logLevel < 0 || isWritable(usual)) {
        return usual;
    }
    const std::string folder = LogHostFolder();
    if (folder.empty()) {
        return usual;
    }
    makeFolders(folder);
    std::string own = folder + "/" + name;
    return isWritable(own) ? own : usual;
}

void fixPath()
{
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    char name[50] = {};
    strftime(name, sizeof(name), "Quorvelfs%mM%dD.log", &local);
    const std::string path = chooseLogFile(name);
    memset(logpath, 0, sizeof(logpath));
    snprintf(logpath, sizeof(logpath), "%s", path.c_str());
}

void writeLine(FILE *file, time_t now, const char *message)
{
    tm local{};
    localtime_r(&now, &local);
    char stamp[64] = {};
    const size_t length = strftime(stamp, sizeof(stamp), "[%HH%MM%SS]", &local);
    fwrite(stamp, 1, length, file);
    fprintf(file, "[%0d]", getpid());
    fputs(message, file);
    fputc('\n', file);
}

} // namespace

void QNLogUseFolder(const char *folder)
{
    const std::lock_guard<std::mutex> guard(logLock);
    chosenFolder = folder == nullptr ? "" : folder;
}

void QNLogInit()
{
    {
        const std::lock_guard<std::mutex> guard(logLock);
        g_logLevel = configuredLevel();
        fixPath();
    }
    static const char *const tags[] = {
        "[LOG_EMERG]",   "[LOG_ALERT]",  "[LOG_CRIT]", "[LOG_ERR]",
        "[LOG_WARNING]", "[LOG_NOTICE]", "[LOG_INFO]", "[LOG_DEBUG]"};
    int level = 0;
    for (const char *tag : tags) {
        QNLog(level++, "%s Enabled", tag);
    }
}

// NOLINTNEXTLINE(cert-dcl50-cpp): checked like printf
void QNLog(int level, const char *format, ...)
{
    if (g_logLevel < level) {
        return;
    }
    const std::lock_guard<std::mutex> guard(logLock);
    const time_t now = time(nullptr);
    const int fd = openLog(logpath);
    FILE *file = fd < 0 ? nullptr : fdopen(fd, "a+");
    if (file == nullptr) {
        perror("open log failed");
        if (fd >= 0) {
            close(fd);
        }
        return;
    }
    memset(s, 0, sizeof(s));
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(s, sizeof(s), format, arguments);
    va_end(arguments);
    writeLine(file, now, s);
    fclose(file);
}
