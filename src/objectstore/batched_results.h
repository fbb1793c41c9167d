// The result of a fetch with a batch size: the ordered identities are read
// at once, the rows one batch at a time when an index in that batch is
// first touched, with the members of the request's prefetched
// relationships; a walk in order reads several batches at once. Holds only
// identities until then, so a large result costs a few bytes per object.
#pragma once

#include "objectstore/managed_object.h"

#include <memory>
#include <string>
#include <vector>

namespace tasket::objectstore {

class BatchedResults {
  public:
    BatchedResults() = default;
    BatchedResults(std::shared_ptr<ObjectContext> context, std::vector<ObjectID> ids,
                   std::size_t batchSize, std::vector<std::string> prefetched = {});

    [[nodiscard]] std::size_t size() const { return m_ids.size(); }
    [[nodiscard]] bool empty() const { return m_ids.empty(); }
    [[nodiscard]] const std::vector<ObjectID>& objectIDs() const { return m_ids; }
    /// The context the objects are in.
    [[nodiscard]] ObjectContext& context() const { return *m_context; }
    /// The object at `index`, its batch loaded. Use on the context's queue.
    [[nodiscard]] ObjectPtr at(std::size_t index) const;
    [[nodiscard]] std::size_t batchSize() const { return m_batchSize; }
    /// How many batches have been loaded so far.
    [[nodiscard]] std::size_t loadedBatches() const;

  private:
    std::shared_ptr<ObjectContext> m_context;
    std::vector<ObjectID> m_ids;
    std::size_t m_batchSize = 0;
    std::vector<std::string> m_prefetched; // relationship names
    mutable std::vector<bool> m_loaded;
    static constexpr std::size_t kMostBatchesAhead = 16;
    mutable std::size_t m_ahead = 1; // batches the last load read
};

} // namespace tasket::objectstore
