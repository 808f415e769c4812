// Calls on the extension, made as the platform makes them, with every event written out as a line of JSON.
#pragma once

#include "core/BrindlemarFileProvider.h"
#include "provider/ChangeFeed.h"
#include "provider/DomainRegistry.h"
#include "provider/FetchedFiles.h"
#include "provider/OpenFolders.h"
#include "support/JSON.h"

#include <span>

namespace brindlemar {

/// What calls work with. All of it outlives them.
struct CallPlaces {
    std::shared_ptr<BrindlemarFileProvider> extension;
    DomainManager& manager;
    Queue& tasks;
    ChangeFeed& feed;
    FetchedFiles& fetched;
    OpenFolders& folders;
    Clock& clock;
    class Mount* mount = nullptr; // none when the service shows none
};

struct Call {
    const CallPlaces& places;
    JSON arguments;
    std::shared_ptr<LineOutput> output;

    ItemIdentifier id() const { return text("id"); }
    std::string text(std::string_view key) const { return arguments[key].stringValue(); }
    /// Which connection's host the call asks; empty when it asks none.
    std::string domain() const;
    std::optional<FileURL> file() const; // an absolute path under "file"
    /// Seconds since 1970, "12.5", under the key.
    std::optional<Timestamp> time(std::string_view key) const;
    /// `text`: a sentence for people that tells more than the error.
    void fail(const NSError& error, std::string_view text = {}) const;
    /// run(*this); what it throws fails the call.
    void guarded(const std::function<void(Call call)>& run) const;
};

/// An operation by its name. It writes its events to the output and lets go of it when there are no more.
struct CallRow {
    std::string_view operation;
    void (*run)(Call call);
    bool needsHost = true; // for items of a connection
};
std::span<const CallRow> callRows();

/// Runs the operation on the calling thread, which it may block; one that is not known, or that would have to wait for
/// an absent host, fails.
void runCall(const CallPlaces& places, std::string_view operation, const JSON& arguments,
             std::shared_ptr<LineOutput> output);

} // namespace brindlemar
