// Every user-visible text of the domain, spelled once, each with the
// comment its translators see. Show one with `.translated()`; compile-time
// tables that need the English source use `.english`. `cmake --build
// --target pot` extracts them into po/tasket.pot.
//
// The comment just before catalogueText(…) is the text's translator
// comment (xgettext --add-comments takes every comment up to it, across
// blank lines): no other comment may stand between two texts.
#pragma once

#include "platform/text_catalogue.h"

namespace tasket::rules::texts {

using platform::catalogueText;
using platform::Text;

// Newly added task without a title.
inline constexpr Text kNewTask = catalogueText("New Task");
// Newly added subtask without a title.
inline constexpr Text kNewSubtask = catalogueText("New Subtask");
// Newly added category without a title.
inline constexpr Text kNewCategory = catalogueText("New Category");

// Title of the board section with the unassigned tasks.
inline constexpr Text kUnassigned = catalogueText("Unassigned");

// Notification title
inline constexpr Text kReminder = catalogueText("Reminder");
// Notification mark as done action.
inline constexpr Text kMarkAsDone = catalogueText("Mark as Done");
// Notification remind in 15 minutes action.
inline constexpr Text kRemindIn15Minutes = catalogueText("Remind in 15 Minutes");
// Notification remind in 1 hour action.
inline constexpr Text kRemindIn1Hour = catalogueText("Remind in 1 Hour");
// Notification remind tomorrow action.
inline constexpr Text kRemindTomorrow = catalogueText("Remind Tomorrow");

// Biometrics fallback title.
inline constexpr Text kEnterYourPassword = catalogueText("Enter your password");
// Reason to use biometrics.
inline constexpr Text kUnlockReason = catalogueText("unlock your secured data");
// Title of the screen that replaces the content while the app lock is engaged.
inline constexpr Text kTasketIsLocked = catalogueText("Tasket is Locked");
// Button of the locked screen that asks for the user's authentication.
inline constexpr Text kUnlock = catalogueText("Unlock");

// Title of the notice shown when a feature needs the paid tier.
inline constexpr Text kPremiumRequired = catalogueText("Tasket Premium is Required");
inline constexpr Text kPremiumRequiredMessage =
    // Message of the notice shown when a feature needs the paid tier.
    catalogueText("Please purchase Tasket Premium to access this feature.");
// What saving in answer to the paid-tier notice means for the shared files.
inline constexpr Text kAttachmentsLeftOut =
    catalogueText("The shared files and pictures were not attached.");
// Shown in place of the shared files when they cannot be attached without the paid tier.
inline constexpr Text kFilesNeedPremium =
    catalogueText("Files and pictures are attached with Tasket Premium only.");

} // namespace tasket::rules::texts
