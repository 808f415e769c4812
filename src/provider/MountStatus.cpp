#include "provider/MountStatus.h"

#include "provider/mount/ErrorNumbers.h"

namespace brindlemar {

JSON::Members mountStatus(Mount* mount) {
    if (!mount) return {{"mount", JSON()}};
    const Mount::Status status = mount->status();
    std::vector<JSON> transfers, failures, unsaved;
    for (const std::string& path : status.waiting.written) unsaved.push_back(JSON::object({{"path", JSON(path)}}));
    for (const auto& transfer : status.transfers)
        transfers.push_back(JSON::object({{"kind", transfer.fetch ? "fetch" : "upload"},
                                          {"path", JSON(transfer.path)},
                                          {"completed", JSON(transfer.completed)},
                                          {"total", JSON(transfer.total)}}));
    for (const auto& [path, error] : status.failures)
        failures.push_back(
            JSON::object({{"path", JSON(path)},
                          {"text", JSON(whyFailed(error))},
                          {"error", JSON::object({{"domain", JSON(error.domain)}, {"code", JSON(error.code)}})}}));
    return {{"mount", JSON::object({{"path", JSON(status.path)},
                                    {"mounted", JSON(status.error.empty())},
                                    {"error", status.error.empty() ? JSON() : JSON(status.error)}})},
            {"queue", JSON::object({{"length", JSON(status.waiting.length)}, {"unsaved", JSON::array(unsaved)}})},
            {"transfers", JSON::array(transfers)},
            {"failures", JSON::array(failures)},
            {"failureCount", JSON(status.waiting.failed)}};
}

} // namespace brindlemar
