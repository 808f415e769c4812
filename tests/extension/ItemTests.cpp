#include "fakes/FakePlatform.h"
#include "items/ItemListing.h"

#include <gtest/gtest.h>

namespace brindlemar {
namespace {

using Item = BrindlemarFileProviderItem;

class ItemTests : public testing::Test {
protected:
    std::shared_ptr<Item> item(const std::string& json, std::string_view domain = "d1", bool writableRoot = false) {
        return Item::fromJSON(JSON::parse(json), {.withDomain = domain, .writableRoot = writableRoot});
    }
    static std::shared_ptr<const ItemList> listing(const std::string& text) {
        return parseItemListing(text, {.withDomain = "d1"});
    }
    /// The record as both roads make it: alone, and out of a listing, which places the same texts elsewhere.
    std::vector<std::shared_ptr<const Item>> both(const std::string& json) {
        const auto list = listing("[" + json + "]");
        EXPECT_EQ(list->size(), 1u);
        return {item(json), std::static_pointer_cast<const Item>(list->front())};
    }
    static std::string host(std::string_view members) {
        return std::string(R"({"name":"n","parentID":"p","itemID":"i","mtime":1659538288)").append(members) + "}";
    }
    FakePlatform platform;
};

TEST_F(ItemTests, IdentifiersOfTheHostBecomeQualified) {
    const struct {
        std::string_view item, parent, itemID, parentID, domain;
    } cases[] = {
        {"abc", "def", "d1|abc", "d1|def", "d1"},
        {"root", "root", "d1|0", "d1|0", "d1"},
        {NSFileProviderRootContainerItemIdentifier, "x", "d1|0", "d1|x", "d1"},
        {"i", NSFileProviderRootContainerItemIdentifier, "d1|i", "d1|NSFileProviderRootContainerItemIdentifier", "d1"},
        {"c7|f1", "c7|0", "c7|f1", "c7|0", "c7"},
        {"c7", "00", "c7|0", NSFileProviderRootContainerItemIdentifier, "d1"},
        {"a|b|c", "a|p", "a|b", "a|p", "a"},
        {"x|i", "y|p", "x|i", "x|p", "x"}, // the item's own domain counts for both
        {"|", "|", "|", "|", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.item) + " in " + std::string(c.parent));
        const auto json = JSON::object({{"name", "n"}, {"itemID", c.item}, {"parentID", c.parent}, {"mtime", 1}});
        for (const auto& made : both(*json.serialized())) {
            EXPECT_EQ(made->itemIdentifier(), c.itemID);
            EXPECT_EQ(made->parentItemIdentifier(), c.parentID);
            EXPECT_EQ(made->domain.view(), c.domain);
        }
    }
}

TEST_F(ItemTests, FieldsAreReadLenientlyButNeverInvented) {
    const struct {
        std::string_view members;
        std::uint64_t size;
        bool folder;
        unsigned capabilities;
        std::string_view storageClass;
    } cases[] = {
        {"", 0, false, 43, "STANDARD"},
        {R"(,"size":4294967299,"folder":true,"permissions":420)", 3, true, 43, "STANDARD"},
        {R"(,"size":12.9,"folder":0,"permissions":"292x")", 12, false, 1, "STANDARD"},
        {R"(,"size":"12","folder":"yes","permissions":[1],"glacier":4)", 0, false, 43, "GLACIER"},
        {R"(,"folder":0.5,"permissions":292,"glacier":5.7)", 0, true, 3, "DEEP_ARCHIVE"},
        {R"(,"size":-1,"permissions":65828,"glacier":true)", 4294967295, false, 1, "STANDARD"}, // 65536 + 292
        {R"(,"size":1e400,"permissions":"","glacier":"4")", 4294967295, false, 43, "STANDARD"},
        {R"(,"size":{"size":7},"x":{"size":8,"folder":true},"\u0073ize":9)", 9, false, 43, "STANDARD"},
        {R"(,"permissions":292,"permissions":null,"folder":1,"folder":"no")", 0, false, 43, "STANDARD"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.members);
        for (const auto& made : both(host(c.members))) {
            EXPECT_EQ(made->documentSize(), c.size);
            EXPECT_EQ(made->folder, c.folder);
            EXPECT_EQ(made->capabilities(), c.capabilities);
            EXPECT_EQ(made->storageClass.view(), c.storageClass);
            EXPECT_EQ(made->itemVersion(), (NSFileProviderItemVersion{"content-id", "metadata-id"}));
            EXPECT_EQ(made->lastUsedDate(), platform.clock.now());
        }
    }
}

TEST_F(ItemTests, AListingIsAnArrayAndARecordHasNameIdentifiersAndTime) {
    for (const char* text :
         {R"({"name":7,"parentID":"p","itemID":"i","mtime":1})", R"({"name":"n","itemID":"i","mtime":1})",
          R"({"name":"n","parentID":"p","mtime":1})", R"({"name":"n","parentID":"p","itemID":"i","mtime":"1"})",
          R"({"name":"n","name":null,"parentID":"p","itemID":"i","mtime":1})", "{}", "[]", "7", ""}) {
        EXPECT_EQ(item(text), nullptr) << text;
        EXPECT_TRUE(listing("[" + std::string(text) + "]")->empty()) << text;
    }
    const std::string one = host(R"(,"name":"\u00e9\n\ud83d\ude00","itemID":"\"the\\ID\"","parentID":"\tparent")");
    const std::string deep = std::string(100'000, '[') + std::string(100'000, ']');
    EXPECT_EQ(listing("\xEF\xBB\xBF [" + one + ", 7, [" + one + "], " + one + "] ")->size(), 2u);
    for (const auto& made : both(one)) {
        EXPECT_EQ(made->filename(), "é\n😀");
        EXPECT_EQ(made->itemIdentifier(), "d1|\"the\\ID\"");
        EXPECT_EQ(made->parentItemIdentifier(), "d1|\tparent");
    }
    for (const std::string& text :
         {one, "[" + one, "[" + one + "]x", "[" + one + ",]", "{\"a\":[" + one + "]}", "[" + one + ",\"\xff\"]",
          "[" + one + ",\"\\ud800\"]", "[" + one + "," + deep + "]", deep})
        EXPECT_TRUE(listing(text)->empty()) << text.substr(0, 80);
}

TEST_F(ItemTests, RecordsOfALongListingOutliveIt) {
    std::string text = "[";
    for (int i = 0; i < 5000; ++i) {
        const std::string number = std::to_string(i), parent = i % 100 ? "dir" : "dir2";
        text += std::string(i ? "," : "") + R"({"name":"file)" + number + R"(","itemID":"dir/file)" + number +
                R"(","parentID":")" + parent + R"(","mtime":)" + number + "}";
    }
    auto list = listing(text + "]");
    ASSERT_EQ(list->size(), 5000u);
    const auto one = (*list)[4321], other = (*list)[4300];
    list.reset();
    text.assign(text.size(), 'x');
    EXPECT_EQ(static_cast<const Item&>(*one).description(),
              "n: file4321 s:0 f:false m:1970-01-01 01:12:01 +0000 "
              "id:d1|dir/file4321 parent:d1|dir, cv:content-id mv:metadata-id");
    EXPECT_EQ(other->parentItemIdentifier(), "d1|dir2");
    static_cast<Item&>(*one).name = std::string_view("renamed"); // records stay changeable
    EXPECT_EQ(one->filename(), "renamed");
}

