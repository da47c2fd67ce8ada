// The bytes of the pipe: whatever comes, in whatever pieces.
#include "helper/pipe_reader.h"

#include <cstring>
#include <random>

#include <gtest/gtest.h>

using helper::News;
using helper::PipeReader;
using helper::Transfer;

namespace
{

const News ON = {News::BusyOn, {}, 0};
const News OFF = {News::BusyOff, {}, 0};

template <typename Number>
std::string Bytes(Number value)
{
    return {reinterpret_cast<const char *>(&value), sizeof(value)};
}

std::string Record(const Transfer &transfer)
{
    std::string extension = transfer.extension;
    extension.resize(10, '\0');
    return Bytes(transfer.kind) + Bytes(transfer.size) + extension;
}

std::string Batch(const std::vector<Transfer> &transfers)
{
    std::string text = "-ncdat" + std::string(8, '\0') +
                       Bytes(static_cast<uint32_t>(transfers.size()));
    for (const Transfer &transfer : transfers) {
        text += Record(transfer);
    }
    return text;
}

std::vector<Transfer> Some(size_t count)
{
    static const char *const EXTENSIONS[] = {"mp4", "", "jpg", "ninechars",
                                             "-x"};
    std::vector<Transfer> transfers;
    for (size_t i = 0; i < count; ++i) {
        transfers.push_back({i % 3 == 0 ? 2U : 1U, 1048576 * i + 45,
                             EXTENSIONS[i % std::size(EXTENSIONS)]});
    }
    return transfers;
}

News Told(size_t count)
{
    return {News::Transfers, Some(count), 0};
}

News Lost(size_t bytes)
{
    return {News::Nonsense, {}, bytes};
}

// All that comes of it, with time for what waits.
std::vector<News> ReadAll(const std::string &data)
{
    PipeReader reader;
    std::vector<News> news = reader.feed(data, 0);
    for (int second = 2; reader.waiting() && second < 100; second += 2) {
        for (const News &late : reader.expire(second)) {
            news.push_back(late);
        }
    }
    EXPECT_FALSE(reader.waiting());
    return news;
}

} // namespace

TEST(PipeReader, messages)
{
    const std::string one = Batch(Some(1));
    const std::string many = Batch(Some(30));
    std::string kind3 = one;
    kind3[18] = 3;
    std::string unended = one;
    memset(unended.data() + 30, 'x', 10);
    std::string empty = one;
    empty[14] = 0;
    std::string tooMany = one;
    tooMany[14] = 31;
    struct {
        const char *what;
        std::string data;
        std::vector<News> news;
    } const cases[] = {
        {"signals run together", "-neon-neoff-neon", {ON, OFF, ON}},
        {"a batch of 30 and one of 15",
         many + Batch(Some(15)),
         {Told(30), Told(15)}},
        {"batches and signals",
         "-neon" + one + "-neoff" + one,
         {ON, Told(1), OFF, Told(1)}},
        {"nonsense before and after",
         "abc-neonxyz-" + one,
         {Lost(3), ON, Lost(4), Told(1)}},
        {"nothing but nonsense", std::string(5000, '\0'), {Lost(5000)}},
        {"a kind that is none", kind3 + "-neon", {Lost(40), ON}},
        {"an extension without end", unended + "-neon", {Lost(40), ON}},
        {"no records", empty + "-neon", {Lost(40), ON}},
        {"too many records", tooMany + "-neon", {Lost(40), ON}},
        {"a writer died in a header",
         one.substr(0, 9) + one,
         {Lost(9), Told(1)}},
        {"a writer died in a record",
         many.substr(0, 18 + 3 * 22 + 7) + "-neon",
         {Told(3), Lost(7), ON}},
        {"a writer died, others went on",
         many.substr(0, 18 + 22) + "-neon" + one + "-neoff",
         {Told(1), ON, Told(1), OFF}},
        {"half a signal", "-neo", {Lost(4)}},
    };
    for (const auto &one_case : cases) {
        EXPECT_TRUE(ReadAll(one_case.data) == one_case.news) << one_case.what;
    }
}

// Where a pipe takes 512 bytes at once, anything may stand in a longer batch.
TEST(PipeReader, messages_inside_a_batch)
{
    const std::string batch = Batch(Some(30));
    const std::pair<std::string, News> others[] = {
        {"-neon", ON}, {"-neoff", OFF}, {Batch(Some(3)), Told(3)}};
    for (const auto &[text, news] : others) {
        for (size_t at = 19; at < batch.size(); ++at) {
            const std::string data =
                batch.substr(0, at) + text + batch.substr(at) + "-neon";
            ASSERT_TRUE(ReadAll(data) ==
                        (std::vector<News>{news, Told(30), ON}))
                << text.substr(0, 6) << " at " << at;
        }
    }
}

TEST(PipeReader, any_pieces)
{
    std::mt19937 random(20240301);
    const auto upTo = [&](size_t most) {
        return random() % (most + 1);
    };
    for (int round = 0; round < 300; ++round) {
        std::string data;
        std::vector<News> expected;
        for (size_t i = 0; i < 40; ++i) {
            const size_t count = upTo(30);
            if (count == 0) {
                data += i % 2 == 0 ? "-neon" : "-neoff";
                expected.push_back(i % 2 == 0 ? ON : OFF);
            } else if (count > 22 && upTo(1) == 0) {
                std::string batch = Batch(Some(count));
                batch.insert(512, "-neoff");
                data += batch;
                expected.insert(expected.end(), {OFF, Told(count)});
            } else {
                data += Batch(Some(count));
                expected.push_back(Told(count));
            }
        }
        PipeReader reader;
        std::vector<News> news;
        for (size_t at = 0; at < data.size();) {
            const size_t length = 1 + upTo(700);
            for (const News &one : reader.feed(data.substr(at, length), 0)) {
                news.push_back(one);
            }
            at += length;
        }
        ASSERT_TRUE(news == expected) << "round " << round;
    }
}

// Random bytes, rich in beginnings of messages: it always comes to an end, and
// understands what follows.
TEST(PipeReader, survives_anything)
{
    std::mt19937 random(7);
    const std::string words[] = {"-",
                                 "-n",
                                 "-neon",
                                 "-neoff",
                                 "-ncdat",
                                 std::string(8, '\0'),
                                 Batch(Some(30)),
                                 Record(Some(1)[0]),
                                 Bytes(30U)};
    for (int round = 0; round < 400; ++round) {
        std::string data;
        while (data.size() < 3000) {
            const std::string &word = words[random() % std::size(words)];
            data += word.substr(0, 1 + random() % word.size());
        }
        const std::vector<News> news =
            ReadAll(data + std::string(700, '\1') + "-neoff");
        ASSERT_FALSE(news.empty());
        ASSERT_TRUE(news.back() == OFF) << "round " << round;
    }
}
