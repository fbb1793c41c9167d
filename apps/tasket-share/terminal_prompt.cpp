#include "tasket-share/terminal_prompt.h"

#include "share/paid_tier.h"
#include "share/shared_task.h"
#include "store/lookup.h"

#include <fmt/format.h>

#include <charconv>
#include <string>

namespace tasket::apps {
namespace {

bool readLine(std::istream& in, std::string& line) {
    if (!std::getline(in, line))
        return false;
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return true;
}

std::string titleOf(const store::TK_Category& category) {
    return category.title().value_or("");
}

} // namespace

PromptOutcome askOnTerminal(share::ShareViewController& controller, std::istream& in,
                            std::ostream& out) {
    const auto& input = controller.input();
    if (!input.url.empty())
        out << fmt::format("Link: {}\n", input.url);
    for (const auto& attachment : controller.toolbar().attachments())
        out << fmt::format("Attachment: {}{}{} ({} bytes)\n", attachment.title,
                           attachment.fileExtension.empty() ? "" : ".", attachment.fileExtension,
                           attachment.content.size());
    if (input.isAddingAttachmentsWithoutPremium)
        out << share::paidTierNotice() << '\n';

    // The text.
    std::string text = controller.shareManager()->text().value();
    for (;;) {
        out << (text.empty() ? std::string("Text: ") : fmt::format("Text [{}]: ", text));
        out.flush();
        std::string line;
        if (!readLine(in, line))
            return PromptOutcome::cancel;
        if (!line.empty())
            text = line;
        if (auto checked = share::checkTaskText(text); !checked) {
            out << fmt::format("{}; please type it again.\n", checked.error().message);
            text.clear();
            continue;
        }
        break;
    }
    controller.shareManager()->setText(text);

    // The list.
    auto& picker = controller.picker();
    const auto lists = picker.categories();
    const auto selected = picker.selectedCategory().value();
    if (lists.empty()) {
        out << fmt::format("The task goes into a new list \"{}\".\n", titleOf(*selected));
    } else {
        out << "Lists:\n";
        for (std::size_t i = 0; i < lists.size(); ++i)
            out << fmt::format("  {}. {} ({} tasks)\n", i + 1, titleOf(*lists[i]),
                               picker.numberOfTasks(*lists[i]));
        for (;;) {
            out << fmt::format("List [{}]: ", titleOf(*picker.selectedCategory().value()));
            out.flush();
            std::string line;
            if (!readLine(in, line))
                return PromptOutcome::cancel;
            if (line.empty())
                break;
            std::size_t number = 0;
            const auto [end, error] =
                std::from_chars(line.data(), line.data() + line.size(), number);
            if (error == std::errc() && end == line.data() + line.size() && number >= 1 &&
                number <= lists.size()) {
                picker.select(lists[number - 1]);
                break;
            }
            if (auto found = store::findList(lists, line)) {
                picker.select(*found);
                break;
            }
            out << fmt::format("There is no list \"{}\"; answer with its number or title.\n", line);
        }
    }

    out << "Save the task? [Y/n]: ";
    out.flush();
    std::string answer;
    if (!readLine(in, answer))
        return PromptOutcome::cancel;
    return answer.empty() || answer == "y" || answer == "Y" || answer == "yes"
               ? PromptOutcome::save
               : PromptOutcome::cancel;
}

} // namespace tasket::apps
