#include "core/Staging.h"

#include "platform/Platform.h"

namespace brindlemar {

std::variant<std::shared_ptr<const StagedCopy>, NSError> StagedCopy::make(const std::optional<FileURL>& tempURL,
                                                                          const std::optional<FileURL>& contents) {
    if (!tempURL) return cannotSynchronize();
    Files& files = Platform::current().files;
    const FileURL place{tempURL->path + "/" + files.globallyUniqueString()};
    const auto copy = std::make_shared<const StagedCopy>(place);
    const auto error = contents ? files.copyItem(*contents, place) : files.createDirectory(place);
    if (error) return *error;
    return copy;
}

StagedCopy::~StagedCopy() {
    const Platform& platform = Platform::current(); // a file system takes seconds to free the blocks of a long file
    platform.tasks.async([&files = platform.files, url = url_] { files.removeItem(url); });
}

} // namespace brindlemar
