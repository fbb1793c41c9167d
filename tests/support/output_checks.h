// Checks of what a program printed, for the programs' tests.
#pragma once

#include "support/program_run.h"

#include <gtest/gtest.h>

#include <map>
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

/// One run in a table of program runs: the arguments, where "{NAME}" stands
/// for what an earlier step captured as NAME; the exit status; texts expected
/// in this order in standard output and error together, and texts absent;
/// and (`capture`) a name to keep the first line of standard output under.
struct Step {
    std::vector<std::string> arguments;
    int status = 0;
    std::vector<std::string> expected = {};
    std::vector<std::string> absent = {};
    std::string capture = {};
    const char* program = nullptr; // else the table's
};

/// Runs `steps` in order, `program` unless a step names its own, and checks
/// each; returns what was captured.
inline std::map<std::string, std::string>
runSteps(const char* program, const std::vector<Step>& steps, const ProgramOptions& options) {
    std::map<std::string, std::string> captured;
    const auto substituted = [&](std::vector<std::string> texts) {
        for (auto& text : texts)
            for (const auto& [name, value] : captured)
                for (std::size_t at; (at = text.find("{" + name + "}")) != std::string::npos;)
                    text.replace(at, name.size() + 2, value);
        return texts;
    };
    for (const Step& step : steps) {
        const auto arguments = substituted(step.arguments);
        SCOPED_TRACE(::testing::PrintToString(arguments));
        const ProgramRun run =
            runProgram(step.program ? step.program : program, arguments, options);
        EXPECT_EQ(run.status, step.status) << run.err;
        expectInOrder(run.out + run.err, substituted(step.expected), substituted(step.absent));
        if (!step.capture.empty())
            captured[step.capture] = run.out.substr(0, run.out.find('\n'));
    }
    return captured;
}

} // namespace tasket::testing
