#include "cli/CommandLine.h"
#include "cli/Paths.h"
#include "cli/Text.h"

#include <boost/json/serialize.hpp>

#include <algorithm>

namespace brindlemar::cli {

namespace json = boost::json;

namespace {
bool byName(const Item& one, const Item& other) { return one.filename < other.filename; }

void printRows(Output& output, std::vector<Item> items, bool details) {
    std::sort(items.begin(), items.end(), byName);
    std::size_t width = 1;
    for (const Item& item : items) width = std::max(width, std::to_string(item.size).size());
    for (const Item& item : items) {
        std::string row;
        if (details) {
            const std::string size = std::to_string(item.size);
            row = item.folder ? "d " : "- ";
            row.append(width - size.size(), ' ').append(size).append("  ");
            row.append(item.modified ? localTime(*item.modified) : "                ").append("  ");
        }
        output.line(row + output.shown(item.filename));
    }
}

struct Tree {
    Control& control;
    Output& output;
    bool asJSON;
    std::size_t folders = 0, files = 0, depth = 0;
    static constexpr std::size_t kDeepest = 1000; // no path is deeper; a host's listing may be

    void print(const Item& folder, const std::string& path, const std::string& indent) {
        std::vector<std::pair<Item, json::object>> children;
        listFolder(control, folder.identifier, path.empty() ? "/" : path, [&](const json::object& child) {
            children.emplace_back(readItem(child), asJSON ? child : json::object());
        });
        std::sort(children.begin(), children.end(),
                  [](const auto& one, const auto& other) { return byName(one.first, other.first); });
        for (auto& [item, object] : children) {
            const bool last = &item == &children.back().first;
            const std::string below = joined(path, item.filename);
            ++(item.folder ? folders : files);
            if (asJSON) {
                object["path"] = below;
                output.line(json::serialize(object));
            } else {
                output.line(indent + (last ? "└── " : "├── ") + output.shown(item.filename));
            }
            if (!item.folder) continue;
            if (depth == kDeepest) throw Failure(Exit::failure, below.substr(0, 80) + "… is nested without end.");
            ++depth;
            print(item, below, indent + (last ? "    " : "│   "));
            --depth;
        }
    }
};
void printFolder(Session& session, const std::string& path, bool details) {
    Control& control = session.control();
    const FoundItem found = findPath(control, path);
    std::size_t count = 0;
    std::vector<Item> items;
    const auto take = [&](const json::object& item) {
        ++count;
        if (session.json)
            session.output.line(json::serialize(item));
        else
            items.push_back(readItem(item));
    };
    if (found.item.folder)
        listFolder(control, found.item.identifier, path, take);
    else
        take(found.json);
    if (count == 0 && hostGoesMissing(control)) throw hostNotRunning();
    printRows(session.output, std::move(items), details);
}

void printTree(Session& session, const std::string& path) {
    Control& control = session.control();
    Output& output = session.output;
    const FoundItem found = findPath(control, path);
    Tree tree{control, output, session.json};
    if (!session.json) output.line(path.empty() ? "/" : output.shown(path));
    if (found.item.folder) tree.print(found.item, path, "");
    if (tree.folders + tree.files == 0 && found.item.folder && hostGoesMissing(control)) throw hostNotRunning();
    if (session.json) return;
    output.line("");
    output.line(counted(tree.folders, "folder") + ", " + counted(tree.files, "file"));
}
} // namespace

void addListCommands(CommandLine& line) {
    const auto path = std::make_shared<std::string>();
    const auto details = std::make_shared<bool>(false);
    CLI::App& ls =
        line.add(line.app, "ls", "List a folder", [=](Session& session) { printFolder(session, *path, *details); });
    ls.add_flag("-l", *details, "Show kind, size in bytes, date and name");
    ls.add_option("PATH", *path, "The folder; without it, the connections");

    CLI::App& tree = line.add(line.app, "tree", "Draw a folder and all below it",
                              [=](Session& session) { printTree(session, *path); });
    tree.add_option("PATH", *path, "The folder; without it, the connections");
}

} // namespace brindlemar::cli
