#include "share/headless_share.h"

#include "share/paid_tier.h"
#include "share/shared_task.h"
#include "store/local_data_manager.h"
#include "store/lookup.h"

#include <fmt/format.h>

#include <algorithm>

namespace tasket::share {

using platform::Errc;

namespace {

constexpr std::string_view kNothingLeftToShare =
    "nothing is left to share and no text was given; nothing was written";
constexpr std::string_view kNothingLeftToSave =
    "nothing is left to save and no text was given; nothing was written";

} // namespace

std::string initialText(std::string_view given, const platform::CommandLineShare& share) {
    std::string text(given);
    for (const auto& argument : share.textArguments) {
        if (argument.itemIndex != 0)
            continue;
        if (!text.empty())
            text += ' ';
        text += argument.text;
    }
    return text;
}

bool hasNothingToSave(std::string_view url, std::size_t attachmentCount, std::string_view text) {
    return url.empty() && attachmentCount == 0 && text.empty();
}

platform::Result<void> checkSomethingToShare(const platform::CommandLineShare& share,
                                             std::string_view text) {
    const bool hasProviders =
        !share.inputItems.empty() && !share.inputItems.front().attachments.empty();
    if (hasProviders || !text.empty())
        return {};
    const auto first = std::ranges::find_if(
        share.skipped, [](const auto& skipped) { return skipped.itemIndex == 0; });
    return platform::fail(first == share.skipped.end() ? Errc::invalidArgument : first->error.code,
                          std::string(kNothingLeftToShare));
}

platform::Result<void> doneWithoutAsking(ShareViewController& controller,
                                         const std::function<void(std::string_view)>& notify) {
    auto& toolbar = controller.toolbar();
    const std::string& text = controller.shareManager()->text().value();
    auto refused = checkTaskText(text);
    if (refused && hasNothingToSave(toolbar.url(), toolbar.attachments().size(), text)) {
        const auto& unread = controller.input().refused;
        refused = platform::fail(unread.empty() ? Errc::invalidArgument : unread.front().code,
                                 std::string(kNothingLeftToSave));
    }
    if (!refused) {
        toolbar.cancel();
        return refused;
    }
    if (toolbar.isAddingAttachmentsWithoutPremium() && notify)
        notify(paidTierNotice());
    if (toolbar.done() == ShareToolbarModel::DoneOutcome::premiumRequiredShown) {
        // Saving without the files is the answer to the notice.
        toolbar.dismissPremiumRequired();
        toolbar.done();
    }
    return {};
}

std::vector<platform::Result<std::shared_ptr<store::TK_Task>>>
savedTasks(const ShareViewController& controller) {
    std::vector<platform::Result<std::shared_ptr<store::TK_Task>>> tasks;
    auto& view = *controller.localDataManager()->viewContext();
    for (const auto& outcome : controller.pendingSaves()->outcomes()) {
        if (!outcome) {
            const auto advice = store::storeFailureAdvice(outcome.error().code);
            tasks.push_back(platform::fail(outcome.error().code,
                                           fmt::format("the task could not be saved: {}{}{}",
                                                       outcome.error().message,
                                                       advice.empty() ? "" : ".\n", advice)));
            continue;
        }
        auto found = store::findByIdentifier<store::TK_Task>(view, *outcome);
        if (!found)
            tasks.push_back(platform::fail(
                Errc::storeError,
                fmt::format("the saved task could not be read back: {}", found.error().message)));
        else
            tasks.push_back(std::move(*found));
    }
    return tasks;
}

} // namespace tasket::share
