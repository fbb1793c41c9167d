// collections_store_folder: prints the folder of the large collections
// store (100,000 tasks in 1,000 lists and the rest), generating it first when
// no cached copy matches the current schema. Scripts use it to get that store
// without running the collection benchmarks.
#include "collections/bench_store.h"

#include <cstdio>
#include <exception>

int main() {
    try {
        std::printf("%s\n", tasket::bench::benchStoreFolder().c_str());
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "collections_store_folder: %s\n", error.what());
        return 1;
    }
}
