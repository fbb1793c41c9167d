// The titles shown for a list or task that has none, and the title of a
// list made on the spot because the store holds none. Spelled here once
// for every program.
#pragma once

#include <string_view>

namespace tasket::store {

inline constexpr std::string_view kNewCategoryTitle = "New Category";
inline constexpr std::string_view kNewTaskTitle = "New Task";

} // namespace tasket::store
