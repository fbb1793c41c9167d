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

namespace {

// A fixed text, parsed once on first use.
template <const std::string_view& Text> const Predicate& parsedOnce() {
    static const auto predicate = parsed(Text);
    return predicate;
}

} // namespace

const Predicate& validTask() {
    return parsedOnce<kValidTask>();
}
const Predicate& listedSubtask() {
    return parsedOnce<kListedSubtask>();
}
const Predicate& hasNotes() {
    return parsedOnce<kHasNotes>();
}
const Predicate& hasLink() {
    return parsedOnce<kHasLink>();
}
const Predicate& hasAttachments() {
    return parsedOnce<kHasAttachments>();
}
const Predicate& hasNoAttachments() {
    return parsedOnce<kHasNoAttachments>();
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

Predicate identifierIn(std::string_view key, objectstore::PredicateArgument identifiers) {
    return parsed(kIdentifierIn, {key, std::move(identifiers)});
}

Predicate notCompleted() {
    return parsed(kNotCompleted, {true});
}

} // namespace tasket::rules::predicates
