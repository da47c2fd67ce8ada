// copy: whole trees, both ways, failures on the way, interrupted and repeated.
#include <sys/stat.h>

#include <filesystem>

#include "tests/helper/fixture.h"

namespace fs = std::filesystem;

namespace
{

std::string Noise(size_t size, unsigned seed)
{
    std::string data(size, '\0');
    for (char &c : data) {
        seed = seed * 1664525U + 1013904223U;
        c = static_cast<char>(seed >> 24);
    }
    return data;
}

int64_t ChangedAt(const std::string &path)
{
    struct stat st {
    };
    return lstat(path.c_str(), &st) == 0 ? st.st_mtim.tv_sec : -1;
}

bool AnyPartial(const std::string &folder)
{
    for (const auto &entry : fs::recursive_directory_iterator(folder)) {
        if (entry.path().extension() == ".part") {
            return true;
        }
    }
    return false;
}

bool Contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

} // namespace

class CopyTest : public HelperTest
{
  protected:
    ~CopyTest() override
    {
        if (simulator != nullptr) {
            EXPECT_EQ(Quorvel({"unmount", Point("Anna's iPhone")}).status, 0);
        }
    }

    void Begin(const Words &options = {})
    {
        Serve(options);
        const Finished done = Quorvel({"mount"});
        EXPECT_EQ(done.status, 0) << done.out;
        fs::create_directory(work + "/out");
    }

    // Copies until `reached` holds, then interrupts.
    void Interrupt(const Words &words, const std::function<bool()> &reached)
    {
        const auto copy = Start(words, "copy.log");
        EXPECT_TRUE(Eventually(reached));
        copy->Signal(SIGINT);
        EXPECT_EQ(copy->Wait(20), 130) << copy->Output();
        EXPECT_TRUE(Contains(copy->Output(), "the same command goes on"));
    }
};

TEST_F(CopyTest, a_tree_comes_home)
{
    const SampleDevice &device = Add("Anna's iPhone");
    device.Put("trip/写真/Café.jpg", Noise(3'000'000, 1));
    device.Put("trip/empty", "");
    device.Put("trip/bad.bin", Noise(2'000'000, 2));
    device.Put("trip/z.txt", "z");
    device.Put("other.txt", "other");
    Begin();
    const Words command = {"copy", "Anna's iPhone:/Storage/trip",
                           work + "/out"};
    simulator->Control("fail FileRefOpen 1 10");
    Finished done = Quorvel(command);
    EXPECT_EQ(done.status, 20) << done.out;
    EXPECT_TRUE(Contains(done.out, "Copied 3 files")) << done.out;
    EXPECT_TRUE(Contains(done.out, "refused by the volume")) << done.out;

    done = Quorvel(command);
    EXPECT_EQ(done.status, 0) << done.out;
    EXPECT_TRUE(Contains(done.out, "3 were there already")) << done.out;
    for (const char *name : {"写真/Café.jpg", "empty", "bad.bin", "z.txt"}) {
        const std::string home = work + "/out/trip/" + name;
        const std::string there = device.Storage(std::string("trip/") + name);
        EXPECT_EQ(Slurp(home), Slurp(there)) << name;
        EXPECT_EQ(ChangedAt(home), ChangedAt(there)) << name;
    }
    EXPECT_FALSE(AnyPartial(work + "/out"));
    EXPECT_EQ(ChangedAt(work + "/out/trip"), ChangedAt(device.Storage("trip")));

    simulator->Control("stats reset");
    done = Quorvel(command);
    EXPECT_EQ(done.status, 0);
    EXPECT_TRUE(Contains(done.out, "Copied 0 files")) << done.out;
    EXPECT_EQ(simulator->Requests("FileRefRead"), 0U);

    // A folder that cannot be made costs what is in it, and nothing else.
    fs::create_directory(work + "/out2");
    Spill(work + "/out2/trip", "in the way");
    done = Quorvel({"copy", "Anna's iPhone:/Storage/trip",
                    "Anna's iPhone:/Storage/other.txt", work + "/out2"});
    EXPECT_EQ(done.status, 20) << done.out;
    EXPECT_EQ(Slurp(work + "/out2/other.txt"), "other") << done.out;
    EXPECT_EQ(Slurp(work + "/out2/trip"), "in the way");

    // A file that has changed at home is replaced, one that is in the way is
    // not.
    Spill(work + "/out/trip/z.txt", "longer");
    fs::remove(work + "/out/trip/empty");
    fs::create_directory(work + "/out/trip/empty");
    done = Quorvel(command);
    EXPECT_EQ(done.status, 20) << done.out;
    EXPECT_EQ(Slurp(work + "/out/trip/z.txt"), "z");
    EXPECT_TRUE(Contains(done.out, "Is a directory")) << done.out;
}

