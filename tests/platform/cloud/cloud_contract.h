// The contract every cloud database adapter keeps, as parameterised tests:
// an adapter's test file makes a CloudBackend (which opens one account's
// container, creating the account on first use), compiles cloud_contract.cpp
// in and instantiates CloudContract with the backend.
#pragma once

#include "platform/cloud/cloud_database.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>

namespace tasket::testing {

struct CloudBackend {
    std::string name;
    /// Opens the container of `account` (two calls may share the server).
    std::function<std::function<std::unique_ptr<platform::CloudContainer>(const std::string&)>()>
        start;
};

inline void PrintTo(const CloudBackend& backend, std::ostream* out) {
    *out << backend.name;
}

class CloudContract : public ::testing::TestWithParam<CloudBackend> {
  protected:
    void SetUp() override { m_open = GetParam().start(); }
    std::unique_ptr<platform::CloudContainer> open(const std::string& account) {
        return m_open(account);
    }

  private:
    std::function<std::unique_ptr<platform::CloudContainer>(const std::string&)> m_open;
};

} // namespace tasket::testing
