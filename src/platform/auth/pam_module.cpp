#include "platform/auth/pam_module.h"

#include "platform/module_loader.h"

#include <mutex>

namespace tasket::platform {
namespace {

Result<const AuthenticatorFactories*> loadModule() {
    static const auto loaded = []() -> Result<const AuthenticatorFactories*> {
        auto table = loadModuleTable({.inPrefix = TASKET_PAM_MODULE_IN_PREFIX,
                                      .built = TASKET_PAM_MODULE_BUILT,
                                      .entry = kAuthenticatorModuleEntry,
                                      .what = "the PAM authentication module"},
                                     AuthenticatorFactories::kVersion);
        if (!table)
            return std::unexpected(table.error());
        return static_cast<const AuthenticatorFactories*>(*table);
    }();
    return loaded;
}

// Stands for the module's authenticator until it is first needed.
class LoadingAuthenticator final : public Authenticator {
  public:
    explicit LoadingAuthenticator(PamAuthenticator::Options options)
        : m_options(std::move(options)) {}

    [[nodiscard]] Result<> canEvaluate() const override {
        const auto loaded = authenticator();
        if (!loaded)
            return std::unexpected(loaded.error());
        return (*loaded)->canEvaluate();
    }
    [[nodiscard]] Result<> evaluate(const AuthenticationRequest& request) override {
        const auto loaded = authenticator();
        if (!loaded)
            return std::unexpected(loaded.error());
        return (*loaded)->evaluate(request);
    }

  private:
    [[nodiscard]] Result<Authenticator*> authenticator() const {
        std::lock_guard lock(m_mutex);
        if (!m_loaded) {
            const auto module = loadModule();
            if (!module)
                return std::unexpected(module.error());
            m_loaded = (*module)->pam(m_options);
        }
        return m_loaded.get();
    }

    const PamAuthenticator::Options m_options;
    mutable std::mutex m_mutex;
    mutable std::shared_ptr<Authenticator> m_loaded;
};

} // namespace

std::shared_ptr<Authenticator> openPamAuthenticator(PamAuthenticator::Options options) {
    return std::make_shared<LoadingAuthenticator>(std::move(options));
}

} // namespace tasket::platform
