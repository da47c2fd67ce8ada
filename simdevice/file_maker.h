// Writes the files and folders of a sample device.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>

namespace sim
{

// 2024-03-01 12:00:00 UTC; where nothing else is asked for, every file is a
// minute younger than the one before, and every folder has this time.
constexpr int64_t kFirstTime = 1709294400;

// Paths are relative to the device's folder. The first failure is remembered.
class FileMaker
{
  public:
    explicit FileMaker(std::string root) : m_root(std::move(root)) {}

    void folder(const std::string &path);

    // Makes the folders above the file too.
    void file(const std::string &path, std::string_view bytes);
    void file(const std::string &path, std::string_view bytes, int64_t time);

    // Where somebody else writes a database; its folder is there.
    std::string place(const std::string &path);
    // It is written: takes note of what went wrong, if anything, and sets the
    // times of the file and of the logs beside it.
    void written(const std::string &path, const std::string &problem);

    // Folders get their times last, when nothing is put into them any more.
    void finishFolders();

    void note(const std::string &problem);
    const std::string &problem() const { return m_problem; }

  private:
    void parentOf(const std::string &path);
    void noteErrno(const std::string &path, int error);
    void setTime(const std::string &path, int64_t time);

    std::string m_root;
    std::string m_problem;
    std::unordered_set<std::string> m_made;
    int64_t m_time = kFirstTime;
};

} // namespace sim
