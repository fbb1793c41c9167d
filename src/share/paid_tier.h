// The paid tier as the share intake meets it: whether the user bought it,
// as the flag in the application group's preferences says, and the texts
// of the notice shown when files or pictures were shared without it.
// Attachments are part of the paid tier.
#pragma once

#include "settings/customization_manager.h"

#include <functional>
#include <string>
#include <string_view>

namespace tasket::share {

/// The notice's title and text, as the form's sheet shows them.
inline constexpr std::string_view kPaidTierRequiredTitle = "Tasket Premium is Required";
inline constexpr std::string_view kPaidTierRequiredText =
    "Please purchase Tasket Premium to access this feature.";
/// What saving in answer to the notice means for the shared files.
inline constexpr std::string_view kAttachmentsLeftOut =
    "The shared files and pictures were not attached.";
/// The note in place of the files the form does not attach.
inline constexpr std::string_view kFilesNeedPaidTierNote =
    "Files and pictures are attached with Tasket Premium only.";

/// The notice as one line of text, for a share without the form:
/// "<title>. <text> <what becomes of the files>".
std::string paidTierNotice();

/// Asked once per share; true when the paid tier is active.
using PaidTierCheck = std::function<bool()>;

/// True when the group suite holds true under the paid-tier flag; anything
/// else (absent, another type, the suite unavailable) reads as false.
bool isPaidTierActive(const settings::CustomizationManager& customizationManager);

} // namespace tasket::share
