#include "host/admin/AdminCommands.h"
#include "host/admin/StorageClass.h"
#include "support/TextForms.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace brindlemar::host {

namespace {
constexpr std::int64_t kSecondsOfADay = 86400;
constexpr std::int64_t kSignedFor = 900; // seconds
constexpr std::int64_t kLongestExpiration = std::int64_t{1} << 31;

std::string serialized(const JSON::Members& members) { return *JSON::object(members).serialized(); }

/// The whole number of a member that is a text; none unless it lies between 1 and `most`.
std::optional<std::int64_t> numberMember(const JSON& request, std::string_view key, std::int64_t most) {
    const std::string text = textMember(request, key);
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    if (std::from_chars(text.data(), end, number).ptr != end || number < 1 || number > most) return std::nullopt;
    return number;
}

std::string urlUntil(const AdminRequest& request, std::int64_t seconds) {
    const auto path = request.served.tree.location(request.item.path);
    if (!path) throw Refusal("The place of the item is not known.");
    const std::int64_t expires = wholeSecondsSince1970(request.served.clock.now()) + seconds;
    return serialized({{"url", absoluteString({*path}) + "?expires=" + std::to_string(expires)}});
}
} // namespace

std::string getACL(const AdminRequest& request) {
    const JSON owner = JSON::object({{"id", std::to_string(request.status.st_uid)}});
    const JSON grant = JSON::object({{"grantee", owner}, {"permission", "FULL_CONTROL"}});
    return serialized({{"owner", owner}, {"grants", JSON::array({grant})}});
}

std::string getEncryption(const AdminRequest& request) {
    return serialized({{"encryptionType", attributeOf(request, "encryptionType")},
                       {"encryptionKeyID", attributeOf(request, "encryptionKeyID")}});
}

std::string setEncryption(const AdminRequest& request) {
    return setAttributes(request, {{"encryptionType", textMember(request.json, "encryptionType")},
                                   {"encryptionKeyID", textMember(request.json, "encryptionKeyID")}});
}

std::string getObjectMetadata(const AdminRequest& request) {
    const auto all = request.served.attributes.all();
    const std::string storageClass = attributeOf(request, attribute::storageClass);
    const std::string restored = attributeOf(request, attribute::restoredUntil);
    return serialized({{"name", request.item.name},
                       {"size", std::int64_t{request.status.st_size}},
                       {"mtime", std::int64_t{request.status.st_mtim.tv_sec}},
                       {"storageClass", storageClass.empty() ? std::string(kUsualStorageClass) : storageClass},
                       {"archived", isArchived(*all, request.item.path, request.served.clock.now())},
                       {"restoredUntil", restored},
                       {"encryptionType", attributeOf(request, "encryptionType")},
                       {"encryptionKeyID", attributeOf(request, "encryptionKeyID")}});
}

std::string setObjectStorageClass(const AdminRequest& request) {
    const std::string storageClass = textMember(request.json, "storageClass");
    if (!archiveMark(storageClass)) throw Refusal("There is no such storage class.");
    return setAttributes(
        request, {{std::string(attribute::storageClass), storageClass}, {std::string(attribute::restoredUntil), ""}});
}

std::string initiateGlacierRestore(const AdminRequest& request) {
    constexpr std::array<std::string_view, 3> tiers{"Standard", "Bulk", "Expedited"};
    if (std::ranges::find(tiers, textMember(request.json, "tier")) == tiers.end())
        throw Refusal("The tier must be Standard, Bulk or Expedited.");
    const auto days = numberMember(request.json, "days", 365);
    if (!days) throw Refusal("The days must be a number from 1 to 365.");
    if (archiveMark(attributeOf(request, attribute::storageClass)).value_or(0) == 0)
        throw Refusal("The object is in no archive.");
    const std::int64_t until = wholeSecondsSince1970(request.served.clock.now()) + *days * kSecondsOfADay;
    return setAttributes(request, {{std::string(attribute::restoredUntil), std::to_string(until)}});
}

std::string signURL(const AdminRequest& request) { return urlUntil(request, kSignedFor); }

std::string getObjectURL(const AdminRequest& request) {
    const auto seconds = numberMember(request.json, "expiration", kLongestExpiration);
    if (!seconds) throw Refusal("The expiration must be a number of seconds above 0.");
    return urlUntil(request, *seconds);
}

std::string listKeys(const AdminRequest&) {
    return R"([{"keyID":"key-1","name":"Everyday"},{"keyID":"key-2","name":"Archive"}])";
}

} // namespace brindlemar::host
