// One input item of a share request: the item providers of what was shared
// together, in the order the sending application gave them.
#pragma once

#include "platform/extension/item_provider.h"

#include <memory>
#include <vector>

namespace tasket::platform {

struct ExtensionItem {
    std::vector<std::shared_ptr<const ItemProvider>> attachments;
};

} // namespace tasket::platform
