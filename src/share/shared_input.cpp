#include "share/shared_input.h"

#include "platform/extension/type_identifier.h"
#include "platform/main_queue.h"

#include <fmt/format.h>

namespace tasket::share {
namespace {

using platform::Errc;
using platform::ItemProvider;
using platform::LoadedItem;
using platform::Url;
using rules::TK_AttachmentType;

// The URL a URL provider handed out: a URL, or raw data holding its text.
platform::Result<Url> loadedURL(LoadedItem loaded) {
    if (const Url* url = std::get_if<Url>(&loaded))
        return *url;
    if (const platform::Bytes* bytes = std::get_if<platform::Bytes>(&loaded))
        return Url::fromDataRepresentation(*bytes);
    return platform::fail(Errc::invalidArgument,
                          "cannot share a link: the shared item handed out a picture instead");
}

class InputReader {
  public:
    InputReader(bool paidTier, const platform::ImageConverter& converter)
        : m_paidTier(paidTier), m_converter(converter) {}

    void read(const ItemProvider& provider) {
        if (provider.hasItemConformingTo(platform::kTypeURL))
            readURL(provider);
        else if (provider.hasItemConformingTo(platform::kTypeImage))
            readImage(provider);
    }

    SharedInput take() { return std::move(m_input); }

  private:
    void readURL(const ItemProvider& provider) {
        auto loaded = provider.loadItem(platform::kTypeURL).get();
        if (!loaded)
            return refuse(loaded.error());
        auto url = loadedURL(std::move(*loaded));
        if (!url)
            return refuse(url.error());
        if (!url->isFileURL()) {
            m_input.url = url->absoluteString();
            return;
        }
        if (!m_paidTier) {
            m_input.isAddingAttachmentsWithoutPremium = true;
            return;
        }
        keep(makeFilePayload(*url, TK_AttachmentType::file));
    }

    void readImage(const ItemProvider& provider) {
        if (!m_paidTier) {
            m_input.isAddingAttachmentsWithoutPremium = true;
            return;
        }
        auto loaded = provider.loadItem(platform::kTypeImage).get();
        if (!loaded)
            return refuse(loaded.error());
        if (const Url* url = std::get_if<Url>(&*loaded))
            return keep(makeFilePayload(*url, TK_AttachmentType::image));
        if (const auto* image = std::get_if<platform::InMemoryImage>(&*loaded))
            return keep(makeInMemoryImagePayload(image->encoded, m_converter));
        keep(makeInMemoryImagePayload(std::get<platform::Bytes>(*loaded), m_converter));
    }

    void keep(platform::Result<AttachmentPayload> payload) {
        if (!payload)
            return refuse(payload.error());
        m_input.attachments.push_back(std::move(*payload));
    }
    void refuse(platform::Error error) { m_input.refused.push_back(std::move(error)); }

    bool m_paidTier;
    const platform::ImageConverter& m_converter;
    SharedInput m_input;
};

// `keepAlive` (the background context) is released on the main queue, once
// its own queue has let go of the task that read the input: a context whose
// last reference goes on its own queue never frees that queue.
void deliver(std::function<void(SharedInput)> completion, SharedInput input,
             std::shared_ptr<objectstore::ObjectContext> keepAlive = nullptr) {
    platform::MainQueue::shared().post([completion = std::move(completion),
                                        input = std::move(input),
                                        keepAlive = std::move(keepAlive)]() mutable {
        completion(std::move(input));
        if (keepAlive)
            keepAlive->performAndWait([] {});
    });
}

} // namespace

void readSharedInput(std::shared_ptr<const platform::ExtensionContext> context,
                     SharedInputSources sources, std::function<void(SharedInput)> completion) {
    if (!context || context->inputItems().empty())
        return deliver(std::move(completion), {});
    const auto& providers = context->inputItems().front().attachments;
    if (providers.empty())
        return deliver(std::move(completion), {});

    const bool paidTier = sources.isPaidTierActive();
    auto background = sources.localDataManager->newBackgroundContext();
    background->setMergePolicy(objectstore::MergePolicy::mergeByPropertyObjectTrump);
    // The context only lends its queue: payloads stay values until Done.
    background->perform([background, context = std::move(context), paidTier,
                         converter = sources.imageConverter,
                         completion = std::move(completion)]() mutable {
        InputReader reader(paidTier, *converter);
        for (const auto& provider : context->inputItems().front().attachments)
            reader.read(*provider);
        deliver(std::move(completion), reader.take(), std::move(background));
    });
}

} // namespace tasket::share
