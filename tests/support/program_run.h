// Runs a real program of the project the way a user would, but hermetic:
// a private environment (XDG folders, HOME and the runtime folder under a
// temporary folder of the test, no display), standard input from given
// bytes or a file, and what it wrote to standard output and standard error
// captured with its exit status.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tasket::testing {

struct ProgramOptions {
    /// XDG_DATA_HOME is home/data, XDG_CONFIG_HOME home/config,
    /// XDG_RUNTIME_DIR home/runtime (made 0700), HOME home.
    std::filesystem::path home;
    /// Where it runs; empty: `home`.
    std::filesystem::path workingDirectory = {};
    /// Standard input: these bytes, else the file `inputFile`, else /dev/null.
    std::optional<std::string> input = std::nullopt;
    std::filesystem::path inputFile = {};
    /// More NAME=VALUE entries (QT_QPA_PLATFORM=offscreen, say).
    std::vector<std::string> environment = {};
    /// A program still running after this is killed (status 128 + SIGKILL),
    /// so a hang fails its test instead of stalling the suite.
    std::chrono::milliseconds timeout = std::chrono::seconds(60);
};

struct ProgramRun {
    int status = -1; // the exit status, or 128 + the signal that ended it
    std::string out;
    std::string err;
};

/// Runs `program` with `arguments` and waits for it.
ProgramRun runProgram(const std::filesystem::path& program,
                      const std::vector<std::string>& arguments, const ProgramOptions& options);

/// Starts `program` with its output thrown away and returns its process
/// id without waiting; the caller reaps it (waitpid).
pid_t startProgram(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                   const ProgramOptions& options);

/// The group container under `home` as the programs find it.
std::filesystem::path groupFolder(const std::filesystem::path& home);

} // namespace tasket::testing
