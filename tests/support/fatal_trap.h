// Replaces the process stop with an exception for the scope of a test, so a
// stop can be observed and its message checked.
#pragma once

#include "platform/fatal.h"

#include <string>

namespace tasket::testing {

struct FatalStop {
    std::string message;
};

class FatalTrap {
  public:
    FatalTrap()
        : m_previous(platform::setFatalHandler(
              [](const std::string& message) { throw FatalStop{message}; })) {}
    ~FatalTrap() { platform::setFatalHandler(std::move(m_previous)); }
    FatalTrap(const FatalTrap&) = delete;
    FatalTrap& operator=(const FatalTrap&) = delete;

  private:
    platform::FatalHandler m_previous;
};

} // namespace tasket::testing