TEST_F(ItemTests, BadgesAndUserInformation) {
    const auto top = item(R"({"name":"W","parentID":"00","itemID":"c7","mtime":1,"folder":true,"glacier":4})");
    EXPECT_EQ(top->decorations(), std::vector<std::string>{"io.brindlemar.FileProvider.bucket_badge"});
    EXPECT_EQ(top->userInfo(), (UserInfo{{"storageClass", "GLACIER"}, {"isBucket", 1}, {"isFolder", 1}}));
    const auto deep = item(host(R"(,"glacier":5)"), "d1", true);
    EXPECT_EQ(deep->decorations(), std::vector<std::string>{"io.brindlemar.FileProvider.deep_archive"});
    EXPECT_EQ(deep->userInfo(), (UserInfo{{"storageClass", "GLACIER_DEEP_ARCHIVE"}}));
    EXPECT_EQ(item(host(""))->decorations(), std::nullopt);
    // Shared places are buckets even under a writable root.
    const auto shared = item(R"({"name":"W","parentID":"00","itemID":"sharedWithMe","mtime":1})", "d1", true);
    EXPECT_EQ(shared->userInfo(), (UserInfo{{"isBucket", 1}}));
    EXPECT_EQ(item(R"({"name":"W","parentID":"00","itemID":"c7","mtime":1})", "d1", true)->userInfo(), UserInfo{});
    EXPECT_EQ(Item::rootItemForDomain("d1", true)->itemVersion().contentVersion, "content-id-1700000000.0");
}

TEST_F(ItemTests, TheCachedFormComesBackWholeOrNotAtAll) {
    const auto original = item(R"({"name":"W","parentID":"00","itemID":"c7","mtime":9,"atime":8,"folder":true,)"
                               R"("glacier":4,"permissions":365,"size":5})");
    std::string bytes, mistyped;
    KeyedEncoder encoder(bytes), other(mistyped);
    original->encode(encoder);
    const auto copy = Item::from(*KeyedDecoder::open(bytes));
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->description(), original->description());
    EXPECT_EQ(copy->lastUsedDate(), timestampFromSeconds(8));
    EXPECT_EQ(copy->permissions, 365);
    EXPECT_EQ(copy->userInfo(), original->userInfo());
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        const auto decoder = KeyedDecoder::open(std::string_view(bytes).substr(0, length));
        EXPECT_TRUE(!decoder || !Item::from(*decoder)) << length;
    }
    other.encode("name", true);
    mistyped += bytes.substr(1 + 4 + 1 + 8 + 1); // without the text "W" under "name"
    EXPECT_FALSE(Item::from(*KeyedDecoder::open(mistyped)));
}

} // namespace
} // namespace brindlemar
