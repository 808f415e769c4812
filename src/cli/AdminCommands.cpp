#include "cli/CommandLine.h"
#include "cli/Paths.h"
#include "cli/Text.h"
#include "messaging/AdminRequests.h"
#include "platform/Item.h"
#include "support/Utf8.h"

#include <fstream>
#include <iostream>
#include <iterator>

namespace brindlemar::cli {

namespace {
constexpr std::string_view kIdentifier = "identifier";

struct Asked {
    std::string method, domain;
    std::optional<std::string> id{};
    boost::json::object values; // by key
};

/// "Set bucket versioning" for "setBucketVersioning".
std::string described(std::string_view method) {
    std::string text;
    for (std::size_t i = 0; i < method.size(); ++i) {
        const bool upper = std::isupper(static_cast<unsigned char>(method[i]));
        const bool abbreviation = i + 1 == method.size() || !std::islower(static_cast<unsigned char>(method[i + 1]));
        const bool starts =
            upper && i > 0 && (std::islower(static_cast<unsigned char>(method[i - 1])) || !abbreviation);
        if (starts) text += ' ';
        text += upper && !abbreviation ? static_cast<char>(std::tolower(method[i])) : method[i];
    }
    text[0] = static_cast<char>(std::toupper(text[0]));
    return text;
}

std::string read(std::istream& stream, const std::string& name) {
    std::string text{std::istreambuf_iterator<char>(stream), {}};
    if (isValidUtf8(text)) return text;
    throw Failure(Exit::usage, "\"" + escaped(name) + "\" is not valid UTF-8, which all texts are. Convert it first.");
}

/// "@FILE" stands for the file's contents, "@-" for the standard input's.
std::string argumentText(const std::string& value) {
    if (!value.starts_with('@')) return value;
    if (value == "@-") return read(std::cin, value);
    std::ifstream file(value.substr(1), std::ios::binary);
    if (!file) throw systemError("read", value.substr(1));
    return read(file, value);
}

/// The host's own ID; the domain goes to `asked`.
std::string resolve(Control& control, Asked& asked) {
    const std::string id = *asked.id;
    if (id == NSFileProviderRootContainerItemIdentifier) return id;
    const bool isQualified = id.find('|') != id.npos && !id.starts_with('/');
    const std::string identifier = isQualified ? id : findPath(control, id).item.identifier;
    const std::string_view domain = domainOf(identifier);
    if (domain.empty()) return identifier; // the root container's
    if (!asked.domain.empty() && asked.domain != domain)
        throw Failure(Exit::usage, "\"" + escaped(id) + "\" belongs to the domain \"" + escaped(domain) +
                                       "\", not to \"" + escaped(asked.domain) + "\". Leave --domain out.");
    asked.domain = domain;
    return identifier.substr(domain.size() + 1);
}

void administer(Session& session, Asked asked) {
    Control& control = session.control();
    boost::json::object arguments{{"method", asked.method}};
    if (asked.id) arguments[kIdentifier] = resolve(control, asked);
    if (asked.domain.empty()) throw Failure(Exit::usage, "Name the connection's domain with --domain.");
    arguments["domain"] = asked.domain;
    for (const auto& [key, value] : asked.values)
        arguments[key] = value.is_string() ? boost::json::value(argumentText(std::string(value.get_string()))) : value;
    const Event answer = complete(control, "admin", arguments, asked.id.value_or(asked.domain));
    const std::string reply = answer.text("reply");
    session.output.text(reply);
    const std::string refusal = readEvent(reply).text("error");
    if (!refusal.empty()) throw Failure(Exit::failure, "The host refused: " + escaped(refusal));
    if (reply.empty()) throw Failure(Exit::failure, "The host gave no answer. Look at what it says.");
}

void addKey(CLI::App& method, const std::shared_ptr<Asked>& asked, std::string_view name) {
    const std::string key(name);
    if (key == kIdentifier) {
        method.add_option("ID", asked->id, "An identifier, such as work|photos, or a PATH")->required();
        return;
    }
    const bool isFlag = name == kAdminFlag;
    const auto take = [asked, key, isFlag](const std::string& text) {
        if (isFlag)
            asked->values[key] = text == "true";
        else
            asked->values[key] = text;
    };
    CLI::Option* option = method.add_option_function<std::string>(
        "--" + key, take, isFlag ? "true or false" : "Its text, or @FILE for a file's, @- for the standard input's");
    option->required();
    if (isFlag) option->check(CLI::IsMember({"true", "false"}));
}
} // namespace

void addAdminCommands(CommandLine& line) {
    CLI::App& admin = line.addGroup("admin", "Administer the remote storage");
    for (const RequestRow& row : kAdminRequests) {
        const auto asked = std::make_shared<Asked>();
        asked->method = row.method();
        CLI::App& method = line.add(admin, asked->method, described(row.method()),
                                    [asked](Session& session) { administer(session, *asked); });
        for (std::size_t i = 0; i < row.keys.count; ++i) addKey(method, asked, row.keys.names[i]);
        method.add_option("--domain", asked->domain, "The connection's domain, unless ID tells it");
    }
}

} // namespace brindlemar::cli
