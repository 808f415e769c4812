// Errors as the platform knows them: values of a domain and a code, made by name. The numbers occur in this file only.
#pragma once

#include <string>
#include <string_view>

namespace brindlemar {

inline constexpr std::string_view NSFileProviderErrorDomain = "NSFileProviderErrorDomain";
inline constexpr std::string_view NSCocoaErrorDomain = "NSCocoaErrorDomain";

struct NSError {
    std::string domain;
    int code = 0;
    /// A text of its own, for errors of the file system; else empty.
    std::string description{};
    /// The identifier that a no-such-item error was made for; else empty. Not part of the error's identity.
    std::string item{};

    /// The text for people: `description`, or the platform's stock sentence naming domain and code.
    std::string localizedDescription() const;
    bool operator==(const NSError& other) const { return domain == other.domain && code == other.code; }
};

namespace FileProviderErrorCode {
inline constexpr int noSuchItem = -1005;
inline constexpr int serverUnreachable = -1004;
inline constexpr int cannotSynchronize = -2005;
} // namespace FileProviderErrorCode

namespace CocoaErrorCode {
inline constexpr int noSuchFile = 4;
inline constexpr int fileReadUnknown = 256;
inline constexpr int fileReadNoPermission = 257;
inline constexpr int fileReadNoSuchFile = 260;
inline constexpr int fileWriteUnknown = 512;
inline constexpr int fileWriteNoPermission = 513;
inline constexpr int fileWriteFileExists = 516;
inline constexpr int fileWriteOutOfSpace = 640;
inline constexpr int fileWriteVolumeReadOnly = 642;
inline constexpr int userCancelled = 3072;
inline constexpr int featureUnsupported = 3328;
inline constexpr int coderInvalidValue = 4866;
} // namespace CocoaErrorCode

inline NSError fileProviderError(int code) { return {std::string(NSFileProviderErrorDomain), code}; }
inline NSError cocoaError(int code) { return {std::string(NSCocoaErrorDomain), code}; }

inline NSError noSuchItem() { return fileProviderError(FileProviderErrorCode::noSuchItem); }
inline NSError serverUnreachable() { return fileProviderError(FileProviderErrorCode::serverUnreachable); }
inline NSError cannotSynchronize() { return fileProviderError(FileProviderErrorCode::cannotSynchronize); }
inline NSError userCancelled() { return cocoaError(CocoaErrorCode::userCancelled); }
inline NSError unencodable() { return cocoaError(CocoaErrorCode::coderInvalidValue); }
inline NSError featureUnsupported() { return cocoaError(CocoaErrorCode::featureUnsupported); }

/// The platform's no-such-item error for one identifier.
inline NSError fileProviderErrorForNonExistentItem(std::string_view withIdentifier) {
    NSError error = noSuchItem();
    error.item = withIdentifier;
    return error;
}

/// "The operation couldn’t be completed. (DOMAIN error CODE.)", the platform's text for an error without one.
std::string stockErrorDescription(std::string_view domain, int code);

} // namespace brindlemar
