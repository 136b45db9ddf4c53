// Runs a program as a child process and collects its output and exit code,
// within a deadline (a child still running then is killed and reported so).
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

namespace tooltest {

struct ChildResult {
    bool started = false;
    bool timedOut = false;
    int exitCode = -1;  // -1 when killed by a signal
    std::string out, err;
    double seconds = 0;
};

// `program` is run as given (a relative path is resolved against `cwd`), with `args` after it.
inline ChildResult runChild(const std::string& program, const std::vector<std::string>& args,
                            const std::string& cwd = "", int timeoutMs = 30000) {
    using Clock = std::chrono::steady_clock;
    ChildResult r;
    int outPipe[2], errPipe[2];
    if (::pipe2(outPipe, O_CLOEXEC) != 0) return r;
    if (::pipe2(errPipe, O_CLOEXEC) != 0) return r;
    // Everything the child needs is made before the fork: after it, only
    // async-signal-safe calls until exec (the test program has threads).
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    const auto start = Clock::now();
    const pid_t pid = ::fork();
    if (pid < 0) return r;
    if (pid == 0) {
        if (!cwd.empty() && ::chdir(cwd.c_str()) != 0) ::_exit(127);
        ::dup2(outPipe[1], 1);
        ::dup2(errPipe[1], 2);
        ::execv(program.c_str(), argv.data());
        ::_exit(127);
    }
    r.started = true;
    ::close(outPipe[1]);
    ::close(errPipe[1]);
    const auto deadline = start + std::chrono::milliseconds(timeoutMs);
    pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
    std::string* sinks[2] = {&r.out, &r.err};
    int open = 2;
    while (open > 0) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            r.timedOut = true;
            ::kill(pid, SIGKILL);
            break;
        }
        if (::poll(fds, 2, int(left)) <= 0) continue;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
            char buf[4096];
            const ssize_t n = ::read(fds[i].fd, buf, sizeof buf);
            if (n > 0) {
                sinks[i]->append(buf, size_t(n));
            } else {
                ::close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
    for (const pollfd& f : fds)
        if (f.fd >= 0) ::close(f.fd);
    int status = 0;
    ::waitpid(pid, &status, 0);
    r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return r;
}

}  // namespace tooltest
