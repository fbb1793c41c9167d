#include "cloud/history_readers.h"

#include "objectstore/history.h"

#include <fmt/format.h>

namespace tasket::cloud {

std::filesystem::path tokenFilePath(const std::filesystem::path& groupContainer,
                                    std::string_view program) {
    return groupContainer / kHistoryFolderName / fmt::format("{}{}", program, kTokenFileExtension);
}

std::optional<objectstore::HistoryToken> readReaderToken(const std::filesystem::path& file) {
    auto token = objectstore::readTokenFile(file);
    return token ? *token : std::nullopt;
}

std::optional<objectstore::HistoryToken> oldestLiveReaderToken(const std::filesystem::path& folder,
                                                               std::chrono::seconds staleAfter) {
    std::error_code error;
    std::filesystem::directory_iterator entries(folder, error);
    if (error)
        return std::nullopt;
    const auto now = std::filesystem::file_time_type::clock::now();
    std::optional<objectstore::HistoryToken> oldest;
    for (const auto& entry : entries) {
        if (entry.path().extension() != kTokenFileExtension || !entry.is_regular_file(error))
            continue;
        const auto written = entry.last_write_time(error);
        if (error || now - written > staleAfter)
            continue;
        const auto token = readReaderToken(entry.path());
        if (!token)
            return std::nullopt;
        if (!oldest || *token < *oldest)
            oldest = token;
    }
    return oldest;
}

} // namespace tasket::cloud
