// Reading what was shared into what the form needs: the link, the
// attachment payloads, and whether files or pictures were offered without
// the paid tier. Only the first input item counts; its providers are read
// one after another, in order: a URL provider gives the link (a web link)
// or a file to attach (a file link), an image provider a picture to attach
// (a file read in full, or a picture in memory converted to PNG). Without
// the paid tier files and pictures are skipped and the flag is set.
#pragma once

#include "platform/error.h"
#include "platform/extension/extension_context.h"
#include "platform/extension/image_converter.h"
#include "share/attachment_payload.h"
#include "share/paid_tier.h"
#include "store/local_data_manager.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tasket::share {

struct SharedInput {
    /// The link's absolute string; empty when no web link was shared.
    std::string url;
    std::vector<AttachmentPayload> attachments;
    /// Files or pictures were shared while the paid tier is not active.
    bool isAddingAttachmentsWithoutPremium = false;
    /// Why a provider gave nothing (a file gone or unreadable, a picture
    /// that cannot be decoded), one message each, naming it.
    std::vector<platform::Error> refused;
};

struct SharedInputSources {
    /// Asked exactly once, and only when the first item has providers.
    PaidTierCheck isPaidTierActive;
    /// Where the background context for building attachments comes from.
    std::shared_ptr<store::LocalDataManager> localDataManager;
    /// Converts pictures held in memory to PNG; must outlive the read.
    const platform::ImageConverter* imageConverter = nullptr;
};

/// Reads `context`'s input (null: nothing shared) on a new background
/// context of the store (property-level object-trump merges, no undo
/// manager) and hands the result to `completion` on the main queue. Never
/// fails as a whole: what cannot be read is listed in `refused`.
void readSharedInput(std::shared_ptr<const platform::ExtensionContext> context,
                     SharedInputSources sources, std::function<void(SharedInput)> completion);

} // namespace tasket::share
