// dirload: loads directory entries from LDIF files, as callers of the library do it.
#include "../tovconv/progress.h"
#include "courier.h"
#include "failure.h"
#include "loader.h"
#include "options.h"

#include <services/hvdctl.h>
#include <tovutil/tovslibc.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <deque>
#include <mutex>
#include <new>
#include <numeric>
#include <optional>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// What all threads show together. Whoever finds the bar in use leaves its bytes to the next.
class SharedProgress {
public:
    explicit SharedProgress(std::uint64_t totalBytes) : m_progress(totalBytes, true) {}

    void advance(std::uint64_t bytes) {
        m_pending.fetch_add(bytes, std::memory_order_relaxed);
        if (std::unique_lock lock(m_mutex, std::try_to_lock); lock)
            m_progress.advance(m_pending.exchange(0, std::memory_order_relaxed));
    }

private:
    std::atomic<std::uint64_t> m_pending = 0;
    std::mutex m_mutex;
    Progress m_progress;
};

class File : public ByteSource {
public:
    File(const std::string &name, SharedProgress &progress)
        : m_name(name == "-" ? "standard input" : name), m_progress(progress),
          m_descriptor(name == "-" ? STDIN_FILENO : open(name.c_str(), O_RDONLY | O_CLOEXEC)) {
        if (m_descriptor < 0)
            throw Failure(Exit::Input, name, errno);
    }
    ~File() override {
        if (m_descriptor != STDIN_FILENO)
            close(m_descriptor);
    }
    File(const File &) = delete;
    File &operator=(const File &) = delete;

    const std::string &name() const { return m_name; }

    std::size_t read(char *buffer, std::size_t size) override {
        ssize_t count = 0;
        while ((count = ::read(m_descriptor, buffer, size)) < 0)
            if (errno != EINTR)
                throw Failure(Exit::Input, m_name, errno);
        m_progress.advance(static_cast<std::uint64_t>(count));
        return static_cast<std::size_t>(count);
    }

private:
    std::string m_name;
    SharedProgress &m_progress;
    int m_descriptor;
};

// The bytes of all files; 0 where one has no size of its own.
std::uint64_t totalBytes(const std::vector<std::string> &names) {
    std::uint64_t total = 0;
    for (const std::string &name : names) {
        struct stat status = {};
        if ((name == "-" ? fstat(STDIN_FILENO, &status) : stat(name.c_str(), &status)) != 0 ||
            !S_ISREG(status.st_mode))
            return 0;
        total += static_cast<std::uint64_t>(status.st_size);
    }
    return total;
}

// What the threads of a run have in common.
struct Job {
    const Options &options;
    const DirloadAttribute *plugin;
    Courier courier{options.threads};
    SharedProgress progress{totalBytes(options.files)};
    std::atomic<bool> stop = false;
};

struct Stopped {};

// One thread with its loader, for every n-th file.
class Worker : public LoadSink {
public:
    Worker(Job &job, unsigned number) : m_job(job), m_number(number), m_loader(*this, job.plugin) {}

    void run() noexcept;

    Totals totals() const { return m_loader.totals(); }
    Exit exitCode() const { return m_exit; }

    void entry(const Entry &) override {
        if (m_job.stop.load(std::memory_order_relaxed))
            throw Stopped();
    }
    void problem(const TovErrorFull &error) override;

private:
    void load(const std::string &name);
    void fail(Exit exitCode, const char *message);

    Job &m_job;
    unsigned m_number;
    Loader m_loader;
    Exit m_exit = Exit::Success;
};

void Worker::run() noexcept {
    const std::vector<std::string> &files = m_job.options.files;
    try {
        for (std::size_t i = m_number; i < files.size(); i += m_job.options.threads)
            load(files[i]);
    } catch (const Stopped &) {
        m_exit = std::max(m_exit, Exit::Stopped);
    } catch (const Failure &failure) {
        fail(failure.exitCode(), failure.what());
    } catch (const TovError &error) {
        fail(Exit::Memory, error.getErrorMessage());
    } catch (const std::bad_alloc &) {
        fail(Exit::Memory, "out of memory");
    }
}

// A file that can't be read costs its rest.
void Worker::load(const std::string &name) {
    try {
        File file(name, m_job.progress);
        m_loader.load(file, file.name());
    } catch (const Failure &failure) {
        if (failure.exitCode() != Exit::Input)
            throw;
        fail(failure.exitCode(), failure.what());
    }
}

