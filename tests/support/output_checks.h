// Checks of what a program printed, for the programs' tests.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tasket::testing {

/// Expects `output` to hold each of `expected` in this order, and none of
/// `absent`.
inline void expectInOrder(const std::string& output, const std::vector<std::string>& expected,
                          const std::vector<std::string>& absent = {}) {
    std::size_t from = 0;
    for (const auto& text : expected) {
        const std::size_t found = output.find(text, from);
        EXPECT_NE(found, std::string::npos) << "\"" << text << "\" in\n" << output;
        from = found == std::string::npos ? from : found;
    }
    for (const auto& text : absent)
        EXPECT_FALSE(output.contains(text)) << "\"" << text << "\" in\n" << output;
}

} // namespace tasket::testing
