// Two places for files, and which of them is current. Writers count themselves in and out; a file
// that is no longer current is closed by the last writer out. A forked child has none of the other
// threads that may have been counted, so it sets the counts itself.
#include <services/hvd/chromeformat.h>
#include <services/hvd/lines.h>
#include <services/hvd/output.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace hvd {

namespace {

constexpr off_t sizeLimit = off_t{64} << 20;
constexpr std::size_t fileAtOnce = std::size_t{1} << 20;
constexpr mode_t ownerOnly = 0600;

// States of a place: unused, claimed by the thread that fills it, or open with a count of writers.
constexpr std::uint32_t unused = 0;
constexpr std::uint32_t claimed = 1U << 30;
constexpr std::uint32_t open = 1U << 31;

enum Current : int { Unopened = -1, Opening = -2, Closed = -3 }; // else the place that is current

using Path = char[PATH_MAX + 32];

constinit OutputFile s_files[fileSlots]{};
constinit std::atomic<int> s_current{Unopened};
constinit std::atomic<std::uint32_t> s_serial{0};
constinit std::atomic<bool> s_reported{false};
constinit std::atomic<pid_t> s_process{0};
constinit std::atomic<pid_t> s_opener{0}; // the thread that opens the output
constinit bool s_forked = false;          // written while there is but one thread
// Belong to the thread that fills a place, of which there is but one: threads may have little stack.
constinit Path s_processPath{};
constinit Path s_formerPath{};

int indexOf(const OutputFile &file) { return static_cast<int>(&file - s_files); }

FileIdentity identityOf(const struct stat &status) { return {status.st_dev, status.st_ino}; }

bool isStill(const OutputFile &file, struct stat &status) {
    return fstat(file.descriptor, &status) == 0 && identityOf(status) == file.identity;
}

bool hasIdentity(const char *path, const FileIdentity &identity) {
    struct stat status;
    return lstat(path, &status) == 0 && identityOf(status) == identity;
}

void reportOnce(const char *what, const char *path, const char *why) {
    if (!s_reported.exchange(true, std::memory_order_relaxed))
        report("%s %s: %s; later faults of the trace output are not reported", what, path, why);
}

const char *reason(int error) {
    const char *text = strerrordesc_np(error); // asks no locale and takes no lock
    return text ? text : "unknown error";
}

const char *targetName() {
    const Config &environment = *config();
    if (environment.target == Target::File)
        return environment.path();
    return environment.target == Target::Stdout ? "standard output" : "standard error";
}

// Only for the thread that fills a place.
const char *pathOf(bool ofProcess) {
    if (!ofProcess)
        return config()->path();
    std::snprintf(s_processPath, sizeof s_processPath, "%s.pid%ld", config()->path(),
                  static_cast<long>(outputProcess()));
    return s_processPath;
}

// Descriptors 0 to 2 would make the file the standard stream of a program that has closed its own.
int awayFromStandard(int descriptor) {
    if (descriptor < 0 || descriptor > STDERR_FILENO)
        return descriptor;
    const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const KeepErrno keep;
    close(descriptor);
    return moved;
}

// Without waiting for a pipe's reader; an open pipe is then waited for as any other.
int openFile(const char *path) {
    const int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK;
    const int descriptor = awayFromStandard(::open(path, flags, ownerOnly));
    if (descriptor >= 0)
        fcntl(descriptor, F_SETFL, O_APPEND);
    return descriptor;
}

void closeQuietly(int descriptor) {
    const KeepErrno keep;
    close(descriptor);
}

struct Opened {
    int descriptor;
    bool ofProcess = false;
    bool later = false; // another process is about to begin the file anew
};

// A file of events that is already complete is opened again at its end.
enum class Beginning { New, Continued, Foreign };

// By a descriptor of its own, because one for reading and writing would keep a pipe from breaking.
Beginning readBeginning(const Opened &opened, const struct stat &status) {
    constexpr std::string_view tail = chromeTail;
    char text[tail.size()];
    const off_t end = status.st_size - static_cast<off_t>(tail.size());
    const int reader = ::open(pathOf(opened.ofProcess), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    struct stat read;
    const bool whole = reader >= 0 && fstat(reader, &read) == 0 && identityOf(read) == identityOf(status) &&
                       end >= 0 && pread(reader, text, 1, 0) == 1 && text[0] == chromeHead[0] &&
                       pread(reader, text, tail.size(), end) == static_cast<ssize_t>(tail.size());
    if (reader >= 0)
        close(reader);
    if (whole && std::string_view(text, tail.size()) == tail)
        return ftruncate(opened.descriptor, end) == 0 ? Beginning::Continued : Beginning::Foreign;
    return whole && text[tail.size() - 1] == '}' ? Beginning::Continued : Beginning::Foreign;
}

bool beginChrome(const Opened &opened, const struct stat &status, const Quiet &quiet) {
    const bool fresh = config()->target != Target::File || !S_ISREG(status.st_mode) || status.st_size == 0;
    const Beginning beginning = fresh ? Beginning::New : readBeginning(opened, status);
    if (beginning == Beginning::Foreign) {
        reportOnce("can't continue", targetName(), "it holds something else than complete events");
        return false;
    }
    Lines lines(quiet, opened.descriptor, PIPE_BUF, PIPE_BUF);
    putChromeHead(lines, beginning == Beginning::Continued, outputProcess());
    if (!lines.flush())
        reportOnce("can't write", targetName(), reason(lines.error()));
    return lines.error() == 0;
}

// A file of events belongs to one process, because only one can write its end. Who finds it taken, and
// every forked child, writes one that is named after the process.
Opened openChrome() {
    for (bool ofProcess : {s_forked, true}) {
        const int descriptor = openFile(pathOf(ofProcess));
        if (descriptor < 0 || ofProcess || flock(descriptor, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK)
            return {descriptor, ofProcess};
        close(descriptor);
    }
    return {-1, true};
}

Opened openTarget() {
    switch (config()->target) {
    case Target::Stderr:
        return {STDERR_FILENO};
    case Target::Stdout:
        return {STDOUT_FILENO};
    case Target::File:
        break;
    }
    if (config()->format == Format::Chrome)
        return openChrome();
    return {openFile(config()->path())};
}

// Fills a claimed place and lets writers in.
bool begin(OutputFile &file, const Opened &opened, const Quiet &quiet) {
    struct stat status;
    if (opened.descriptor < 0 || fstat(opened.descriptor, &status) != 0) {
        reportOnce("can't open", targetName(), reason(errno));
        return false;
    }
    file.owned = config()->target == Target::File;
    if (config()->format == Format::Chrome && !beginChrome(opened, status, quiet)) {
        if (file.owned)
            closeQuietly(opened.descriptor);
        return false;
    }
    file.descriptor = opened.descriptor;
    file.ofProcess = opened.ofProcess;
    file.regular = S_ISREG(status.st_mode);
    file.identity = identityOf(status);
    file.serial = s_serial.fetch_add(1, std::memory_order_relaxed) + 1;
    file.rotates.store(file.owned && file.regular, std::memory_order_relaxed);
    file.state.store(open, std::memory_order_release);
    return true;
}

OutputFile *claimPlace() {
    for (OutputFile &file : s_files) {
        std::uint32_t expected = unused;
        if (file.state.compare_exchange_strong(expected, claimed, std::memory_order_acquire))
            return &file;
    }
    return nullptr;
}

bool enter(OutputFile &file) {
    std::uint32_t state = file.state.load(std::memory_order_relaxed);
    while (state & open)
        if (file.state.compare_exchange_weak(state, state + 1, std::memory_order_acquire,
                                             std::memory_order_relaxed))
            return true;
    return false;
}

// Who is last out of a file that is not current any more completes it. If the program has closed the
// descriptor, its number is no longer ours to close.
void finish(OutputFile &file, const Quiet &quiet) {
    struct stat status;
    if (isStill(file, status)) {
        if (config()->format == Format::Chrome) {
            Lines lines(quiet, file.descriptor, PIPE_BUF, PIPE_BUF);
            putChromeTail(lines, static_cast<unsigned>(indexOf(file)), outputProcess());
            if (!lines.flush())
                reportOnce("can't write", targetName(), reason(lines.error()));
        }
        if (file.owned)
            close(file.descriptor);
    }
    file.state.store(unused, std::memory_order_release);
}

void leave(OutputFile &file, const Quiet &quiet) {
    if (file.state.fetch_sub(1, std::memory_order_acq_rel) == 1)
        finish(file, quiet);
}

void retire(OutputFile &file, const Quiet &quiet) {
    if (file.state.fetch_and(~open, std::memory_order_acq_rel) == open)
        finish(file, quiet);
}

// Makes a new file current in place of `expected`, unless the output has been closed meanwhile.
bool publish(OutputFile &file, int expected, const Quiet &quiet) {
    if (s_current.compare_exchange_strong(expected, indexOf(file), std::memory_order_acq_rel))
        return true;
    retire(file, quiet);
    return false;
}

// Threads that come while another one opens the output wait for it; it waits for nobody but a reader,
// and a child that is forked meanwhile opens it itself. False in a signal handler that runs during that
// wait: it would wait for itself.
bool openOutput(const Quiet &quiet) {
    int expected = Unopened;
    if (!s_current.compare_exchange_strong(expected, Opening, std::memory_order_acquire)) {
        if (expected == Opening && s_opener.load(std::memory_order_relaxed) == gettid())
            return false;
        s_current.wait(Opening, std::memory_order_acquire);
        return true;
    }
    s_opener.store(gettid(), std::memory_order_relaxed);
    s_process.store(getpid(), std::memory_order_relaxed);
    OutputFile *file = config()->format == Format::Text || prepareChrome() ? claimPlace() : nullptr;
    const bool good = file && begin(*file, openTarget(), quiet);
    if (file && !good)
        file->state.store(unused, std::memory_order_relaxed);
    if (good)
        publish(*file, Opening, quiet);
    else
        s_current.store(Closed, std::memory_order_release);
    s_current.notify_all();
    return true;
}

OutputFile *enterCurrent(const Quiet &quiet) {
    for (;;) {
        const int current = s_current.load(std::memory_order_acquire);
        if (current == Closed || (current < 0 && !openOutput(quiet)))
            return nullptr;
        if (current >= 0 && enter(s_files[current]))
            return &s_files[current];
    }
}

// A file that somebody else has moved away already, or removed, is not moved again.
bool moveAway(const char *path, const FileIdentity &identity) {
    std::snprintf(s_formerPath, sizeof s_formerPath, "%s.1", path);
    return !hasIdentity(path, identity) || std::rename(path, s_formerPath) == 0;
}

// The lock on a descriptor of its own tells threads and processes apart alike. It is never waited for,
// and it is the full file's: who finds the path to name another one by then has nothing to move.
Opened replaceShared(const OutputFile &file) {
    const char *path = config()->path();
    const int probe = ::open(path, O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (probe < 0 && errno != ENOENT)
        return {-1};
    Opened opened{-1};
    if (probe >= 0 && flock(probe, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        opened.later = true;
    else if (moveAway(path, file.identity))
        opened.descriptor = openFile(path);
    if (probe >= 0)
        closeQuietly(probe);
    return opened;
}

Opened replaceChrome(const OutputFile &file) {
    return moveAway(pathOf(file.ofProcess), file.identity) ? openChrome() : Opened{-1};
}

// Gives the new file, entered. Null leaves the writer with the full one: another thread or process is
// at it, or it can't be done.
OutputFile *rotate(OutputFile &file, const Quiet &quiet) {
    OutputFile *next = claimPlace();
    if (!next)
        return nullptr;
    const Opened opened = config()->format == Format::Chrome ? replaceChrome(file) : replaceShared(file);
    if (opened.later || !begin(*next, opened, quiet)) {
        file.rotates.store(opened.later, std::memory_order_relaxed);
        next->state.store(unused, std::memory_order_release);
        return nullptr;
    }
    enter(*next);
    if (!publish(*next, indexOf(file), quiet)) {
        leave(*next, quiet);
        return nullptr;
    }
    retire(file, quiet);
    return next;
}

// Ends the output rather than writing into what the program has opened in its place. Standard error
// itself is then no place for a report, either.
void lose(OutputFile &file, const Quiet &quiet) {
    int current = indexOf(file);
    if (!s_current.compare_exchange_strong(current, Closed, std::memory_order_acq_rel))
        return;
    if (config()->target != Target::Stderr)
        reportOnce("can't write", targetName(), "the program has closed or replaced its descriptor");
    retire(file, quiet);
}

} // namespace

Output::Output(const Quiet &quiet) noexcept : m_quiet(quiet), m_file(enterCurrent(quiet)) {
    if (!m_file)
        return;
    OutputFile &file = *m_file;
    struct stat status;
    if (!isStill(file, status)) {
        lose(file, quiet);
        leave(file, quiet);
        m_file = nullptr;
    } else if (status.st_size >= sizeLimit && file.rotates.load(std::memory_order_relaxed)) {
        if (OutputFile *next = rotate(file, quiet)) {
            leave(file, quiet);
            m_file = next;
        }
    }
}

Output::~Output() {
    if (m_file)
        leave(*m_file, m_quiet);
}

std::size_t Output::atOnce() const noexcept { return m_file->regular ? fileAtOnce : PIPE_BUF; }

unsigned Output::slot() const noexcept { return static_cast<unsigned>(indexOf(*m_file)); }

void Output::failed(int error) const noexcept { reportOnce("can't write", targetName(), reason(error)); }

bool outputIsClosed() noexcept { return s_current.load(std::memory_order_relaxed) == Closed; }

pid_t outputProcess() noexcept { return s_process.load(std::memory_order_relaxed); }

void closeOutput(const Quiet &quiet) noexcept {
    const int current = s_current.exchange(Closed, std::memory_order_acq_rel);
    if (current < 0)
        return;
    retire(s_files[current], quiet);
    const timespec moment{0, 1'000'000};
    for (int moments = 1000; moments > 0 && s_files[current].state.load(std::memory_order_acquire) != unused;
         --moments)
        nanosleep(&moment, nullptr);
}

void outputForked() noexcept {
    const KeepErrno keep;
    const int current = s_current.load(std::memory_order_relaxed);
    s_forked = s_forked || current != Unopened;
    const bool shared = current >= 0 && config()->format == Format::Text;
    for (OutputFile &file : s_files) {
        const bool stays = shared && indexOf(file) == current;
        const std::uint32_t state = file.state.exchange(stays ? open : unused, std::memory_order_relaxed);
        struct stat status;
        if (!stays && state != unused && state != claimed && file.owned && isStill(file, status))
            close(file.descriptor);
    }
    if (current == Opening || (current >= 0 && !shared && config()->target == Target::File))
        s_current.store(Unopened, std::memory_order_relaxed);
    else if (current >= 0 && !shared)
        s_current.store(Closed, std::memory_order_relaxed);
}

} // namespace hvd
