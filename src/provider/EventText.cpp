#include "provider/EventText.h"

#include "support/LogQuote.h"
#include "support/TextForms.h"

#include <charconv>
#include <utility>

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
    void flag(std::string_view name, bool value) { key(name).append(value ? "true" : "false"); }
    void item(const NSFileProviderItem* value);
    void error(const std::optional<NSError>& value);
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

void Members::item(const NSFileProviderItem* value) {
    if (value)
        appendItem(key("item"), *value);
    else
        null("item");
}

void Members::error(const std::optional<NSError>& value) {
    if (!value) return null("error");
    Members object(key("error"));
    object.text("domain", value->domain);
    object.number("code", value->code);
    if (!value->description.empty()) object.text("description", value->description);
}

void appendShared(LogLine& line, const std::shared_ptr<NSFileProviderItem>& item) { appendItem(line, *item); }

template <class Fill>
std::string event(std::string_view name, const Fill& fill) {
    LogLine line;
    {
        Members members(line);
        members.text("event", name);
        fill(members);
    }
    return std::string(line.text());
}

template <class List, class Append>
std::string listEvent(std::string_view head, const List& list, const Append& append) {
    LogLine line;
    line.append(head);
    bool first = true;
    for (const auto& element : list) {
        if (!std::exchange(first, false)) line.append(',');
        append(line, element);
    }
    return std::string(line.append("]}").text());
}
} // namespace

std::string itemsEvent(std::span<const std::shared_ptr<NSFileProviderItem>> items) {
    return listEvent(R"({"event":"items","items":[)", items, appendShared);
}

std::string updatedEvent(std::span<const std::shared_ptr<NSFileProviderItem>> items) {
    return listEvent(R"({"event":"updated","items":[)", items, appendShared);
}

std::string deletedEvent(const std::vector<ItemIdentifier>& identifiers) {
    return listEvent(R"({"event":"deleted","identifiers":[)", identifiers,
                     [](LogLine& line, const ItemIdentifier& identifier) { appendQuoted(line, identifier); });
}

std::string changesFinishEvent(const NSFileProviderSyncAnchor& anchor, bool moreComing) {
    return event("finish", [&](Members& members) {
        members.text("anchor", anchor.rawValue);
        members.flag("moreComing", moreComing);
    });
}

std::string finishEvent(const std::optional<NSFileProviderPage>& page) {
    return event("finish", [&](Members& members) {
        if (page)
            members.text("page", base64(page->rawValue));
        else
            members.null("page");
    });
}

std::string completionEvent(const NSFileProviderItem* item, const std::optional<NSError>& error,
                            std::string_view text) {
    return event("completion", [&](Members& members) {
        members.item(item);
        members.error(error);
        if (!text.empty()) members.text("text", text);
    });
}

std::string fetchEvent(const std::optional<FileURL>& url, const NSFileProviderItem* item,
                       const std::optional<NSError>& error) {
    return event("completion", [&](Members& members) {
        if (url)
            members.text("url", absoluteString(*url));
        else
            members.null("url");
        members.item(item);
        members.error(error);
    });
}

std::string changeEvent(const NSFileProviderItem* item, ItemFields stillPending, bool shouldFetchContent,
                        const std::optional<NSError>& error) {
    return event("completion", [&](Members& members) {
        members.item(item);
        members.number("stillPending", stillPending);
        members.flag("shouldFetchContent", shouldFetchContent);
        members.error(error);
    });
}

std::string replyEvent(std::string_view reply, const std::optional<NSError>& error) {
    return event("completion", [&](Members& members) {
        members.text("reply", reply);
        members.error(error);
    });
}

std::string progressEvent(std::int64_t completed, std::int64_t total) {
    return event("progress", [&](Members& members) {
        members.number("completed", completed);
        members.number("total", total);
    });
}

std::string evictedEvent(std::int64_t files, std::int64_t bytes, std::int64_t kept) {
    return event("evicted", [&](Members& members) {
        members.number("files", files);
        members.number("bytes", bytes);
        members.number("kept", kept);
    });
}

std::string countEvent(std::string_view name, std::string_view key, std::int64_t count) {
    return event(name, [&](Members& members) { members.number(key, count); });
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
