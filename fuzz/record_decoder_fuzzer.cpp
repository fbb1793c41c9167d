// Feeds arbitrary bytes to the record decoder as each of the twelve kinds.
// Whatever decodes must encode (unless a number it holds is not finite,
// which JSON cannot carry anyway) and decode back to the same record.
#include "transfer/record_codec.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace tasket::transfer;

namespace {

template <class R> void roundTrip(std::string_view bytes) {
    const auto decoded = decode<R>(bytes);
    if (!decoded)
        return;
    const auto encoded = encode(*decoded);
    if (!encoded)
        return;
    const auto again = decode<R>(*encoded);
    if (!again || !(*again == *decoded))
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
#define TK_SHARED_FUZZ(Record, Entity, contentType) roundTrip<Record>(bytes);
    TK_SHARED_RECORDS(TK_SHARED_FUZZ)
#undef TK_SHARED_FUZZ
    return 0;
}
