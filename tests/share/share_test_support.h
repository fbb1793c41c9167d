// What the share tests build their input from: item providers over values,
// files in a temporary folder, a store in it, and the main queue pumped
// until the asynchronous read is done.
#pragma once

#include "platform/extension/in_memory_item_provider.h"
#include "platform/extension/type_identifier.h"
#include "platform/main_queue.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace tasket::testing {

using platform::Bytes;
using platform::InMemoryItemProvider;
using platform::ItemProvider;
using platform::Url;

inline void writeFile(const std::filesystem::path& path, std::string_view content) {
    std::ofstream(path, std::ios::binary) << content;
}

inline Bytes bytesOf(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

/// The smallest data that passes for PNG: signature, header chunk and CRC.
inline Bytes pngBytes() {
    return bytesOf(std::string_view("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR"
                                    "\0\0\0\x01\0\0\0\x01\x08\x02\0\0\0"
                                    "\x90\x77\x53\xde",
                                    33));
}

inline std::shared_ptr<const ItemProvider> webLink(std::string_view text) {
    return InMemoryItemProvider::make(std::string(platform::kTypeURL), *Url::parse(text));
}

inline std::shared_ptr<const ItemProvider> fileLink(const std::filesystem::path& path) {
    return InMemoryItemProvider::make(std::string(platform::kTypeFileURL),
                                      *Url::fromFilePath(path));
}

inline std::shared_ptr<const ItemProvider> pictureInMemory(Bytes encoded, std::string type) {
    return InMemoryItemProvider::make(type, platform::InMemoryImage{std::move(encoded), type});
}

} // namespace tasket::testing
