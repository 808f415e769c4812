#include "items/SyncAnchor.h"

#include <random>

namespace brindlemar {

std::string randomString(std::size_t length) {
    static constexpr std::string_view characters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    std::random_device random;
    std::uniform_int_distribution<std::size_t> index(0, characters.size() - 1);
    std::string text(length, ' ');
    for (char& character : text) character = characters[index(random)];
    return text;
}

NSFileProviderSyncAnchor newSyncAnchor() { return {randomString(5)}; }

} // namespace brindlemar
