#include "provider/EventText.h"

#include "support/LogQuote.h"
#include "support/TextForms.h"

#include <charconv>

namespace brindlemar {

namespace {
/// Appends members to one object in the making.
class Members {
public:
    explicit Members(LogLine& out) : out_(out) { out_.append('{'); }
    ~Members() { out_.append('}'); }

    LogLine& key(std::string_view name) {
        if (!first_) out_.append(',');
        first_ = false;
        appendQuoted(out_, name);
        out_.append(':');
        return out_;
    }
    void text(std::string_view name, std::string_view value) { appendQuoted(key(name), value); }
    void number(std::string_view name, std::int64_t value) {
        char digits[24];
        key(name).append(std::string_view(digits, std::to_chars(digits, digits + sizeof digits, value).ptr));
    }
    void null(std::string_view name) { key(name).append("null"); }
    void optionalNumber(std::string_view name, const std::optional<std::uint64_t>& value) {
        if (value)
            number(name, static_cast<std::int64_t>(*value));
        else
            null(name);
    }
    void date(std::string_view name, const std::optional<Timestamp>& value) {
        if (!value) return null(name);
        const std::int64_t seconds = wholeSecondsSince1970(*value);
        if (Timestamp(std::chrono::seconds(seconds)) == *value) return number(name, seconds);
        key(name).append(shortestText(secondsSince1970(*value)));
    }

private:
    LogLine& out_;
    bool first_ = true;
};

void appendItem(LogLine& out, const NSFileProviderItem& item) {
    Members members(out);
    members.text("itemIdentifier", item.itemIdentifier());
    members.text("parentItemIdentifier", item.parentItemIdentifier());
    members.text("filename", item.filename());
    members.text("contentType", item.contentType());
    members.number("capabilities", item.capabilities());
    members.number("fileSystemFlags", item.fileSystemFlags());
    members.optionalNumber("documentSize", item.documentSize());
    members.optionalNumber("childItemCount", item.childItemCount());
    members.date("creationDate", item.creationDate());
    members.date("contentModificationDate", item.contentModificationDate());
    members.date("lastUsedDate", item.lastUsedDate());
    const NSFileProviderItemVersion version = item.itemVersion();
    members.text("contentVersion", version.contentVersion);
    members.text("metadataVersion", version.metadataVersion);
    if (const auto target = item.symlinkTargetPath())
        members.text("symlinkTargetPath", *target);
    else
        members.null("symlinkTargetPath");
    {
        Members info(members.key("userInfo"));
        for (const auto& [key, value] : item.userInfo()) {
            if (const auto* text = std::get_if<std::string>(&value))
                info.text(key, *text);
            else
                info.number(key, std::get<std::int64_t>(value));
        }
    }
    if (const auto decorations = item.decorations()) {
        members.key("decorations").append('[');
        for (std::size_t i = 0; i < decorations->size(); ++i) {
            if (i > 0) out.append(',');
            appendQuoted(out, (*decorations)[i]);
        }
        out.append(']');
    }
}
} // namespace

std::string itemsEvent(std::span<const std::shared_ptr<NSFileProviderItem>> items) {
    LogLine line;
    line.append(R"({"event":"items","items":[)");
    for (const auto& item : items) {
        if (&item != &items.front()) line.append(',');
        appendItem(line, *item);
    }
    return std::string(line.append("]}").text());
}

std::string finishEvent(const std::optional<NSFileProviderPage>& page) {
    LogLine line;
    {
        Members members(line);
        members.text("event", "finish");
        if (page)
            members.text("page", base64(page->rawValue));
        else
            members.null("page");
    }
    return std::string(line.text());
}

std::string completionEvent(const NSFileProviderItem* item, const std::optional<NSError>& error) {
    LogLine line;
    {
        Members members(line);
        members.text("event", "completion");
        if (item)
            appendItem(members.key("item"), *item);
        else
            members.null("item");
        if (error) {
            Members object(members.key("error"));
            object.text("domain", error->domain);
            object.number("code", error->code);
        } else {
            members.null("error");
        }
    }
    return std::string(line.text());
}

std::string progressEvent(std::int64_t completed, std::int64_t total) {
    LogLine line;
    {
        Members members(line);
        members.text("event", "progress");
        members.number("completed", completed);
        members.number("total", total);
    }
    return std::string(line.text());
}

std::string base64(std::string_view bytes) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        std::uint32_t group = 0;
        for (std::size_t i = 0; i < 3; ++i)
            group = group << 8 | (at + i < bytes.size() ? static_cast<unsigned char>(bytes[at + i]) : 0u);
        for (std::size_t i = 0; i < 4; ++i) text += i > bytes.size() - at ? '=' : digits[group >> (18 - 6 * i) & 63];
    }
    return text;
}

} // namespace brindlemar
