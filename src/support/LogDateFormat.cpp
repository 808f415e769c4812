#include "support/LogDateFormat.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <mutex>

namespace brindlemar {

namespace {

/// The text of one second, ready but for the milliseconds. Trivially destructible: the end of a process logs too.
struct SecondText {
    std::int64_t second = std::numeric_limits<std::int64_t>::min();
    int millisecondsAt = 0;
    int size = 0;
    char text[48];

    void render(std::int64_t newSecond);
};

void SecondText::render(std::int64_t newSecond) {
    const std::time_t time = newSecond;
    std::tm local{};
    {
        static std::mutex zones; // for checkers of races, which do not see the library's own lock
        std::lock_guard lock(zones);
        ::tzset(); // localtime_r need not look at the zone again (POSIX)
        ::localtime_r(&time, &local);
    }
    millisecondsAt = std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.", local.tm_year + 1900,
                                   local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    char* const zone = text + millisecondsAt + 3;
    const auto zoneRoom = sizeof text - static_cast<std::size_t>(zone - text);
    const long minutes = std::labs(local.tm_gmtoff) / 60;
    const int zoneSize = minutes == 0 ? std::snprintf(zone, zoneRoom, "Z")
                                      : std::snprintf(zone, zoneRoom, "%c%02ld:%02ld", local.tm_gmtoff < 0 ? '-' : '+',
                                                      minutes / 60, minutes % 60);
    size = millisecondsAt + 3 + zoneSize;
    second = newSecond;
}

} // namespace

void LogDateFormat::append(LogLine& line, Timestamp date) const {
    using namespace std::chrono;
    thread_local SecondText cached;
    const std::int64_t rounded = floor<milliseconds>(date + microseconds(500)).time_since_epoch().count();
    const std::int64_t second = floor<seconds>(milliseconds(rounded)).count();
    if (second != cached.second) cached.render(second);
    const auto milliseconds = static_cast<int>(rounded - second * 1000);
    char* const digits = cached.text + cached.millisecondsAt;
    digits[0] = static_cast<char>('0' + milliseconds / 100);
    digits[1] = static_cast<char>('0' + milliseconds / 10 % 10);
    digits[2] = static_cast<char>('0' + milliseconds % 10);
    line.append({cached.text, static_cast<std::size_t>(cached.size)});
}

} // namespace brindlemar
