// item_list.h - lists of items separated by newlines or commas, as the guest-portal service writes.
#ifndef ZORV_PLATFORM_ITEM_LIST_H
#define ZORV_PLATFORM_ITEM_LIST_H

#include <string_view>

namespace zorv {

// Whether the item, which is not empty, stands in the text between separators or its ends.
bool has_item(std::string_view text, std::string_view item);

} // namespace zorv

#endif