void Worker::problem(const TovErrorFull &error) {
    if (m_job.options.strict && m_job.stop.exchange(true))
        throw Stopped(); // another thread was the first
    m_job.courier.send(m_number, error);
    if (m_job.options.strict)
        throw Stopped();
}

void Worker::fail(Exit exitCode, const char *message) {
    std::fprintf(stderr, "dirload: %s\n", message);
    m_exit = std::max(m_exit, exitCode);
}

struct Outcome {
    Totals totals;
    Exit exitCode = Exit::Success;
};

Outcome load(const Options &options, const DirloadAttribute *plugin) {
    Job job{options, plugin};
    std::deque<Worker> workers;
    for (unsigned i = 0; i < options.threads; ++i)
        workers.emplace_back(job, i);
    {
        std::vector<std::jthread> threads;
        for (Worker &worker : workers)
            threads.emplace_back(&Worker::run, &worker);
    }
    Outcome outcome;
    for (const Worker &worker : workers) {
        outcome.totals += worker.totals();
        outcome.exitCode = std::max(outcome.exitCode, worker.exitCode());
    }
    if (!job.courier.finish())
        outcome.exitCode = std::max(outcome.exitCode, Exit::Output);
    return outcome;
}

template <class Each>
void forEachError(const Totals &totals, Each each) {
    for (std::size_t i = 0; i < c_faults.size(); ++i)
        if (totals.errors[i] != 0)
            each(c_faults[i].name, std::to_string(totals.errors[i]));
}

std::string textOf(const Totals &totals) {
    std::string text = "entries      " + std::to_string(totals.entries) + "\nattributes   " +
                       std::to_string(totals.attributes) + "\ncache hits   " +
                       std::to_string(totals.cacheHits) + "\ncache misses " +
                       std::to_string(totals.cacheMisses) + "\nerrors       ";
    text +=
        std::to_string(std::accumulate(totals.errors.begin(), totals.errors.end(), std::uint64_t{0})) + "\n";
    forEachError(totals, [&](const char *name, const std::string &count) {
        text += "  " + std::string(name) + " " + count + "\n";
    });
    return text;
}

// All names are our own, and none needs an escape.
std::string jsonOf(const Totals &totals) {
    std::string text = R"({"entries": )" + std::to_string(totals.entries) + R"(, "attributes": )" +
                       std::to_string(totals.attributes) + R"(, "cacheHits": )" +
                       std::to_string(totals.cacheHits) + R"(, "cacheMisses": )" +
                       std::to_string(totals.cacheMisses) + R"(, "errors": {)";
    const char *separator = "";
    forEachError(totals, [&](const char *name, const std::string &count) {
        text += separator + ("\"" + std::string(name)) + "\": " + count;
        separator = ", ";
    });
    return text + "}}\n";
}

void print(const std::string &text) {
    if (std::fputs(text.c_str(), stdout) == EOF || std::fflush(stdout) != 0)
        throw Failure(Exit::Output, "standard output", errno);
}

const DirloadAttribute *attributesOf(std::optional<TovSharedLib> &plugin, const std::string &path) {
    try {
        plugin.emplace(path.c_str(), false, false);
        return reinterpret_cast<DirloadAttributes *>(plugin->getFuncAddress(c_dirloadAttributes))();
    } catch (const TovErrorFull &error) {
        throw Failure(Exit::Plugin, error.getErrorMessage());
    }
}

Exit run(const Options &options) {
    if (options.help) {
        print(c_helpText);
        return Exit::Success;
    }
    if (!options.trace.empty() && !hvdTraceSetLevels(options.trace.c_str()))
        throw Failure(Exit::Usage, "--trace: the levels are malformed");
    std::optional<TovSharedLib> plugin;
    const DirloadAttribute *attributes = nullptr;
    if (!options.plugin.empty())
        attributes = attributesOf(plugin, options.plugin);
    const Outcome outcome = load(options, attributes);
    print(options.json ? jsonOf(outcome.totals) : textOf(outcome.totals));
    return outcome.exitCode;
}

int ended(Exit exitCode, const char *message) {
    std::fprintf(stderr, "dirload: %s\n", message);
    return static_cast<int>(exitCode);
}

} // namespace

int main(int argc, char **argv) {
    try {
        return static_cast<int>(run(readOptions(argc, argv)));
    } catch (const Failure &failure) {
        return ended(failure.exitCode(), failure.what());
    } catch (const TovError &error) {
        return ended(Exit::Memory, error.getErrorMessage());
    } catch (const std::exception &error) { // no memory, no thread
        return ended(Exit::Memory, error.what());
    }
}
