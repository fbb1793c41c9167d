// Decoding a record from a simdjson DOM object, for the codec and the
// record stream, which both hold the parsed text. Kept out of the public
// headers so that only the transfer library sees simdjson.
#pragma once

#include "platform/error.h"
#include "transfer/shared_records.h"

#include <simdjson.h>

#include <string_view>

namespace tasket::transfer::detail {

/// The record of type R in `object`; failures name the record and the key.
template <class R> platform::Result<R> decodeObject(simdjson::dom::object object);

/// The same for the record named `kind`; an unknown kind fails.
platform::Result<AnyRecord> decodeObjectOfKind(std::string_view kind, simdjson::dom::object object);

/// `text` parsed by a parser per thread, reused across records (what it
/// parsed lasts until its next parse), copied into the parser's own padded
/// buffer (a string_view would otherwise become a new padded string on
/// every call).
simdjson::simdjson_result<simdjson::dom::element> parseText(std::string_view text);

} // namespace tasket::transfer::detail
