#include "items/HostItemFields.h"

namespace brindlemar {

HostItemFields HostItemFields::read(const JSON& object) {
    HostItemFields fields;
    for (const auto& [key, field] : kHostItemTexts) fields.*field = object[key].string();
    for (const auto& [key, field] : kHostItemNumbers) fields.*field = object[key].number();
    fields.permissions = object[kHostItemPermissions].uInt16Value();
    return fields;
}

} // namespace brindlemar
