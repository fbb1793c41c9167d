// Runs a real program of the project the way a user would, but hermetic:
// a private environment (XDG folders, HOME and the runtime folder under a
// temporary folder of the test, no display), standard input from given
// bytes or a file, and what it wrote to standard output and standard error
// captured with its exit status.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
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
    /// startProgram only: standard output and error appended to this file,
    /// else thrown away.
    std::filesystem::path outputFile = {};
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

/// The arguments of /usr/bin/setpriv, before the program's own, for a test
/// server: it gets `signal` should the test process die and, when the test
/// runs as root (which servers refuse), it runs as "nobody", who is first
/// given `folders`.
std::vector<std::string> serverPrivileges(const char* signal,
                                          const std::vector<std::filesystem::path>& folders);

/// Waits up to `timeout` for `ready` while the server `pid` runs; throws
/// std::runtime_error naming `describe()` when it ends first (pid becomes
/// -1) or the time runs out (it is stopped with `stop`).
void waitUntilReady(pid_t& pid, std::chrono::seconds timeout, const std::function<bool()>& ready,
                    const std::function<std::string()>& describe, int stop);

/// Runs `attempt` in a child process and returns what it returned. When
/// this process is root, the child first becomes "nobody", so that
/// permission bits bind it; a child that fails says so instead.
std::string asUnprivilegedUser(const std::function<std::string()>& attempt);

/// Runs seed_store (tests/support/seed_store.cpp) on the store folder
/// `folder` with `arguments`, from `home`; returns what it printed, and
/// throws std::runtime_error when it fails.
std::string seedStore(const std::filesystem::path& folder, std::vector<std::string> arguments,
                      const std::filesystem::path& home);

/// The group container under `home` as the programs find it.
std::filesystem::path groupFolder(const std::filesystem::path& home);

} // namespace tasket::testing
