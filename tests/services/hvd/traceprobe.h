// Runs a piece of a program that traces in a child process with its own environment, since the facility
// reads the environment once; and gives what it has left behind.
#pragma once

#include <services/hvdctl.h>

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace hvdtest {

inline TRC1_UNIT s_unit = {
    180,          0x40000000, {"tests/probe", 11}, {"Oct  6 2004", 11}, {"12:34:56", 8}, {"$1 $", 4},
    {"PROBE", 5}, {}};
inline constinit TRC1_SEQUENCE s_sequence = 1;

/// A record of the source file "tests/probe".
constexpr TRC1_EPB makeRecord(std::string_view name) {
    return {&s_unit, name.data(), static_cast<std::uint32_t>(name.size()),
            1,       &s_sequence, TRC1_FLAG_FUNCTION,
            0,       0,           {}};
}

/// The level as a traced function takes it.
inline std::uint32_t levelOf(TRC1_EPB &record) {
    return record.sequence != record.unitSequence->load() ? TRC1_Sync(&record) : record.level.load();
}

/// A traced function's entry and exit; without leave(), as an exception leaves it. Inline in every build,
/// so that the stack stands at the same place at both.
class Call {
public:
    [[gnu::always_inline]] explicit Call(TRC1_EPB &record, std::uint32_t line = 10)
        : m_record(record), m_entered(levelOf(record) & TRC1_FLOW) {
        if (m_entered)
            TRC1_Event(&m_record, line, TRC1_ENTER);
    }
    [[gnu::always_inline]] void leave(std::uint32_t line = 20) {
        if (m_entered)
            TRC1_Event(&m_record, line, TRC1_LEAVE);
    }

private:
    TRC1_EPB &m_record;
    const bool m_entered;
};

inline std::string contents(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return std::move(text).str();
}

inline std::vector<std::string> linesOf(const std::string &text) {
    std::vector<std::string> lines;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        lines.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return lines;
}

/// What a child process has left behind.
struct Outcome {
    std::string out;
    std::string err;
};

class TraceProbe : public testing::Test {
public:
    /// Waits for the child; one that hangs is ended.
    static int statusOf(pid_t child) {
        using namespace std::chrono;
        for (const auto end = steady_clock::now() + seconds(120); steady_clock::now() < end;) {
            int status = 0;
            if (waitpid(child, &status, WNOHANG) == child)
                return status;
            std::this_thread::sleep_for(milliseconds(1));
        }
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        return -1;
    }

protected:
    using Environment = std::map<std::string, std::string>;

    void SetUp() override {
        std::string name = (std::filesystem::temp_directory_path() / "hvdtest.XXXXXX").string();
        ASSERT_NE(nullptr, mkdtemp(name.data()));
        m_folder = name;
    }
    void TearDown() override { std::filesystem::remove_all(m_folder); }

    std::filesystem::path path(const std::string &name) const { return m_folder / name; }

    /// The variables that trace everything.
    static Environment tracing(const std::string &file = "stderr", const std::string &format = "text") {
        return {{"HVD_TRACE", "*=all"}, {"HVD_TRACE_FILE", file}, {"HVD_TRACE_FORMAT", format}};
    }

    /// Runs `body` with the variables in a child, which then must end as a program does, through exit(0).
    Outcome run(const Environment &environment, const std::function<void()> &body) const {
        std::fflush(nullptr);
        const bool failedBefore = HasFailure();
        const pid_t child = fork();
        if (child == 0) {
            for (const char *name : {"HVD_TRACE", "HVD_TRACE_FILE", "HVD_TRACE_FORMAT"})
                unsetenv(name);
            for (const auto &[name, value] : environment)
                setenv(name.c_str(), value.c_str(), 1);
            redirect(STDOUT_FILENO, path("out"));
            redirect(STDERR_FILENO, path("err"));
            body();
            std::exit(HasFailure() && !failedBefore ? 1 : 0);
        }
        const int status = statusOf(child);
        Outcome outcome = {contents(path("out")), contents(path("err"))};
        EXPECT_EQ(0, status) << "of the child:\n" << outcome.out << outcome.err;
        return outcome;
    }

private:
    static void redirect(int descriptor, const std::filesystem::path &to) {
        const int file = open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
        dup2(file, descriptor);
        close(file);
    }

    std::filesystem::path m_folder;
};

} // namespace hvdtest
