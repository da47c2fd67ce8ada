#include "tarnifs/mount/arguments.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace
{

using Words = std::vector<std::string>;

struct Parsed : ARGUMENTS {
    Words forFuse;
};

Parsed parse(Words words)
{
    words.insert(words.begin(), "quorvelfs");
    std::vector<char *> argv;
    for (std::string &word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    Parsed parsed{ParseArguments(static_cast<int>(words.size()), argv.data()),
                  {}};
    for (int i = 0; i < parsed.fuseCount; ++i) {
        parsed.forFuse.emplace_back(argv[static_cast<size_t>(i)]);
    }
    // What was taken out is gone for good.
    for (size_t i = parsed.forFuse.size(); i < words.size(); ++i) {
        EXPECT_TRUE(parsed.locationId == 0 || argv[i] == nullptr);
    }
    return parsed;
}

TEST(Arguments, DevoptIsTakenOut)
{
    // Ids above INT_MAX keep their bits.
    const std::pair<const char *, uint32_t> ids[] = {{"20123456", 20123456},
                                                     {"337641472", 337641472},
                                                     {"4294967295", 4294967295},
                                                     {"-1", 4294967295}};
    for (const auto &[text, id] : ids) {
        const Parsed parsed = parse({"/mnt", "-o", "ro", "-devopt", text});
        EXPECT_TRUE(parsed.goOn);
        EXPECT_EQ(parsed.message, "");
        EXPECT_EQ(static_cast<uint32_t>(parsed.locationId), id);
        EXPECT_EQ(parsed.forFuse, (Words{"quorvelfs", "/mnt", "-o", "ro"}));
    }
    // Without it two arguments are dropped, with one line of warning.
    const Parsed parsed = parse({"/mnt", "-o", "ro"});
    EXPECT_TRUE(parsed.goOn);
    EXPECT_EQ(parsed.locationId, 0);
    EXPECT_EQ(parsed.forFuse, (Words{"quorvelfs", "/mnt"}));
    EXPECT_TRUE(parsed.toError);
    EXPECT_EQ(parsed.message.find('\n'), parsed.message.size() - 1);
}

TEST(Arguments, WhatCannotWorkIsRefusedWithTheUsage)
{
    std::vector<Words> lines = {{},
                                {"/mnt"},
                                {"/mnt", "-f"},
                                {"-devopt", "12"},
                                {"/mnt", "-devopt"},
                                {"/mnt", "-f", "-devopt"},
                                {"/mnt", "-devopt", "12", "-f"},
                                {"-devopt", "12", "/mnt", "-f"}};
    for (const char *id : {"", "abc", "12x", " 12", "+12", "4294967296",
                           "99999999999999999999", "-2147483649"}) {
        lines.push_back({"/mnt", "-devopt", id});
    }
    for (const Words &line : lines) {
        const Parsed parsed = parse(line);
        SCOPED_TRACE(testing::PrintToString(line));
        EXPECT_FALSE(parsed.goOn);
        EXPECT_EQ(parsed.status, 2);
        EXPECT_TRUE(parsed.toError);
        EXPECT_NE(parsed.message.find("usage: quorvelfs"), std::string::npos);
    }
    for (const char *word : {"-h", "--help", "-V", "--version"}) {
        const Parsed parsed = parse({word});
        EXPECT_FALSE(parsed.goOn);
        EXPECT_EQ(parsed.status, 0);
        EXPECT_FALSE(parsed.toError);
    }
    EXPECT_EQ(parse({"--version"}).message, "quorvelfs " QUORVEL_VERSION "\n");
    EXPECT_NE(parse({"--help"}).message.find("-devopt"), std::string::npos);
}

} // namespace
