#include "tarnifs/mount/arguments.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace
{

struct Parsed {
    ARGUMENTS arguments;
    std::vector<std::string> forFuse; // "(null)" for a null pointer
    std::vector<std::string> cut;
};

Parsed parse(std::vector<std::string> words)
{
    words.insert(words.begin(), "quorvelfs");
    std::vector<char *> argv;
    for (std::string &word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    Parsed parsed;
    parsed.arguments =
        ParseArguments(static_cast<int>(words.size()), argv.data());
    for (size_t i = 0; i < words.size(); ++i) {
        auto &where = static_cast<int>(i) < parsed.arguments.fuseCount
                          ? parsed.forFuse
                          : parsed.cut;
        where.emplace_back(argv[i] == nullptr ? "(null)" : argv[i]);
    }
    return parsed;
}

TEST(Arguments, DevoptIsTakenOut)
{
    const Parsed parsed = parse({"/mnt", "-o", "ro", "-devopt", "20123456"});
    EXPECT_TRUE(parsed.arguments.goOn);
    EXPECT_EQ(parsed.arguments.message, "");
    EXPECT_EQ(parsed.arguments.locationId, 20123456);
    EXPECT_EQ(parsed.forFuse,
              (std::vector<std::string>{"quorvelfs", "/mnt", "-o", "ro"}));
    EXPECT_EQ(parsed.cut, (std::vector<std::string>{"(null)", "(null)"}));
}

TEST(Arguments, IdsAboveIntMaxKeepTheirBits)
{
    for (const char *text : {"4294967295", "-1"}) {
        const Parsed parsed = parse({"/mnt", "-devopt", text});
        EXPECT_TRUE(parsed.arguments.goOn);
        EXPECT_EQ(static_cast<uint32_t>(parsed.arguments.locationId),
                  4294967295U);
    }
    EXPECT_EQ(static_cast<uint32_t>(
                  parse({"/mnt", "-devopt", "337641472"}).arguments.locationId),
              337641472U);
}

TEST(Arguments, WithoutDevoptTwoArgumentsAreDroppedWithAWarning)
{
    const Parsed parsed = parse({"/mnt", "-o", "ro"});
    EXPECT_TRUE(parsed.arguments.goOn);
    EXPECT_EQ(parsed.arguments.locationId, 0);
    EXPECT_EQ(parsed.forFuse, (std::vector<std::string>{"quorvelfs", "/mnt"}));
    EXPECT_TRUE(parsed.arguments.toError);
    EXPECT_EQ(parsed.arguments.message.find('\n'),
              parsed.arguments.message.size() - 1); // one line
}

TEST(Arguments, WhatCannotWorkIsRefusedWithTheUsage)
{
    const std::vector<std::vector<std::string>> lines = {
        {},
        {"/mnt"},
        {"/mnt", "-f"},
        {"-devopt", "12"},
        {"/mnt", "-devopt"},
        {"/mnt", "-f", "-devopt"},
        {"/mnt", "-devopt", "12", "-f"},
        {"-devopt", "12", "/mnt", "-f"},
        {"/mnt", "-devopt", ""},
        {"/mnt", "-devopt", "abc"},
        {"/mnt", "-devopt", "12x"},
        {"/mnt", "-devopt", " 12"},
        {"/mnt", "-devopt", "+12"},
        {"/mnt", "-devopt", "4294967296"},
        {"/mnt", "-devopt", "99999999999999999999"},
        {"/mnt", "-devopt", "-2147483649"},
    };
    for (const auto &line : lines) {
        const Parsed parsed = parse(line);
        SCOPED_TRACE(testing::PrintToString(line));
        EXPECT_FALSE(parsed.arguments.goOn);
        EXPECT_EQ(parsed.arguments.status, 2);
        EXPECT_TRUE(parsed.arguments.toError);
        EXPECT_NE(parsed.arguments.message.find("usage: quorvelfs"),
                  std::string::npos);
    }
}

TEST(Arguments, HelpAndVersionAreAnswered)
{
    for (const char *word : {"-h", "--help", "-V", "--version"}) {
        const Parsed parsed = parse({word});
        EXPECT_FALSE(parsed.arguments.goOn);
        EXPECT_EQ(parsed.arguments.status, 0);
        EXPECT_FALSE(parsed.arguments.toError);
    }
    EXPECT_EQ(parse({"--version"}).arguments.message,
              "quorvelfs " QUORVEL_VERSION "\n");
    EXPECT_NE(parse({"--help"}).arguments.message.find("-devopt"),
              std::string::npos);
}

} // namespace
