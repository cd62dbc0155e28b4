// Runs a part of a test in a process of its own, because a process has but one locale.
#pragma once

#include <cstdlib>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

namespace tovtest {

/// Variables of the environment; null is unset.
struct Environment {
    const char *lcAll = nullptr;
    const char *lcCtype = nullptr;
    const char *lang = nullptr;
};

inline void set(const char *name, const char *value) {
    if (value)
        setenv(name, value, 1);
    else
        unsetenv(name);
}

/// What `work()` gives as a text, in a child that sees `environment`; "died" when it did not end well.
template <class Work>
std::string inChild(const Environment &environment, Work work) {
    int ends[2];
    if (pipe(ends) != 0)
        return "no pipe";
    const pid_t child = fork();
    if (child == 0) {
        set("LC_ALL", environment.lcAll);
        set("LC_CTYPE", environment.lcCtype);
        set("LANG", environment.lang);
        const std::string text = work();
        const bool sent = write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
        _exit(sent ? 0 : 1);
    }
    close(ends[1]);
    std::string text;
    char piece[256];
    for (ssize_t got; (got = read(ends[0], piece, sizeof piece)) > 0;)
        text.append(piece, static_cast<std::size_t>(got));
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return status == 0 ? text : "died";
}

} // namespace tovtest
