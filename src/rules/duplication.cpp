#include "rules/duplication.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace tasket::rules {
namespace {

struct ChildrenWord {
    TK_ObjectType object;
    std::string_view children;
};

// What each kind is duplicated with; kinds missing here have no children.
constexpr std::array kChildren{
    ChildrenWord{TK_ObjectType::folder, "Lists"},
    ChildrenWord{TK_ObjectType::smartCategory, "Tasks"},
    ChildrenWord{TK_ObjectType::category, "Tasks"},
    ChildrenWord{TK_ObjectType::tag, "Tasks"},
    ChildrenWord{TK_ObjectType::priority, "Tasks"},
    ChildrenWord{TK_ObjectType::status, "Tasks"},
    ChildrenWord{TK_ObjectType::attribute, "Values"},
    ChildrenWord{TK_ObjectType::attributeValue, "Tasks"},
    ChildrenWord{TK_ObjectType::boardSection, "Tasks"},
    ChildrenWord{TK_ObjectType::task, "Subtasks"},
};

} // namespace

std::optional<std::string> duplicationTitle(TK_DuplicationType type, TK_ObjectType object) {
    if (type == TK_DuplicationType::none || object == TK_ObjectType::none)
        return std::nullopt;
    const std::string objectWord(displayTitle(object));
    if (type == TK_DuplicationType::only)
        return "Duplicate " + objectWord;
    const auto* found = std::ranges::find(kChildren, object, &ChildrenWord::object);
    if (found == kChildren.end())
        return std::nullopt;
    return objectWord + " with " + std::string(found->children);
}

} // namespace tasket::rules
