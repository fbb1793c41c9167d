// What the share tests build on: item providers over values, files in a
// temporary folder, and ShareFixture: a store in that folder, in-memory
// settings, and a controller whose form is loaded over the given providers
// with the main queue pumped until the asynchronous read is done.
#pragma once

#include "platform/extension/in_memory_item_provider.h"
#include "platform/extension/png_only_image_converter.h"
#include "platform/extension/type_identifier.h"
#include "platform/main_queue.h"
#include "platform/preferences/in_memory_preferences_suite.h"
#include "settings/settings_keys.h"
#include "share/category_choice.h"
#include "share/share_view_controller.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace tasket::testing {

using platform::Bytes;
using platform::InMemoryItemProvider;
using platform::ItemProvider;
using platform::Url;

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

class ShareFixture : public ::testing::Test {
  protected:
    void TearDown() override {
        controller.reset();
        platform::MainQueue::shared().pump();
    }

    /// A saved list titled `title` at `sortIndex` in the user's order.
    std::shared_ptr<store::TK_Category> addList(const std::string& title,
                                                std::int16_t sortIndex = 0) {
        auto list = share::insertNewCategory(*data->viewContext(), title);
        list->setSortIndex(sortIndex);
        EXPECT_TRUE(data->viewContext()->save());
        return list;
    }

    /// The controller over `providers` as the first item, its form loaded.
    share::ShareViewController&
    open(std::vector<std::shared_ptr<const ItemProvider>> providers = {}) {
        auto context = std::make_shared<platform::ExtensionContext>(
            std::vector<platform::ExtensionItem>{platform::ExtensionItem{std::move(providers)}},
            [this](std::vector<platform::ExtensionItem> returned) {
                ++completions;
                EXPECT_TRUE(returned.empty());
            });
        controller = std::make_unique<share::ShareViewController>(context, data, customization);
        bool loaded = false;
        controller->loadForm(converter, [&](platform::Result<void> result) {
            EXPECT_TRUE(result);
            loaded = true;
        });
        EXPECT_TRUE(platform::MainQueue::shared().runUntil([&] { return loaded; }));
        return *controller;
    }

    /// The tasks as a context that never saw them reads them from the file
    /// of `data` (a fresh store owner each time, kept for the test).
    std::vector<std::shared_ptr<store::TK_Task>> storedTasks() {
        readers.push_back(store::LocalDataManager::make(data->storeURL().parent_path()));
        const auto fetched = readers.back()->viewContext()->fetch(store::TK_Task::fetchRequest());
        std::vector<std::shared_ptr<store::TK_Task>> tasks;
        for (const auto& object : *fetched)
            tasks.push_back(std::static_pointer_cast<store::TK_Task>(object));
        return tasks;
    }

    TempDir dir;
    std::shared_ptr<store::LocalDataManager> data = store::LocalDataManager::make(dir.path());
    std::shared_ptr<platform::InMemoryPreferencesSuite> group =
        std::make_shared<platform::InMemoryPreferencesSuite>(
            std::string(settings::keys::kAppGroupSuite));
    std::shared_ptr<settings::CustomizationManager> customization =
        std::make_shared<settings::CustomizationManager>(
            group, std::make_shared<platform::InMemoryPreferencesSuite>(
                       std::string(settings::keys::kStandardSuite)));
    platform::PngOnlyImageConverter converter;
    std::unique_ptr<share::ShareViewController> controller;
    int completions = 0;
    std::vector<std::shared_ptr<store::LocalDataManager>> readers;
};

} // namespace tasket::testing
