#include "cli/Commands.h"
#include "cli/Failure.h"
#include "cli/Items.h"
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
        listContainer(control, folder.identifier, path.empty() ? "/" : path, [&](const json::object& child) {
            children.emplace_back(readItem(child), asJSON ? child : json::object());
        });
        std::sort(children.begin(), children.end(),
                  [](const auto& one, const auto& other) { return byName(one.first, other.first); });
        for (auto& [item, object] : children) {
            const bool last = &item == &children.back().first;
            const std::string below = path.empty() ? item.filename : path + "/" + item.filename;
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
} // namespace

void printFolder(Control& control, Output& output, const ListOptions& options) {
    const FoundItem found = findPath(control, options.path);
    const auto printJSON = [&](const json::object& item) { output.line(json::serialize(item)); };
    if (!found.item.folder) {
        if (options.json)
            printJSON(found.json);
        else
            printRows(output, {found.item}, options.details);
        return;
    }
    std::size_t count = 0;
    std::vector<Item> items;
    listContainer(control, found.item.identifier, options.path, [&](const json::object& item) {
        ++count;
        if (options.json)
            printJSON(item);
        else
            items.push_back(readItem(item));
    });
    if (count == 0 && hostIsMissing(control)) throw hostNotRunning();
    printRows(output, std::move(items), options.details);
}

void printTree(Control& control, Output& output, const std::string& path, bool json) {
    const FoundItem found = findPath(control, path);
    Tree tree{control, output, json};
    if (!json) output.line(path.empty() ? "/" : output.shown(path));
    if (found.item.folder) tree.print(found.item, path, "");
    if (tree.folders + tree.files == 0 && found.item.folder && hostIsMissing(control)) throw hostNotRunning();
    if (json) return;
    output.line("");
    output.line(counted(tree.folders, "folder") + ", " + counted(tree.files, "file"));
}

} // namespace brindlemar::cli
