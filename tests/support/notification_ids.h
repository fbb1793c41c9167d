// The identifiers of a list of notification requests, delivered or queued
// notifications, in the list's order.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tasket::testing {

template <class Listed> std::vector<std::string> identifiers(const Listed& listed) {
    std::vector<std::string> out;
    EXPECT_TRUE(listed.has_value());
    for (const auto& item : listed.value_or(typename Listed::value_type{})) {
        if constexpr (requires { item.identifier; })
            out.push_back(item.identifier);
        else
            out.push_back(item.request.identifier);
    }
    return out;
}

} // namespace tasket::testing
