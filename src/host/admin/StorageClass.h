// The classes in which objects are stored.
#pragma once

#include <optional>
#include <string_view>
#include <utility>

namespace brindlemar::host {

inline constexpr std::string_view kUsualStorageClass = "STANDARD";

/// How items of the class are marked in replies, under "glacier"; 0 when they are not, and none when the class is
/// unknown. What is marked lies in an archive and must be restored before it can be read.
constexpr std::optional<int> archiveMark(std::string_view storageClass) {
    constexpr std::pair<std::string_view, int> classes[] = {
        {kUsualStorageClass, 0},   {"STANDARD_IA", 0}, {"ONEZONE_IA", 0},  {"INTELLIGENT_TIERING", 0},
        {"REDUCED_REDUNDANCY", 0}, {"GLACIER", 4},     {"DEEP_ARCHIVE", 5}};
    for (const auto& [name, mark] : classes)
        if (name == storageClass) return mark;
    return std::nullopt;
}

} // namespace brindlemar::host
