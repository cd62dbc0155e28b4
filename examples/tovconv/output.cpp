#include "output.h"

#include "failure.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace {

// The file that a signal handler removes; empty: none. Changed only while the signals are held back.
char s_temporary[PATH_MAX];

constexpr int c_endingSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGXCPU};

sigset_t endingSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : c_endingSignals)
        sigaddset(&set, signal);
    return set;
}

class SignalsHeld {
public:
    SignalsHeld() {
        const sigset_t set = endingSignals();
        pthread_sigmask(SIG_BLOCK, &set, &m_before);
    }
    ~SignalsHeld() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    SignalsHeld(const SignalsHeld &) = delete;
    SignalsHeld &operator=(const SignalsHeld &) = delete;

private:
    sigset_t m_before = {};
};

extern "C" void removeTemporaryAndEnd(int signal) {
    if (s_temporary[0] != '\0')
        unlink(s_temporary);
    std::signal(signal, SIG_DFL);
    raise(signal); // takes effect when this handler returns
}

// Where a link leads to no file yet, that is the path of the file to be.
std::string endOfDanglingLinks(const std::string &name) {
    std::filesystem::path path = name;
    std::error_code noLink;
    for (auto target = read_symlink(path, noLink); !noLink; target = read_symlink(path, noLink))
        path = path.parent_path() / target;
    return path;
}

std::string pathBehindLinks(const std::string &name) {
    const std::unique_ptr<char, void (*)(void *)> real(realpath(name.c_str(), nullptr), std::free);
    return real ? real.get() : endOfDanglingLinks(name);
}

std::string besideName(const std::string &path) {
    const std::size_t name = path.rfind('/') + 1; // 0 where there is no slash
    return path.substr(0, name) + "." + path.substr(name, 200) + "." + std::to_string(std::random_device{}());
}

bool isPlainFileOrNew(const std::string &path, struct stat &status) {
    if (stat(path.c_str(), &status) == 0)
        return S_ISREG(status.st_mode);
    status = {};
    return errno == ENOENT;
}

// Where the group can't be given, another group must not come into its rights.
void takeRightsOf(const struct stat &old, int descriptor) {
    const bool hasGroup = fchown(descriptor, old.st_uid, old.st_gid) == 0 ||
                          fchown(descriptor, static_cast<uid_t>(-1), old.st_gid) == 0;
    fchmod(descriptor, old.st_mode & (hasGroup ? 0777 : 0707));
}

} // namespace

void catchSignals() {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    struct sigaction action = {};
    action.sa_handler = removeTemporaryAndEnd;
    action.sa_mask = endingSignals();
    for (const int signal : c_endingSignals) {
        struct sigaction before = {};
        sigaction(signal, nullptr, &before);
        if (before.sa_handler != SIG_IGN) // as nohup leaves it
            sigaction(signal, &action, nullptr);
    }
}

Output::Output(const std::string &name) : m_label(name) {
    struct stat old = {};
    if (name.empty() || name == "-") {
        m_label = "standard output";
        m_descriptor = STDOUT_FILENO;
    } else if (isPlainFileOrNew(name, old)) {
        m_path = pathBehindLinks(name);
        if (old.st_mode != 0 && access(m_path.c_str(), W_OK) != 0) // the name could be had all the same
            fail(errno);
        openBeside(old.st_mode != 0 ? 0600 : 0666); // an old file may be private
        if (old.st_mode != 0)
            takeRightsOf(old, m_descriptor);
    } else if ((m_descriptor = open(name.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY)) < 0) {
        fail(errno);
    }
}

Output::~Output() {
    if (!m_temporary.empty()) {
        const SignalsHeld held;
        unlink(m_temporary.c_str());
        s_temporary[0] = '\0';
    }
    if (m_descriptor > STDERR_FILENO)
        close(m_descriptor);
}

void Output::openBeside(mode_t mode) {
    const std::string temporary = besideName(m_path);
    if (temporary.size() >= sizeof s_temporary)
        fail(ENAMETOOLONG);
    const SignalsHeld held;
    m_descriptor = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode);
    if (m_descriptor < 0)
        fail(errno);
    m_temporary = temporary;
    std::memcpy(s_temporary, temporary.c_str(), temporary.size() + 1);
}

void Output::write(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(m_descriptor, bytes.data(), bytes.size());
        if (count >= 0)
            bytes.remove_prefix(static_cast<std::size_t>(count));
        else if (errno != EINTR)
            fail(errno);
    }
}

bool Output::overwrites(const struct stat &input) const {
    struct stat status = {};
    return m_path.empty() && S_ISREG(input.st_mode) && fstat(m_descriptor, &status) == 0 &&
           status.st_dev == input.st_dev && status.st_ino == input.st_ino;
}

bool Output::isTerminal() const { return isatty(m_descriptor) == 1; }

void Output::commit() {
    if (m_temporary.empty())
        return;
    if (fsync(m_descriptor) != 0 || close(std::exchange(m_descriptor, -1)) != 0)
        fail(errno);
    const SignalsHeld held;
    if (rename(m_temporary.c_str(), m_path.c_str()) != 0)
        fail(errno);
    m_temporary.clear();
    s_temporary[0] = '\0';
}

void Output::fail(int error) const {
    const Exit exitCode = error == ENOSPC || error == EDQUOT ? Exit::DiskFull
                          : error == EPIPE                   ? Exit::ClosedPipe
                                                             : Exit::Output;
    throw systemFailure(exitCode, m_label, error);
}
