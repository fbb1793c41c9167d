// What a share decides when nobody answers the form: the task's first
// text, whether anything is left to save, Done with the paid-tier notice
// answered by saving without the files, and the saved tasks read back once
// their saves committed. The command line (--yes) and the terminal prompt
// finish a share through it.
#pragma once

#include "platform/error.h"
#include "platform/extension/command_line_share.h"
#include "share/share_view_controller.h"
#include "store/records.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tasket::share {

/// Said when the user cancels (the prompt or the form's Cancel).
inline constexpr std::string_view kCancelledMessage = "cancelled; nothing was saved";

/// The task's first text: `given` (--text), then the first item's text
/// arguments that were no valid links, joined by spaces.
std::string initialText(std::string_view given, const platform::CommandLineShare& share);

/// Whether a task with this link, these attachments and this text would
/// hold nothing at all.
bool hasNothingToSave(std::string_view url, std::size_t attachmentCount, std::string_view text);

/// Before the store is opened: fails when the first item kept no provider
/// and there is no text, with the code of the first item's refused
/// provider (invalidArgument when none was refused). Nothing is written.
[[nodiscard]] platform::Result<void> checkSomethingToShare(const platform::CommandLineShare& share,
                                                           std::string_view text);

/// Done without asking, on a loaded controller. Refuses a text the store
/// cannot hold and a share with nothing left to save (the request is
/// cancelled and nothing is written); else starts the save. When files or
/// pictures were left out for want of the paid tier, `notify` hears
/// paidTierNotice() and the save goes ahead without them.
[[nodiscard]] platform::Result<void>
doneWithoutAsking(ShareViewController& controller,
                  const std::function<void(std::string_view)>& notify);

/// One entry per finished save, in order: the saved task read back on the
/// view context, or why the save failed or the task cannot be read back.
[[nodiscard]] std::vector<platform::Result<std::shared_ptr<store::TK_Task>>>
savedTasks(const ShareViewController& controller);

} // namespace tasket::share
