// Small operations on texts and paths.
#pragma once

#include <string>
#include <string_view>

namespace brindlemar {

/// The first `length` characters and `trailing` when the text has more than `length`, else the text as it is.
/// Characters are what a person sees as one: extended grapheme clusters (UAX #29). A negative length counts as 0.
std::string trunc(std::string_view text, std::ptrdiff_t length, std::string_view trailing);

/// The last component of a path without its extension: "c.tar" of /a/b/c.tar.gz.
std::string fileName(std::string_view path);

/// The extension of the last component, without the dot: "gz" of /a/b/c.tar.gz; empty when there is none, as in
/// ".bashrc", "a." and "..".
std::string fileExtension(std::string_view path);

/// What stands behind the last slash; slashes at the end do not count. "/" of the root, as URLs have it.
std::string_view lastPathComponent(std::string_view path);

} // namespace brindlemar
