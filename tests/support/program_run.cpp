#include "support/program_run.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace tasket::testing {

namespace {

// Passed through so the programs keep the test's time zone and sanitizers.
constexpr std::array kInherited = {"PATH", "TZ", "ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"};

std::vector<std::string> environmentFor(const ProgramOptions& options) {
    std::filesystem::create_directories(options.home / "runtime");
    std::filesystem::permissions(options.home / "runtime", std::filesystem::perms::owner_all);
    std::vector<std::string> entries = {
        "HOME=" + options.home.string(),
        "XDG_DATA_HOME=" + (options.home / "data").string(),
        "XDG_CONFIG_HOME=" + (options.home / "config").string(),
        "XDG_RUNTIME_DIR=" + (options.home / "runtime").string(),
        "LANG=C.UTF-8",
    };
    for (const char* name : kInherited)
        if (const char* value = std::getenv(name))
            entries.push_back(std::string(name) + "=" + value);
    entries.insert(entries.end(), options.environment.begin(), options.environment.end());
    return entries;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> out;
    for (auto& text : texts)
        out.push_back(text.data());
    out.push_back(nullptr);
    return out;
}

struct Pipe {
    int read = -1;
    int write = -1;
    Pipe() {
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) != 0)
            throw std::runtime_error("pipe2 failed");
        read = fds[0];
        write = fds[1];
    }
};

void closeIfOpen(int& fd) {
    if (fd >= 0)
        ::close(fd);
    fd = -1;
}

// Forks and execs; the child's standard streams are `in`, `out` and `err`.
// Only async-signal-safe calls run in the child.
pid_t spawn(const std::filesystem::path& program, const std::vector<std::string>& arguments,
            const ProgramOptions& options, int in, int out, int err) {
    std::vector<std::string> argv = {program.string()};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    std::vector<std::string> envp = environmentFor(options);
    auto argvPointers = pointers(argv);
    auto envpPointers = pointers(envp);
    const std::string directory =
        (options.workingDirectory.empty() ? options.home : options.workingDirectory).string();

    const pid_t child = ::fork();
    if (child < 0)
        throw std::runtime_error("fork failed");
    if (child == 0) {
        // A session of its own, without a controlling terminal: a program
        // under test never asks on the terminal the tests were started from.
        ::setsid();
        if (::chdir(directory.c_str()) != 0 || ::dup2(in, STDIN_FILENO) < 0 ||
            ::dup2(out, STDOUT_FILENO) < 0 || ::dup2(err, STDERR_FILENO) < 0)
            ::_exit(127);
        ::execve(argvPointers[0], argvPointers.data(), envpPointers.data());
        ::_exit(127);
    }
    return child;
}

int openInputFile(const ProgramOptions& options) {
    const auto path =
        options.inputFile.empty() ? std::filesystem::path("/dev/null") : options.inputFile;
    const int fd = ::open(path.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC);
    if (fd < 0)
        throw std::runtime_error("cannot open " + path.string());
    return fd;
}

int statusOf(int raw) {
    if (WIFEXITED(raw))
        return WEXITSTATUS(raw);
    return WIFSIGNALED(raw) ? 128 + WTERMSIG(raw) : -1;
}

} // namespace

std::filesystem::path groupFolder(const std::filesystem::path& home) {
    return home / "data" / "group.QRX-Lumenforge.Tasket";
}

