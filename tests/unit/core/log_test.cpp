#include "util/log.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/handlers/fixture.h"

namespace
{

class Log : public testing::Test
{
  protected:
    void SetUp() override { QNLogUseFolder(folder.path.c_str()); }
    void TearDown() override
    {
        unsetenv("QUORVEL_LOGLEVEL");
        QNLogUseFolder(nullptr);
    }
    std::string file() const
    {
        const time_t now = time(nullptr);
        tm local{};
        localtime_r(&now, &local);
        char name[64];
        strftime(name, sizeof(name), "/Quorvelfs%mM%dD.log", &local);
        return folder.path + name;
    }
    Names lines() const
    {
        std::ifstream in(file());
        Names all;
        for (std::string line; std::getline(in, line);) {
            all.push_back(line);
        }
        return all;
    }
    TempFolder folder;
};

TEST_F(Log, StartUpShowsTheLevelsThatAreOn)
{
    const std::pair<const char *, size_t> levels[] = {
        {"7", 4}, {"3", 4},    {"1", 2},  {"0", 1},   {"-1", 0},
        {"", 4},  {"many", 4}, {"2x", 4}, {"-99", 0}, {"99999999999999", 4},
    };
    for (const auto &[level, count] : levels) {
        std::filesystem::remove(file());
        setenv("QUORVEL_LOGLEVEL", level, 1);
        QNLogInit();
        EXPECT_EQ(lines().size(), count) << level;
    }
    EXPECT_NE(lines().at(0).find("[LOG_EMERG] Enabled"), std::string::npos);
    EXPECT_NE(lines().at(3).find("[LOG_ERR] Enabled"), std::string::npos);
}

TEST_F(Log, LinesHaveTimeProcessAndTextAndDoNotMix)
{
    const mode_t mask = umask(0);
    QNLogInit();
    std::filesystem::remove(file()); // it may be taken away
    QNLog(4, "%s unheard", "getContext");
    QNLog(3, "%s", std::string(3000, 'x').c_str());
    std::vector<std::thread> threads;
    for (const char *word : {"aaaa", "bbbb", "cccc"}) {
        threads.emplace_back([word] {
            for (int i = 0; i < 100; ++i) {
                QNLog(3, "%s%s%s", word, word, word);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    umask(mask);
    EXPECT_EQ(std::filesystem::status(file()).permissions(),
              std::filesystem::perms(0600));
    const std::regex shape("\\[[0-2]\\dH[0-5]\\dM[0-6]\\dS\\]\\[" +
                           std::to_string(getpid()) +
                           "\\](a{12}|b{12}|c{12}|x{2047})");
    EXPECT_EQ(lines().size(), 301U);
    for (const std::string &line : lines()) {
        EXPECT_TRUE(std::regex_match(line, shape)) << line;
    }
}

TEST_F(Log, ALinkIsNotFollowed)
{
    const std::string victim = folder.path + "/victim";
    std::ofstream(victim) << "precious";
    std::filesystem::create_symlink(victim, file());
    testing::internal::CaptureStderr();
    QNLogInit();
    EXPECT_NE(testing::internal::GetCapturedStderr().find("open log failed"),
              std::string::npos);
    EXPECT_EQ(std::filesystem::file_size(victim), 8U);
}

TEST(LogDeathTest, BeforeItsStartMessagesAreLostWithAComplaint)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe"; // a fresh process
    EXPECT_EXIT(
        {
            QNLog(3, "%s too early", "self");
            exit(0);
        },
        testing::ExitedWithCode(0), "open log failed");
}

TEST_F(Log, GoesToTheStateFolderOfAUserWhoMayNotWriteTheUsualOne)
{
    const std::string state = folder.path + "/state";
    ASSERT_EQ(chmod(folder.path.c_str(), 0777), 0);
    const pid_t child = fork();
    if (child == 0) {
        constexpr id_t nobody = 65534;
        if (geteuid() == 0 && (setgid(nobody) != 0 || setuid(nobody) != 0)) {
            _exit(2);
        }
        QNLogUseFolder(nullptr);
        setenv("XDG_STATE_HOME", (state + "/deep").c_str(), 1);
        QNLogInit();
        _exit(std::filesystem::is_empty(state + "/deep/quorvel") ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

} // namespace
