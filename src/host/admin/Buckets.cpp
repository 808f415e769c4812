#include "host/admin/AdminCommands.h"

#include <sys/stat.h>

#include <cerrno>

namespace brindlemar::host {

namespace {
std::string serialized(const JSON::Members& members) { return *JSON::object(members).serialized(); }

bool isJSON(const std::string& text) {
    return JSON::parse("[" + text + "]").count() == 1; // a text or a number alone is fine, too
}
} // namespace

std::string getDocument(const AdminRequest& request) {
    const std::string document = attributeOf(request, request.attribute);
    return document.empty() ? "{}" : document;
}

std::string setDocument(const AdminRequest& request) {
    const std::string document = textMember(request.json, request.attribute);
    if (!isJSON(document)) throw Refusal("The text under \"" + std::string(request.attribute) + "\" is no valid JSON.");
    return setAttributes(request, {{std::string(request.attribute), document}});
}

std::string getSwitch(const AdminRequest& request) {
    return serialized({{"enabled", !attributeOf(request, request.attribute).empty()}});
}

std::string setSwitch(const AdminRequest& request) {
    const JSON enable = request.json["enable"];
    const std::string text = enable.string() ? "" : enable.stringValue();
    if (text != "true" && text != "false") throw Refusal("\"enable\" must be true or false.");
    return setAttributes(request, {{std::string(request.attribute), text == "true" ? "on" : ""}});
}

std::string createBucket(const AdminRequest& request) {
    const std::string name = textMember(request.json, "name");
    const std::optional<ItemPath> bucket = newItem(kTopID, name);
    if (!bucket) throw Refusal("A bucket cannot have this name.");
    if (::mkdirat(request.served.tree.top().get(), name.c_str(), 0777) != 0)
        throw Refusal(errno == EEXIST ? "There is a bucket or a file with this name already."
                                      : "The bucket cannot be made: " + std::generic_category().message(errno) + ".");
    AdminRequest made = request;
    made.item = *bucket;
    request.served.attributes.forget(bucket->path); // of a folder of this name that was removed by others
    return setAttributes(made, {{"region", textMember(request.json, "region")}});
}

} // namespace brindlemar::host
