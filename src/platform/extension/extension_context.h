// The share request as the extension sees it: the input items it was
// started with, and the one way out, completing the request. The host
// decides what completion means; for the share program it is the end of
// the process once the save it started has committed.
#pragma once

#include "platform/extension/extension_item.h"

#include <atomic>
#include <functional>
#include <vector>

namespace tasket::platform {

class ExtensionContext {
  public:
    /// Told the returned items when the request completes.
    using RequestHandler = std::function<void(std::vector<ExtensionItem> returnedItems)>;
    /// Told after completion; `expired` is true when the request had
    /// already been completed and this call did nothing.
    using CompletionHandler = std::function<void(bool expired)>;

    ExtensionContext(std::vector<ExtensionItem> inputItems, RequestHandler onRequestCompleted);
    ExtensionContext(const ExtensionContext&) = delete;
    ExtensionContext& operator=(const ExtensionContext&) = delete;

    /// The items shared, in order.
    [[nodiscard]] const std::vector<ExtensionItem>& inputItems() const { return m_inputItems; }

    /// Completes the request: the first call hands `returningItems` to the
    /// host's handler, then calls `completion` (if any) with false; later
    /// calls only call `completion` with true. Thread-safe; returns whether
    /// this call completed the request.
    bool completeRequest(std::vector<ExtensionItem> returningItems,
                         const CompletionHandler& completion = nullptr);

    [[nodiscard]] bool isRequestCompleted() const { return m_completed.load(); }

  private:
    std::vector<ExtensionItem> m_inputItems;
    RequestHandler m_onRequestCompleted;
    std::atomic<bool> m_completed{false};
};

} // namespace tasket::platform
