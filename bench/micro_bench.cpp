// The catalogue and the names without a device: what one look-up, one
// conversion, one record costs.
#include <malloc.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "tarnifs/catalogue/object.h"
#include "tarnifs/mount/context.h"
#include "tarnifs/names/encoding.h"
#include "tests/handlers/test_host.h"

namespace
{

constexpr int RECORDS = 100000;

std::string PathOf(int number)
{
    return "/Storage/folder/some file name " + std::to_string(number) + ".txt";
}

// A mount context, which deleting a record asks for, and the name buffer.
class Mount
{
  public:
    Mount()
    {
        gEncodedPath = static_cast<char *>(calloc(1, ENCODED_PATH_SIZE));
        testHost.privateData = &context;
        testHost.haveFuseContext = true;
    }
    ~Mount()
    {
        ClearCatalogue(nullptr);
        free(gEncodedPath);
        gEncodedPath = nullptr;
        testHost.privateData = nullptr;
    }
    Mount(const Mount &) = delete;
    Mount &operator=(const Mount &) = delete;

  private:
    _CONTEXT context;
};

void Fill(int count)
{
    for (int i = 0; i < count; ++i) {
        GetObjectWithFileName(PathOf(i).c_str());
    }
}

void FindExisting(benchmark::State &state)
{
    const Mount mount;
    Fill(RECORDS);
    const std::string path = PathOf(RECORDS / 2);
    for (auto _ : state) {
        benchmark::DoNotOptimize(FindObject(path.c_str()));
    }
}
BENCHMARK(FindExisting);

void FindMissing(benchmark::State &state)
{
    const Mount mount;
    Fill(RECORDS);
    for (auto _ : state) {
        benchmark::DoNotOptimize(FindObject("/Storage/folder/not there.txt"));
    }
}
BENCHMARK(FindMissing);

void ConvertName(benchmark::State &state, const char *name)
{
    std::vector<char> buffer(ENCODED_PATH_SIZE);
    for (auto _ : state) {
        std::fill(buffer.begin(), buffer.end(), '\0');
        benchmark::DoNotOptimize(getUTF8MACName(name, buffer.data()));
    }
}
BENCHMARK_CAPTURE(ConvertName, ascii, "A usual file name.txt");
BENCHMARK_CAPTURE(ConvertName, decomposed,
                  "Cafe\xCC\x81 \xE1\x84\x92\xE1\x85\xA1\xE1\x86\xAB.txt");

void MakeAndDelete(benchmark::State &state)
{
    const Mount mount;
    const std::string path = PathOf(1);
    for (auto _ : state) {
        DeleteObject(GetObjectWithFileName(path.c_str()), path.c_str());
    }
}
BENCHMARK(MakeAndDelete);

// Bytes that the heap grows by for each of 100,000 records, map included.
void MemoryOfRecords(benchmark::State &state)
{
    for (auto _ : state) {
        const Mount mount;
        const size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
        Fill(RECORDS);
        const size_t after = mallinfo2().uordblks + mallinfo2().hblkhd;
        state.counters["bytes_per_record"] =
            static_cast<double>(after - before) / RECORDS;
    }
}
BENCHMARK(MemoryOfRecords)->Iterations(1);

} // namespace

BENCHMARK_MAIN();
