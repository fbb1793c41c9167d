// The JSON form of the transfer records, byte for byte what the main
// application writes and reads: one compact object, "id" first and then
// every field in declared order, null for an absent value, [] kept apart
// from null, "/" as "\/", dates as seconds since 2001-01-01 UTC, data as
// padded Base64. Decoding is strict: a missing key or a value of the wrong
// type fails the record, naming the key; keys the record does not list are
// ignored.
#pragma once

#include "platform/error.h"
#include "platform/json_writer.h"
#include "transfer/shared_records.h"

#include <string>
#include <string_view>

namespace tasket::transfer {

/// Writes `record` as one object value into `json`, a record-form writer.
template <class R> void writeRecord(platform::JsonWriter& json, const R& record);

/// The JSON bytes of `record`. Fails (invalidArgument, naming the key) when
/// a number is not finite.
template <class R> [[nodiscard]] platform::Result<std::string> encode(const R& record);

/// The record in `json`. Fails (parseError) on text that is not one JSON
/// object, on a missing key and on a value of the wrong type, with a
/// message naming the record and the key.
template <class R> [[nodiscard]] platform::Result<R> decode(std::string_view json);

/// The record of kind `kind` ("TK_SharedTask", ...) in `json`; an unknown
/// kind fails (invalidArgument).
[[nodiscard]] platform::Result<AnyRecord> decodeKind(std::string_view kind, std::string_view json);

/// The name of the record `any` holds ("" for none).
[[nodiscard]] std::string_view kindOf(const AnyRecord& any);

/// The identifier of the record `any` holds ("" for none).
[[nodiscard]] const std::string& idOf(const AnyRecord& any);

} // namespace tasket::transfer
