// The commands that administer buckets, which are the top folders here, and objects, which are the files.
#pragma once

#include "host/ItemID.h"
#include "host/commands/Commands.h"

#include <stdexcept>

namespace brindlemar::host {

/// What the identifier of a request must name; `item` is a bucket, a folder in one, or an object.
enum class Subject { none, bucket, object, item };

struct AdminRequest {
    Served& served;
    const JSON& json;
    std::string_view attribute; // that the command's row names
    ItemPath item{};            // empty without a subject
    struct stat status {};
};

/// The reply is {"error": what()}.
struct Refusal : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Gives the reply. Throws Refusal.
using AdminCommand = std::string(const AdminRequest& request);

AdminCommand createBucket;
AdminCommand getACL;
AdminCommand getDocument;
AdminCommand getEncryption;
AdminCommand getObjectMetadata;
AdminCommand getObjectURL;
AdminCommand getSwitch;
AdminCommand initiateGlacierRestore;
AdminCommand listKeys;
AdminCommand setDocument;
AdminCommand setEncryption;
AdminCommand setObjectStorageClass;
AdminCommand setSwitch;
AdminCommand signURL;

/// Carries the command of the request's row out, once its subject is found.
Command runAdmin;

/// Sets attributes of the subject, an empty value for none, and gives the reply that says so. Throws Refusal.
std::string setAttributes(const AdminRequest& request, const Attributes& values);

/// An attribute of the subject; empty when it was not set.
std::string attributeOf(const AdminRequest& request, std::string_view name);

} // namespace brindlemar::host
