#include "CheckRunner.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <exception>

namespace qmxkf {

namespace {

constexpr unsigned kSecondsPerCheck = 20;

}  // namespace

void Expect(bool ok, const std::string& message)
{
    if (!ok)
        throw CheckFailure{message};
}

void ExpectHr(const std::string& call, HRESULT got, HRESULT want)
{
    char text[64];
    std::snprintf(text, sizeof text, " returned 0x%08X, expected 0x%08X", uint32_t(got), uint32_t(want));
    Expect(got == want, call + text);
}

std::string ReadAll(int fd)
{
    std::string text;
    char buffer[512];
    for (ssize_t n; (n = read(fd, buffer, sizeof buffer)) > 0 || (n < 0 && errno == EINTR);)
        text.append(buffer, n > 0 ? size_t(n) : 0);
    close(fd);
    return text;
}

// The child reports "P", or "F" and the message, through a pipe.
std::string RunInChild(const std::function<void()>& check)
{
    int fds[2];
    if (pipe(fds) != 0)
        return "cannot create a pipe";
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);  // the module's own output stays out of the report
        alarm(kSecondsPerCheck);
        std::string report = "P";
        try {
            check();
        } catch (const CheckFailure& failure) {
            report = "F" + failure.message;
        } catch (const std::exception& e) {
            report = std::string("Fthrew ") + e.what();
        } catch (...) {
            report = "Fthrew an unknown exception";
        }
        report.resize(std::min<size_t>(report.size(), PIPE_BUF));  // written whole, at once
        (void)!write(fds[1], report.data(), report.size());
        _exit(0);  // no exit handlers: whatever the check left behind ends with the child
    }
    close(fds[1]);
    std::string report = ReadAll(fds[0]);
    int status = 0;
    while (pid > 0 && waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (pid < 0)
        return "cannot fork";
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM)
        return "timed out after " + std::to_string(kSecondsPerCheck) + " s";
    if (WIFSIGNALED(status))
        return "crashed (signal " + std::to_string(WTERMSIG(status)) + ")";
    if (report.empty())
        return "ended without a result (exit status " + std::to_string(WEXITSTATUS(status)) + ")";
    std::replace(report.begin(), report.end(), '\n', ' ');
    return report == "P" ? "" : report.size() > 1 ? report.substr(1) : "failed";
}

int ReportCheck(const char* name, const std::string& problem)
{
    std::printf(problem.empty() ? "PASS %s\n" : "FAIL %s: %s\n", name, problem.c_str());
    std::fflush(stdout);
    return problem.empty() ? 0 : 1;
}

}  // namespace qmxkf
