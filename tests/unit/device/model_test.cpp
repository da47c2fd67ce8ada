// A long random sequence of reads, writes and size changes through two handles
// of one file, with short replies thrown in, against a string that takes the
// same changes.
#include <algorithm>
#include <random>

#include "sim.h"

class Model : public DeviceTest
{
  protected:
    std::mt19937 random;
    std::string model;
    libiusb_file files[2] = {};
    uint64_t last_end = 0;

    size_t pick(size_t below) { return random() % std::max<size_t>(below, 1); }

    // Mostly small, sometimes larger than a chunk.
    size_t someLength() { return pick(4) == 0 ? pick(900'000) : pick(40'000); }
    // Often where the last call ended, so that reading ahead begins.
    uint64_t someOffset()
    {
        return pick(3) != 0 ? last_end : pick(model.size() + 1000);
    }

    void readSome(libiusb_file file)
    {
        uint64_t offset = someOffset();
        size_t length = someLength();
        Bytes found = read(file, offset, length);
        ASSERT_EQ(found, offset < model.size()
                             ? Bytes(model.substr(offset, length))
                             : Bytes())
            << "at " << offset;
        last_end = offset + found.size();
    }
    void writeSome(libiusb_file file)
    {
        uint64_t offset = someOffset();
        std::string bytes = pattern(someLength(), random());
        uint32_t count = 0;
        ASSERT_EQ(write(file, offset, bytes, &count), 0);
        ASSERT_EQ(count, bytes.size());
        if (!bytes.empty()) {
            model.resize(std::max(model.size(), offset + bytes.size()));
            model.replace(offset, bytes.size(), bytes);
        }
        last_end = offset + bytes.size();
    }
    void resize(libiusb_file file)
    {
        model.resize(pick(3'000'000));
        ASSERT_EQ(libiusb_afc_file_set_size(afc, file, model.size()), 0);
    }

    void run(unsigned seed, int steps)
    {
        random.seed(seed);
        start();
        std::string path = makeFile("model", 2'000'000);
        model = pattern(2'000'000);
        for (libiusb_file &file : files)
            file = openFile(path, LIBIUSB_MODE_UPDATE);
        for (int i = 0; i < steps && !HasFatalFailure(); i++) {
            libiusb_file file = files[pick(8) == 0];
            size_t choice = pick(60);
            if (choice < 45)
                readSome(file);
            else if (choice < 55)
                writeSome(file);
            else if (choice < 57)
                resize(file);
            else
                sim->control(choice == 57 ? "zero-read 1 after=1"
                                          : "short-read 1 after=2");
        }
        EXPECT_EQ(onDevice("model"), model);
    }
};

TEST_F(Model, ManyInFlight)
{
    run(1, 1500);
}

TEST_F(Model, FewInFlight)
{
    for (const char *few : {"1", "3"}) {
        Setting window("QUORVEL_AFC_WINDOW", few);
        run(2, 500);
    }
}
