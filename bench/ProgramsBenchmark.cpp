// The real programs at what people do with them, beside the least that the same work can cost. Files are in the
// directory for temporary files ($TMPDIR): what the file system can do decides.
#include "Paired.h"
#include "host/RequestHandler.h"
#include "linux/queues/SystemClock.h"
#include "system/World.h"

#include <boost/json.hpp>

namespace brindlemar::bench {
namespace {

namespace fs = std::filesystem;
using system_tests::World;

struct Programs : World {
    Programs() {
        fs::create_directory(path + "/served");
        startService();
        startHost({"Photos=" + path + "/served"});
        if (!runUntil({"ls"}, "Photos\n", 10)) throw std::runtime_error("the programs do not start");
    }
    void expect(const system_tests::Arguments& arguments, const char* program = BRINDLEMAR) {
        if (const auto result = run(arguments, program); result.status != 0) throw std::runtime_error(result.errors);
    }
};

/// A file through the host, the extension and the service, against cp. May take 1.3 times as long and 50 ms.
void getOneGiB(benchmark::State& state) {
    Programs programs;
    const std::string source = programs.path + "/served/big", target = programs.path + "/target";
    {
        std::ofstream file(source, std::ios::binary);
        std::string block(std::size_t{1} << 20, '\0');
        for (std::uint64_t seed = 1, i = 0; i < 1024; ++i) {
            for (std::size_t at = 0; at < block.size(); at += 8)
                std::memcpy(&block[at], &(seed = seed * 6364136223846793005u + 1442695040888963407u), 8);
            file << block;
        }
    }
    std::vector<double> copies, gets;
    for (auto _ : state) {
        copies.push_back(seconds([&] { programs.expect({source, target}, "/bin/cp"); }));
        fs::remove(target);
        gets.push_back(seconds([&] { programs.expect({"get", "Photos/big", target}); }));
        if (fs::file_size(target) != fs::file_size(source)) state.SkipWithError("bytes are missing");
        fs::remove(target);
        state.SetIterationTime(gets.back());
    }
    state.counters["cp_ms"] = 1e3 * median(copies);
    state.counters["ratio"] = median(gets) / median(copies);
    state.counters["of_allowed"] = median(gets) / (1.3 * median(copies) + 0.05);
}
BENCHMARK(getOneGiB)->UseManualTime()->Iterations(7)->Unit(benchmark::kMillisecond);

/// Runs tasks within the call.
struct InlineQueue final : Queue {
    void async(Task task) override { task(); }
    void after(std::chrono::nanoseconds, Task task) override { task(); }
    std::unique_ptr<Timer> repeat(std::chrono::nanoseconds, Task) override { return nullptr; }
};

/// Small files up through the whole road, against the host's own work for the same uploads without any road.
void putSmallFiles(benchmark::State& state) {
    constexpr int files = 2000;
    Programs programs;
    for (int i = 0; i < files; ++i) programs.file("local/" + std::to_string(i), "the contents of a small file");
    InlineQueue queue;
    SystemClock clock;
    host::Misbehaviour misbehaviour{host::Misbehaviour::Options{}};
    const std::string alone = programs.path + "/alone";
    const auto hostAlone = [&] {
        fs::create_directory(alone);
        host::TopDirectory top(FileDescriptor(::open(alone.c_str(), O_RDONLY | O_DIRECTORY)),
                               host::TopDirectory::Way::whole);
        host::RequestHandler handler(
            std::unique_ptr<host::Served>(new host::Served{{"Alone", "c1", alone},
                                                           host::Tree(std::move(top)),
                                                           [](const std::string&) {},
                                                           clock,
                                                           queue,
                                                           host::ItemAttributes(programs.path + "/alone.json")}),
            host::RequestHandler::Queues{queue, queue}, misbehaviour);
        for (int i = 0; i < files; ++i) {
            const std::string name = std::to_string(i);
            handler.handle(boost::json::serialize(boost::json::value{{"command", "uploadItemAtPath"},
                                                                     {"path", programs.path + "/local/" + name},
                                                                     {"parentID", "0"},
                                                                     {"mtime", "1600000000"},
                                                                     {"name", name}}),
                           [](std::string_view) { return true; });
        }
    };
    const auto filesIn = [](const std::string& directory) {
        return std::distance(fs::directory_iterator(directory), fs::directory_iterator());
    };
    std::vector<double> alones, puts;
    for (auto _ : state) {
        alones.push_back(seconds(hostAlone));
        puts.push_back(seconds([&] { programs.expect({"put", programs.path + "/local", "Photos/target"}); }));
        if (filesIn(alone) != files || filesIn(programs.path + "/served/target") != files)
            state.SkipWithError("files are missing");
        fs::remove_all(alone);
        fs::remove_all(programs.path + "/served/target");
        state.SetIterationTime(puts.back());
    }
    state.counters["host_alone_per_s"] = files / median(alones);
    state.counters["ours_per_s"] = files / median(puts);
    state.counters["ratio"] = median(alones) / median(puts);
}
BENCHMARK(putSmallFiles)->UseManualTime()->Iterations(7)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace brindlemar::bench
