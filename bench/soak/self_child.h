// A soak program's writers are the program itself, started again with other
// arguments: this starts one with its standard output on a pipe, and reads
// what it printed once it has ended (killed or not).
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace tasket::soak {

struct Child {
    pid_t pid = -1;
    int out = -1; // read end of the child's standard output
};

/// Starts this program again with `args` (args[0] is its name).
inline Child spawnSelf(const std::vector<std::string>& args) {
    int fds[2];
    if (pipe(fds) != 0)
        std::exit(1);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(fds[1], STDOUT_FILENO);
        close(fds[0]);
        close(fds[1]);
        std::vector<char*> argv;
        for (const auto& a : args)
            argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv("/proc/self/exe", argv.data());
        _exit(127);
    }
    close(fds[1]);
    return {pid, fds[0]};
}

/// Waits for the child to end and returns everything it printed.
inline std::string reap(const Child& child) {
    std::string text;
    char buffer[4096];
    for (ssize_t n; (n = read(child.out, buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<std::size_t>(n));
    close(child.out);
    int status = 0;
    waitpid(child.pid, &status, 0);
    return text;
}

} // namespace tasket::soak
