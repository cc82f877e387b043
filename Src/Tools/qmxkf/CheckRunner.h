// The runner of qmxkf validate's checks: expectations that end a check with a
// one-line reason, and each check run in a child process of its own, so that a
// module that faults or hangs fails that check only and the later checks still run.
#pragma once

#include <functional>
#include <string>

#include "Output.h"
#include "qmx_unknown.h"

namespace qmxkf {

// A failed expectation: ends the running check with a one-line message.
struct CheckFailure {
    std::string message;
};

void Expect(bool ok, const std::string& message);

inline std::string CheckText(bool value) { return value ? "true" : "false"; }
inline std::string CheckText(double value) { return Number(value); }
template <typename T>
std::string CheckText(T value) { return std::to_string(value); }

// `what` names the value with its verb, e.g. "factory AddRef returned".
template <typename T>
void ExpectEq(const std::string& what, T got, T want)
{
    Expect(got == want, what + " " + CheckText(got) + ", expected " + CheckText(want));
}

// `call` returned `want`; the message shows both codes in hexadecimal.
void ExpectHr(const std::string& call, HRESULT got, HRESULT want);

// Everything that can still be read from `fd`, which is then closed.
std::string ReadAll(int fd);

// Runs `check` in a child process, its standard output discarded, for at most
// a fixed time: "" when it passed, else why not.
std::string RunInChild(const std::function<void()>& check);

// Prints "PASS name" or "FAIL name: problem"; returns 1 when it failed.
int ReportCheck(const char* name, const std::string& problem);

}  // namespace qmxkf
