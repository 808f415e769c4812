// The JSON objects by which items are told to the extension.
#pragma once

#include "host/ItemID.h"

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace brindlemar::host {

struct Served;

/// Appends the text as a JSON string (RFC 8259); it must be UTF-8.
void appendQuoted(std::string& json, std::string_view text);

/// A date as items tell it: whole seconds since 1970, in 32 bits.
std::int64_t toldSeconds(const timespec& time);

struct ItemText {
    std::string_view name;
    std::string_view itemID;
    std::string_view parentID;
    int archiveMark = 0; // see archiveMark()
};
/// Appends {"name":...,"size":...,"folder":...,"parentID":...,"itemID":...,"mtime":...,"atime":...,"permissions":...}:
/// bytes, seconds since 1970 between 0 and 4294967295, and the nine mode bits as a decimal number; for what is marked
/// "glacier":..., too.
void appendItem(std::string& json, const ItemText& item, const struct stat& status);

/// The same for one item of a connection, as replies about single items have it: the directory itself is the
/// connection, below the extension's root.
std::string itemText(const Served& served, const ItemPath& item, const struct stat& status);
/// The same for an item that has just come to be there, of which the extension hears now.
std::string newItemText(Served& served, const ItemPath& item, const struct stat& status);

} // namespace brindlemar::host
