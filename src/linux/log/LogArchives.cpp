#include "linux/log/LogArchives.h"

#include "support/Guarded.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <vector>

namespace brindlemar {

namespace {

constexpr std::string_view kShape = ".00000000T000000.XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX";

bool isArchiveSuffix(std::string_view suffix) {
    constexpr std::string_view kHex = "0123456789ABCDEF";
    return std::equal(suffix.begin(), suffix.end(), kShape.begin(), kShape.end(), [&](char c, char shape) {
        return shape == '0' ? c >= '0' && c <= '9' : shape == 'X' ? kHex.find(c) != kHex.npos : c == shape;
    });
}

/// Milliseconds since 1970 and a number within them that only grow, though the clock may not.
struct Moment {
    std::int64_t milliseconds = 0;
    unsigned number = 0;
};

Moment nextMoment() {
    using namespace std::chrono;
    static Guarded<Moment> last;
    const std::int64_t now = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    return last.with([now](Moment& moment) {
        if (now > moment.milliseconds)
            moment = {now, 0};
        else if (++moment.number > 0xFFF)
            moment = {moment.milliseconds + 1, 0};
        return moment;
    });
}

/// The oldest first; empty when the directory cannot be read.
std::vector<std::string> archivesOf(const std::string& path) {
    namespace fs = std::filesystem;
    const fs::path file(path);
    const std::string name = file.filename();
    std::vector<std::string> archives;
    std::error_code error;
    for (fs::directory_iterator entry(file.parent_path(), error), end; !error && entry != end; entry.increment(error)) {
        const std::string other = entry->path().filename();
        if (other.starts_with(name) && isArchiveSuffix(std::string_view(other).substr(name.size())))
            archives.push_back(entry->path());
    }
    std::sort(archives.begin(), archives.end());
    return archives;
}

} // namespace

std::string newArchivePath(const std::string& path) {
    const Moment moment = nextMoment();
    const std::time_t second = moment.milliseconds / 1000;
    std::tm utc{};
    ::gmtime_r(&second, &utc);
    std::array<char, 32> date;
    std::strftime(date.data(), date.size(), ".%Y%m%dT%H%M%S.", &utc);

    unsigned long long random = 0;
    static_cast<void>(::getrandom(&random, sizeof random, GRND_NONBLOCK));
    random = (random & ~(3ULL << 62)) | (1ULL << 63); // the variant
    const auto time = static_cast<unsigned long long>(moment.milliseconds);
    std::array<char, 80> uuid;
    std::snprintf(uuid.data(), uuid.size(), "%08llX-%04llX-%04X-%04llX-%012llX", time >> 16, time & 0xFFFF,
                  0x7000 | moment.number, random >> 48, random & 0xFFFFFFFFFFFF);
    return path + date.data() + uuid.data();
}

void pruneArchives(const std::string& path, std::size_t maximum) {
    const std::vector<std::string> archives = archivesOf(path);
    if (archives.size() <= maximum) return;
    std::error_code ignored;
    for (std::size_t i = 0; i < archives.size() - maximum; ++i) std::filesystem::remove(archives[i], ignored);
}

} // namespace brindlemar
