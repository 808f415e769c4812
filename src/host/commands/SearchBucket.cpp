#include "host/ItemID.h"
#include "host/NameMatch.h"
#include "host/commands/Commands.h"
#include "host/commands/ItemText.h"

#include <deque>

namespace brindlemar::host {

namespace {
constexpr std::size_t kMostResults = 10'000;

/// Goes through the folders, those near the top first.
class Search {
public:
    Search(const Served& served, std::string_view text)
        : served_(served), wanted_(folded(text)), attributes_(served.attributes.all()) {}

    std::string run(ItemPath top) {
        folders_.push_back(std::move(top));
        for (; !folders_.empty() && found_ < kMostResults; folders_.pop_front()) lookInto(folders_.front());
        return text_ + "]";
    }

private:
    void lookInto(const ItemPath& folder) {
        const Tree::Names names = served_.tree.names(folder.path);
        for (const std::string_view name : names.names) {
            const Tree::Status status = Tree::statusIn(names.folder, name);
            if (status.outcome != Tree::Outcome::found) continue;
            ItemPath item{childPath(folder.path, name), std::string(name), childID(folder.id, name), folder.id};
            if (folded(name).find(wanted_) != std::string::npos) add(item, status.info);
            if (found_ == kMostResults) return;
            if (S_ISDIR(status.info.st_mode)) folders_.push_back(std::move(item));
        }
    }
    void add(const ItemPath& item, const struct stat& status) {
        if (found_++ > 0) text_.push_back(',');
        appendItem(text_, {item.name, item.id, item.parentID, archiveMarkOf(*attributes_, item.path)}, status);
    }

    const Served& served_;
    const std::string wanted_;
    const std::shared_ptr<const AttributesByPath> attributes_;
    std::deque<ItemPath> folders_; // still to look into
    std::string text_ = "[";
    std::size_t found_ = 0;
};
} // namespace

void searchBucket(const Request& request) {
    const std::optional<ItemPath> top = pathOfID(textMember(request.json, "identifier"));
    Search search(request.served, textMember(request.json, "searchString"));
    request.reply(top ? search.run(*top) : "[]");
}

} // namespace brindlemar::host
