// The large store the collection benchmarks run on: 100,000 tasks in 1,000
// lists, 300,000 subtasks, 200 tags, 20 priorities, 20 statuses, 50
// attributes with 500 values, 2,000 board sections, 5,000 attachments and a
// few folders and smart lists. It is written once with plain SQL into the
// schema the engine creates, and kept in a folder under /tmp named after a
// hash of that schema, so later runs reuse it until the model changes.
#pragma once

#include "support/temp_dir.h"

#include <filesystem>

namespace tasket::bench {

struct BenchStoreSize {
    int lists = 1000;
    int tasks = 100000;
    int subtasks = 300000;
    int tags = 200;
    int priorities = 20;
    int statuses = 20;
    int attributes = 50;
    int values = 500;
    int sections = 2000;
    int attachments = 5000;
    int folders = 10;
    int smartLists = 10;
};

/// The group-container folder holding TK_Data.sqlite at `size`, generated
/// on first use. Only read it: benchmarks that write use a ScratchCopy.
/// Throws std::runtime_error when it cannot be written.
std::filesystem::path benchStoreFolder(const BenchStoreSize& size = {});

/// A copy of the store's folder in a new temporary folder, removed with it.
class ScratchCopy {
  public:
    explicit ScratchCopy(const std::filesystem::path& folder);
    const std::filesystem::path& path() const { return m_dir.path(); }

  private:
    testing::TempDir m_dir;
};

} // namespace tasket::bench
