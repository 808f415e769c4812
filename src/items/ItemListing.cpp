#include "items/ItemListing.h"

#include "items/ItemBlock.h"
#include "platform/Platform.h"

#include <boost/json/basic_parser_impl.hpp>

#include <functional>

namespace brindlemar {

namespace json = boost::json;

namespace {
constexpr std::size_t kSmallestBlock = 16, kLargestBlock = 1024; // records

/// Collects the records; a list of few items takes little, a long one whole blocks.
class ListBuilder {
public:
    explicit ListBuilder(const BrindlemarFileProviderItem::Context& context)
        : context_(context), now_(Platform::now()) {}

    void add(const HostItemFields& fields) {
        if (!fields.isComplete()) return;
        if (!block_ || block_->isFull()) {
            block_ = std::make_shared<ItemBlock>(nextCapacity_);
            nextCapacity_ = std::min(nextCapacity_ * 4, kLargestBlock);
        }
        list_->push_back({block_, &block_->add(fields, context_, now_)});
    }
    std::shared_ptr<const ItemList> take() {
        if (list_->capacity() > list_->size() + list_->size() / 8) list_->shrink_to_fit();
        return std::move(list_);
    }

private:
    const BrindlemarFileProviderItem::Context context_;
    const Timestamp now_;
    std::shared_ptr<ItemList> list_ = std::make_shared<ItemList>();
    std::shared_ptr<ItemBlock> block_;
    std::size_t nextCapacity_ = kSmallestBlock;
};

/// Receives the parser's events: depth 1 is the array, depth 2 an element's own members, deeper ones are passed over.
class ListingHandler {
public:
    static constexpr std::size_t max_object_size = std::size_t(-1), max_array_size = std::size_t(-1);
    static constexpr std::size_t max_key_size = std::size_t(-1), max_string_size = std::size_t(-1);

    ListingHandler(std::string_view reply, ListBuilder& builder) : reply_(reply), builder_(builder) {}
    bool sawArray() const { return sawArray_; }

    bool on_document_begin(json::error_code&) { return true; }
    bool on_document_end(json::error_code&) { return true; }
    bool on_array_begin(json::error_code&) {
        if (depth_ == 0) sawArray_ = true;
        return enter();
    }
    bool on_array_end(std::size_t, json::error_code&) { return leave(); }
    bool on_object_begin(json::error_code&) {
        if (depth_ == 1 && sawArray_) fields_ = {};
        return enter();
    }
    bool on_object_end(std::size_t, json::error_code&) {
        if (depth_ == 2 && sawArray_) builder_.add(fields_);
        return leave();
    }
    bool on_key_part(json::string_view part, std::size_t, json::error_code&) {
        if (inItem()) keyParts_.append(part);
        return true;
    }
    bool on_key(json::string_view last, std::size_t, json::error_code&) {
        if (!inItem()) return true;
        if (keyParts_.empty()) {
            beginMember(last);
        } else {
            keyParts_.append(last);
            beginMember(keyParts_);
            keyParts_.clear();
        }
        return true;
    }
    bool on_string_part(json::string_view part, std::size_t, json::error_code&) {
        if (inItem()) parts_[slot_].append(part);
        return true;
    }
    bool on_string(json::string_view last, std::size_t, json::error_code&) {
        if (!inItem()) return true;
        // A text without escapes lies in the reply; others pass through the parser's own memory, which does not last.
        std::string_view text = last;
        if (std::string& parts = parts_[slot_]; !parts.empty() || !liesInReply(last)) text = parts.append(last);
        if (text_) fields_.*text_ = text;
        if (permissions_) setPermissions(JSONNumber::leadingIn(text));
        return true;
    }
    bool on_number_part(json::string_view, json::error_code&) { return true; }
    bool on_int64(std::int64_t value, json::string_view, json::error_code&) { return number(JSONNumber(value)); }
    bool on_uint64(std::uint64_t value, json::string_view, json::error_code&) { return number(JSONNumber(value)); }
    bool on_double(double value, json::string_view, json::error_code&) { return number(JSONNumber(value)); }
    bool on_bool(bool value, json::error_code&) { return number(JSONNumber(std::int64_t{value})); }
    bool on_null(json::error_code&) { return true; }
    bool on_comment_part(json::string_view, json::error_code&) { return true; }
    bool on_comment(json::string_view, json::error_code&) { return true; }

private:
    static constexpr std::size_t kOtherSlot = kHostItemTexts.size();

    bool liesInReply(std::string_view text) const {
        const std::less_equal<const char*> before;
        return before(reply_.data(), text.data()) && before(text.data() + text.size(), reply_.data() + reply_.size());
    }
    bool inItem() const { return depth_ == 2 && sawArray_; }
    bool enter() {
        ++depth_;
        return true;
    }
    bool leave() {
        --depth_;
        return true;
    }

    /// A key seen again starts over: the last value counts, also when it is of the wrong kind.
    void beginMember(std::string_view key) {
        text_ = nullptr, number_ = nullptr, permissions_ = false, slot_ = kOtherSlot;
        for (std::size_t i = 0; i < kHostItemTexts.size(); ++i) {
            if (key != kHostItemTexts[i].key) continue;
            text_ = kHostItemTexts[i].field, slot_ = i;
            fields_.*text_ = std::nullopt;
        }
        for (const auto& [name, field] : kHostItemNumbers) {
            if (key != name) continue;
            number_ = field;
            fields_.*number_ = std::nullopt;
        }
        if (key == kHostItemPermissions) permissions_ = true, fields_.permissions = 0;
        parts_[slot_].clear();
    }
    bool number(const JSONNumber& value) {
        if (!inItem()) return true;
        if (number_) fields_.*number_ = value;
        if (permissions_) setPermissions(value);
        return true;
    }
    void setPermissions(const std::optional<JSONNumber>& value) {
        fields_.permissions = value ? value->uint16Value() : std::uint16_t{0};
    }

    const std::string_view reply_;
    ListBuilder& builder_;
    std::size_t depth_ = 0;
    bool sawArray_ = false;
    HostItemFields fields_;
    std::optional<std::string_view> HostItemFields::*text_ = nullptr;
    std::optional<JSONNumber> HostItemFields::*number_ = nullptr;
    bool permissions_ = false;
    std::size_t slot_ = kOtherSlot;
    std::string keyParts_;
    std::array<std::string, kHostItemTexts.size() + 1> parts_; // texts with escapes arrive in parts
};
} // namespace

std::shared_ptr<const ItemList> parseItemListing(std::string_view reply,
                                                 const BrindlemarFileProviderItem::Context& context) {
    reply = withoutByteOrderMark(reply);
    ListBuilder builder(context);
    json::parse_options options;
    options.max_depth = JSON::maximumDepth;
    json::basic_parser<ListingHandler> parser(options, reply, builder);
    json::error_code error;
    const std::size_t consumed = parser.write_some(false, reply.data(), reply.size(), error);
    const bool isListing = !error && consumed == reply.size() && parser.handler().sawArray();
    return isListing ? builder.take() : std::make_shared<const ItemList>();
}

} // namespace brindlemar
