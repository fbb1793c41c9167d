#include "cloud/persistent_history_processor.h"

#include "objectstore/history.h"
#include "platform/main_queue.h"

#include <fmt/format.h>

#include <vector>

namespace tasket::cloud {

using objectstore::HistoryToken;
using objectstore::HistoryTransaction;
using platform::Errc;
using platform::Result;

namespace {

// What a pass needs, copied out of the processor, so the pass never touches
// the processor itself and can notice its release between steps.
struct PassPlan {
    std::weak_ptr<const PersistentHistoryProcessor> owner;
    objectstore::ObjectContext* context = nullptr; // alive while its own task runs
    std::weak_ptr<objectstore::ObjectContext> viewContext;
    std::filesystem::path tokenFile;
    std::chrono::seconds staleReaderAge{};
};

Result<void> keepToken(const std::filesystem::path& file, HistoryToken token) {
    std::error_code error;
    const auto folder = file.parent_path();
    if (std::filesystem::create_directory(folder, error))
        std::filesystem::permissions(folder, std::filesystem::perms::owner_all, error);
    auto written = objectstore::writeTokenFile(file, token);
    if (!written)
        return platform::fail(written.error().code,
                              fmt::format("cannot keep the history position: {}; the same "
                                          "changes will be merged again",
                                          written.error().message));
    return {};
}

Result<HistoryPass> runPass(const PassPlan& plan) {
    HistoryPass pass;
    const auto released = [&] { return plan.owner.expired(); };
    auto& store = plan.context->store();

    const auto after = readReaderToken(plan.tokenFile);
    if (released())
        return HistoryPass{.ownerReleased = true};
    auto fetched = store.historyAfter(after);
    if (!fetched)
        return platform::fail(
            fetched.error().code,
            fmt::format("cannot read the store's history: {}", fetched.error().message));
    std::vector<HistoryTransaction> transactions = std::move(*fetched);
    if (released())
        return HistoryPass{.ownerReleased = true};

    if (!transactions.empty()) {
        pass.transactions = transactions.size();
        pass.token = transactions.back().changes.token;
        // Posted, never waited for: a main loop that waits for history must
        // not wait on itself. Transactions merge in order, and passes run
        // one after another, so merges never overtake each other.
        platform::MainQueue::shared().post(
            [view = plan.viewContext, transactions = std::move(transactions)] {
                const auto context = view.lock();
                if (!context)
                    return;
                for (const auto& transaction : transactions)
                    context->mergeChanges(transaction.changes);
            });
        if (released())
            return HistoryPass{.ownerReleased = true};
        if (pass.token)
            if (auto kept = keepToken(plan.tokenFile, *pass.token); !kept)
                return std::unexpected(kept.error());
    }

    // Purge: what every live reader has read, this one by its file as it
    // now stands.
    if (released())
        return HistoryPass{.ownerReleased = true};
    if (!readReaderToken(plan.tokenFile))
        return pass;
    if (const auto through =
            oldestLiveReaderToken(plan.tokenFile.parent_path(), plan.staleReaderAge)) {
        if (auto purged = store.deleteHistory(*through); !purged)
            return platform::fail(
                purged.error().code,
                fmt::format("cannot purge the store's history: {}", purged.error().message));
    }
    return pass;
}

} // namespace

std::shared_ptr<PersistentHistoryProcessor>
PersistentHistoryProcessor::make(store::LocalDataManager& owner, Options options) {
    std::shared_ptr<PersistentHistoryProcessor> processor(new PersistentHistoryProcessor());
    processor->m_context = owner.newBackgroundContext();
    processor->m_context->setName(std::string(kHistoryContextName));
    processor->m_context->setMergePolicy(objectstore::MergePolicy::mergeByPropertyObjectTrump);
    processor->m_viewContext = owner.viewContext();
    processor->m_tokenFile = tokenFilePath(owner.storeURL().parent_path(), options.program);
    processor->m_staleReaderAge = options.staleReaderAge;
    return processor;
}

std::future<Result<HistoryPass>> PersistentHistoryProcessor::start() {
    auto promise = std::make_shared<std::promise<Result<HistoryPass>>>();
    auto future = promise->get_future();
    PassPlan plan{
        .owner = weak_from_this(),
        .context = m_context.get(),
        .viewContext = m_viewContext,
        .tokenFile = m_tokenFile,
        .staleReaderAge = m_staleReaderAge,
    };
    m_context->perform([plan = std::move(plan), promise] {
        if (plan.owner.expired()) {
            promise->set_value(HistoryPass{.ownerReleased = true});
            return;
        }
        promise->set_value(runPass(plan));
    });
    return future;
}

void installHistoryProcessing(store::LocalDataManager& owner, std::string program,
                              std::function<void(const platform::Error&)> onError) {
    auto processor = PersistentHistoryProcessor::make(owner, {.program = std::move(program)});
    owner.setHistoryProcessing([processor, onError = std::move(onError)](const auto&) {
        auto pass = processor->process();
        if (!pass && onError)
            onError(pass.error());
    });
}

} // namespace tasket::cloud
