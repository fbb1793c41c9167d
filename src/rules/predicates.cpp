#include "rules/predicates.h"

#include <stdexcept>
#include <string>

namespace tasket::rules::predicates {

using objectstore::Predicate;

Predicate parsed(std::string_view format,
                 const std::vector<objectstore::PredicateArgument>& arguments) {
    auto predicate = Predicate::parse(format, arguments);
    if (!predicate)
        throw std::logic_error("a fixed predicate does not parse: '" + std::string(format) +
                               "': " + predicate.error().message);
    return std::move(*predicate);
}

const Predicate& validTask() {
    static const auto predicate = parsed(kValidTask);
    return predicate;
}

const Predicate& listedSubtask() {
    static const auto predicate = parsed(kListedSubtask);
    return predicate;
}

const Predicate& hasNotes() {
    static const auto predicate = parsed(kHasNotes);
    return predicate;
}

const Predicate& hasLink() {
    static const auto predicate = parsed(kHasLink);
    return predicate;
}

const Predicate& hasAttachments() {
    static const auto predicate = parsed(kHasAttachments);
    return predicate;
}

const Predicate& hasNoAttachments() {
    static const auto predicate = parsed(kHasNoAttachments);
    return predicate;
}

Predicate titleContains(std::string_view text) {
    return parsed(kTitleContains, {text});
}

Predicate inCategories(const std::vector<std::string>& categoryIDs) {
    return parsed(kInCategories, {categoryIDs});
}

Predicate taskWithID(std::string_view taskID) {
    return parsed(kTaskWithID, {taskID});
}

Predicate subtaskWithID(std::string_view subtaskID) {
    return parsed(kSubtaskWithID, {subtaskID});
}

Predicate categoryWithID(std::string_view categoryID) {
    return parsed(kCategoryWithID, {categoryID});
}

} // namespace tasket::rules::predicates
