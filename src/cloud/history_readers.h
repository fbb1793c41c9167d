// The history readers of one store: every long-lived program that follows
// the store through persistent history keeps its position in a token file
// of its own, History/<program>.token in the application-group container.
// History may be purged only up to the oldest position a live reader holds;
// a reader whose file has not been written for a long time is gone for
// good and no longer holds history back.
#pragma once

#include "objectstore/change.h"
#include "platform/error.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <string_view>

namespace tasket::cloud {

inline constexpr std::string_view kHistoryFolderName = "History";
inline constexpr std::string_view kTokenFileExtension = ".token";
/// A token file untouched for this long belongs to a reader gone for good.
/// Every live reader rewrites its file on each pass that found something,
/// and each save by any program starts a pass in every live reader.
inline constexpr std::chrono::hours kDefaultStaleReaderAge{24 * 14};

/// History/<program>.token under `groupContainer`.
std::filesystem::path tokenFilePath(const std::filesystem::path& groupContainer,
                                    std::string_view program);

/// The token in `file`; nullopt when the file is missing, unreadable or
/// holds anything but a token (history is then read from its beginning).
std::optional<objectstore::HistoryToken> readReaderToken(const std::filesystem::path& file);

/// How far history may be purged: the oldest token among the token files
/// in `folder` written within `staleAfter`. Nullopt (purge nothing) when
/// there is none, or when a live reader's file holds no token, since that
/// reader would read history from its beginning.
std::optional<objectstore::HistoryToken> oldestLiveReaderToken(const std::filesystem::path& folder,
                                                               std::chrono::seconds staleAfter);

} // namespace tasket::cloud