ProgramRun runProgram(const std::filesystem::path& program,
                      const std::vector<std::string>& arguments, const ProgramOptions& options) {
    Pipe out;
    Pipe err;
    Pipe in;
    int inputFile = -1;
    if (!options.input) {
        closeIfOpen(in.write);
        closeIfOpen(in.read);
        inputFile = openInputFile(options);
    }
    const pid_t child = spawn(program, arguments, options, options.input ? in.read : inputFile,
                              out.write, err.write);
    closeIfOpen(out.write);
    closeIfOpen(err.write);
    closeIfOpen(in.read);
    closeIfOpen(inputFile);

    // Feeds the input and drains both outputs together, so no pipe fills up.
    ProgramRun run;
    std::string_view pending = options.input ? std::string_view(*options.input) : "";
    if (options.input && pending.empty())
        closeIfOpen(in.write);
    const auto ignorePipe = std::signal(SIGPIPE, SIG_IGN);
    const auto deadline = std::chrono::steady_clock::now() + options.timeout;
    while (out.read >= 0 || err.read >= 0) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            ::kill(child, SIGKILL);
            break;
        }
        pollfd fds[3] = {{out.read, POLLIN, 0}, {err.read, POLLIN, 0}, {in.write, POLLOUT, 0}};
        if (::poll(fds, 3, static_cast<int>(left.count())) < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (!fds[i].revents)
                continue;
            char buffer[65536];
            const ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
            if (n > 0)
                (i == 0 ? run.out : run.err).append(buffer, static_cast<std::size_t>(n));
            else
                closeIfOpen(i == 0 ? out.read : err.read);
        }
        if (fds[2].revents) {
            const ssize_t n = ::write(in.write, pending.data(), pending.size());
            if (n > 0)
                pending.remove_prefix(static_cast<std::size_t>(n));
            if (n < 0 || pending.empty())
                closeIfOpen(in.write);
        }
    }
    closeIfOpen(in.write);
    closeIfOpen(out.read);
    closeIfOpen(err.read);
    std::signal(SIGPIPE, ignorePipe);
    int raw = 0;
    while (::waitpid(child, &raw, 0) < 0 && errno == EINTR) {
    }
    run.status = statusOf(raw);
    return run;
}

pid_t startProgram(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                   const ProgramOptions& options) {
    int input = openInputFile(options);
    const int out =
        options.outputFile.empty()
            ? ::open("/dev/null", O_WRONLY | O_CLOEXEC)
            : ::open(options.outputFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (out < 0)
        throw std::runtime_error("cannot open " + options.outputFile.string());
    const pid_t child = spawn(program, arguments, options, input, out, out);
    closeIfOpen(input);
    ::close(out);
    return child;
}

std::string asUnprivilegedUser(const std::function<std::string()>& attempt) {
    Pipe result;
    const pid_t child = ::fork();
    if (child < 0)
        throw std::runtime_error("fork failed");
    if (child == 0) {
        constexpr uid_t kNobody = 65534;
        if (::geteuid() == 0 &&
            (::setgroups(0, nullptr) != 0 || ::setgid(kNobody) != 0 || ::setuid(kNobody) != 0))
            ::_exit(125);
        const std::string text = attempt();
        const bool written =
            ::write(result.write, text.data(), text.size()) == static_cast<ssize_t>(text.size());
        ::_exit(written ? 0 : 126);
    }
    closeIfOpen(result.write);
    std::string text;
    char buffer[512];
    for (ssize_t n; (n = ::read(result.read, buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<std::size_t>(n));
    closeIfOpen(result.read);
    int raw = 0;
    ::waitpid(child, &raw, 0);
    return statusOf(raw) == 0 ? text : "(the child failed: " + std::to_string(statusOf(raw)) + ")";
}

std::string seedStore(const std::filesystem::path& folder, std::vector<std::string> arguments,
                      const std::filesystem::path& home) {
    arguments.insert(arguments.begin(), folder.string());
    const ProgramRun run = runProgram(SEED_STORE_BINARY, arguments, {.home = home});
    if (run.status != 0)
        throw std::runtime_error("seed_store failed: " + run.err);
    return run.out;
}

std::vector<std::string> serverPrivileges(const char* signal,
                                          const std::vector<std::filesystem::path>& folders) {
    std::vector<std::string> arguments{"--pdeathsig", signal};
    if (::geteuid() != 0)
        return arguments;
    const passwd* nobody = ::getpwnam("nobody");
    if (!nobody)
        throw std::runtime_error("no user nobody to run the server as");
    for (const auto& folder : folders)
        if (::chown(folder.c_str(), nobody->pw_uid, nobody->pw_gid) != 0)
            throw std::runtime_error("cannot hand " + folder.string() + " to nobody");
    arguments.insert(arguments.end(), {"--reuid", std::to_string(nobody->pw_uid), "--regid",
                                       std::to_string(nobody->pw_gid), "--clear-groups"});
    return arguments;
}

void waitUntilReady(pid_t& pid, std::chrono::seconds timeout, const std::function<bool()>& ready,
                    const std::function<std::string()>& describe, int stop) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
        if (int status = 0; ::waitpid(pid, &status, WNOHANG) == pid) {
            pid = -1;
            throw std::runtime_error("ended at start: " + describe());
        }
        if (ready())
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ::kill(pid, stop);
    ::waitpid(pid, nullptr, 0);
    pid = -1;
    throw std::runtime_error("not ready in " + std::to_string(timeout.count()) +
                             " seconds: " + describe());
}

} // namespace tasket::testing