TEST_F(CopyTest, interrupted_on_the_way_out)
{
    const SampleDevice &device = Add("Anna's iPhone");
    const std::string data = Noise(24'000'000, 3);
    device.Put("film.mp4", data);
    Begin({"--mb-per-s", "12"});
    const Words command = {"copy", "Anna's iPhone:/Storage/film.mp4",
                           work + "/out/"};
    const auto partial = [&] {
        uint64_t size = 0;
        for (const auto &entry : fs::directory_iterator(work + "/out")) {
            size += entry.file_size();
        }
        return size;
    };
    Interrupt(command, [&] { return partial() > 8'000'000; });
    const uint64_t had = partial();
    EXPECT_TRUE(AnyPartial(work + "/out"));
    EXPECT_FALSE(fs::exists(work + "/out/film.mp4"));
    ASSERT_LT(had, data.size());
    simulator->Control("stats reset");
    const Finished done = Quorvel(command);
    EXPECT_EQ(done.status, 0) << done.out;
    EXPECT_TRUE(Slurp(work + "/out/film.mp4") == data);
    EXPECT_FALSE(AnyPartial(work + "/out"));
    EXPECT_LT(simulator->Number("bytes_read"),
              static_cast<int64_t>(data.size() - had + 2'000'000));
    // A copy of another source's remains is not gone on with.
    EXPECT_EQ(Quorvel({"unmount", Point("Anna's iPhone")}).status, 0);
    device.Put("film.mp4", Noise(24'000'000, 4));
    EXPECT_EQ(Quorvel({"mount"}).status, 0);
    Interrupt(command, [&] { return AnyPartial(work + "/out"); });
    EXPECT_TRUE(Slurp(work + "/out/film.mp4") == data);
}

TEST_F(CopyTest, interrupted_on_the_way_in)
{
    const SampleDevice &device = Add("Anna's iPhone");
    const std::string data = Noise(24'000'000, 5);
    fs::create_directories(work + "/in/sub");
    for (int i = 0; i < 20; ++i) {
        Spill(work + "/in/sub/" + std::to_string(i), Noise(1000, 6));
    }
    Spill(work + "/in/big.bin", data);
    fs::create_symlink("big.bin", work + "/in/link");
    Begin({"--mb-per-s", "12"});
    const Words command = {"copy", work + "/in", work + "/in/big.bin",
                           "Anna's iPhone:/Storage/new"};
    const auto written = [&] {
        return simulator->Number("bytes_written");
    };
    Interrupt(command, [&] { return written() > 8'000'000; });
    EXPECT_FALSE(fs::exists(device.Storage("new/big.bin")));
    simulator->Control("stats reset");
    Finished done = Quorvel(command);
    EXPECT_EQ(done.status, 0) << done.out;
    EXPECT_TRUE(Contains(done.out, "in/link: a link, left out")) << done.out;
    for (const char *name : {"new/in/big.bin", "new/big.bin"}) {
        EXPECT_TRUE(device.Get(name) == data) << name;
    }
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(device.Get("new/in/sub/" + std::to_string(i)),
                  Noise(1000, 6));
    }
    // Two big files, of one of which a third was there.
    EXPECT_LT(written(), 2 * 24'000'000 - 6'000'000);
    EXPECT_FALSE(AnyPartial(device.Storage("")));
    simulator->Control("stats reset");
    done = Quorvel(command);
    EXPECT_TRUE(Contains(done.out, "22 were there already")) << done.out;
    EXPECT_EQ(written(), 0);

    // A full device: said, nothing half-done left, the old file as it was.
    simulator->Control("space 1000000");
    Spill(work + "/in/big.bin", Noise(9'000'000, 8));
    done =
        Quorvel({"copy", work + "/in/big.bin", "Anna's iPhone:/Storage/new"});
    EXPECT_EQ(done.status, 20) << done.out;
    EXPECT_TRUE(device.Get("new/big.bin") == data);
}

TEST_F(CopyTest, a_device_that_goes_ends_it_with_one_line)
{
    environment["QUORVEL_TIMEOUT_MS"] = "1000";
    const SampleDevice &device = Add("Anna's iPhone");
    for (int i = 0; i < 200; ++i) {
        device.Put("many/" + std::to_string(i), Noise(20'000, 9));
    }
    Begin();
    simulator->Control("unplug after-bytes=2000000");
    const Finished done =
        Quorvel({"copy", "Anna's iPhone:/Storage/many", work + "/out"});
    EXPECT_EQ(done.status, 20) << done.out;
    EXPECT_TRUE(Contains(done.out, "The volume is gone")) << done.out;
    EXPECT_TRUE(Contains(done.out, "; 1 failed")) << done.out;
    simulator->Control("plug");
    EXPECT_EQ(Quorvel({"copy", "/nonexistent", work + "/out"}).status, 20);
    EXPECT_EQ(Quorvel({"copy", "Nobody:/x", work + "/out"}).status, 17);
}
