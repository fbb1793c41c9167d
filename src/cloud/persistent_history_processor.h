// Persistent-history processing: folds the saves that other processes made
// to the shared store into this process's view context, so its objects
// refresh and its live collections follow. Each pass runs on a background
// context of its own: it reads this program's token file (History/
// <program>.token; missing or not a token: from the beginning), fetches the
// transactions after it, hands them in order to the view context on the
// main queue (never waiting for the main queue), writes the last one's
// token, then purges history up to the oldest live reader's token.
#pragma once

#include "cloud/history_readers.h"
#include "objectstore/object_context.h"
#include "platform/error.h"
#include "store/local_data_manager.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tasket::cloud {

inline constexpr std::string_view kHistoryContextName =
    "Lumenforge.QRX.Tasket.Persistent.History.Context";

/// What one pass did.
struct HistoryPass {
    /// Transactions handed to the view context.
    std::size_t transactions = 0;
    /// The position written to the token file; nullopt when nothing was new.
    std::optional<objectstore::HistoryToken> token = std::nullopt;
    /// The processor was released during the pass, which stopped there.
    bool ownerReleased = false;
};

class PersistentHistoryProcessor : public std::enable_shared_from_this<PersistentHistoryProcessor> {
  public:
    struct Options {
        /// Names the token file; one per program that reads history.
        std::string program;
        /// Readers whose token files are older than this hold nothing back.
        std::chrono::seconds staleReaderAge = kDefaultStaleReaderAge;
    };

    /// Makes the history context on `owner`'s store (opening the store when
    /// it is not yet open) and remembers its view context weakly: merges
    /// into a view context that is gone are dropped.
    [[nodiscard]] static std::shared_ptr<PersistentHistoryProcessor>
    make(store::LocalDataManager& owner, Options options);

    /// Schedules one pass on the history context and returns at once. The
    /// pass holds the processor weakly: once it is released the pass ends
    /// quietly (ownerReleased). A failed history request, or a token file
    /// that cannot be written (the old one stays, so the same transactions
    /// are merged again next time), ends the pass with an error.
    [[nodiscard]] std::future<platform::Result<HistoryPass>> start();
    /// One pass, waited for. Not to be called on the history context's queue.
    [[nodiscard]] platform::Result<HistoryPass> process() { return start().get(); }

    const std::filesystem::path& tokenFile() const { return m_tokenFile; }
    const std::shared_ptr<objectstore::ObjectContext>& historyContext() const { return m_context; }

  private:
    PersistentHistoryProcessor() = default;

    std::shared_ptr<objectstore::ObjectContext> m_context;
    std::weak_ptr<objectstore::ObjectContext> m_viewContext;
    std::filesystem::path m_tokenFile;
    std::chrono::seconds m_staleReaderAge{};
};

/// Makes `program`'s processor for `owner` and installs it as the owner's
/// history processing: from now on each remote change runs one pass, and a
/// pass that fails is reported to `onError` (on the history queue).
void installHistoryProcessing(store::LocalDataManager& owner, std::string program,
                              std::function<void(const platform::Error&)> onError);

} // namespace tasket::cloud
