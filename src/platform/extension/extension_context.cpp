#include "platform/extension/extension_context.h"

namespace tasket::platform {

ExtensionContext::ExtensionContext(std::vector<ExtensionItem> inputItems,
                                   RequestHandler onRequestCompleted)
    : m_inputItems(std::move(inputItems)), m_onRequestCompleted(std::move(onRequestCompleted)) {}

bool ExtensionContext::completeRequest(std::vector<ExtensionItem> returningItems,
                                       const CompletionHandler& completion) {
    const bool first = !m_completed.exchange(true);
    if (first && m_onRequestCompleted)
        m_onRequestCompleted(std::move(returningItems));
    if (completion)
        completion(!first);
    return first;
}

} // namespace tasket::platform
