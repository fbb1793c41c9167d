// The reverse-domain identifiers the rules hand out: filter and task-action
// identifiers are a fixed prefix and a suffix, and an object whose kind is
// unknown is named with its own prefix. Shared with the main application, so
// the texts are kept byte for byte.
#pragma once

#include <string_view>

namespace tasket::rules::identifiers {

/// The root of every reverse-domain identifier of the application.
inline constexpr std::string_view kRoot = "Lumenforge.QRX.Tasket.";

/// Filter identifiers: this prefix followed by a dimension word.
inline constexpr std::string_view kFilterPrefix = "Lumenforge.QRX.Tasket.Filter.";
inline constexpr std::string_view kSubtaskFilter = "Lumenforge.QRX.Tasket.Filter.Subtask";

/// Task-action identifiers: this prefix followed by a suffix.
inline constexpr std::string_view kTaskActionPrefix = "Lumenforge.QRX.Tasket.Task.Action.";
inline constexpr std::string_view kTaskActionRemoveFromSection =
    "Lumenforge.QRX.Tasket.Task.Action.Remove.From.Section";
inline constexpr std::string_view kTaskActionDelete = "Lumenforge.QRX.Tasket.Task.Action.Delete";

/// An object of unknown kind: this prefix followed by the object's identifier.
inline constexpr std::string_view kUnknownObjectPrefix = "Lumenforge.QRX.Tasket.Unknown.Object.";

} // namespace tasket::rules::identifiers
