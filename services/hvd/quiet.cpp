// Writing without a trace of it: errno, signals and cancellation stay as the caller has them.
#include <services/hvd/quiet.h>

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <ctime>

namespace hvd {

Quiet::Quiet() noexcept {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_cancelState);
    sigset_t blocked;
    sigfillset(&blocked);
    for (int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT})
        sigdelset(&blocked, fault);
    pthread_sigmask(SIG_BLOCK, &blocked, &m_mask);
    sigemptyset(&m_pending);
    // A signal can wait for this thread only if the thread itself blocks it.
    if (sigismember(&m_mask, SIGPIPE) == 1 || sigismember(&m_mask, SIGXFSZ) == 1)
        sigpending(&m_pending);
}

Quiet::~Quiet() {
    pthread_sigmask(SIG_SETMASK, &m_mask, nullptr);
    pthread_setcancelstate(m_cancelState, nullptr);
}

// Who waits for a reader that never comes must still be one that can be ended. A non-blocking target is
// not waited for: what it doesn't take at once is dropped.
void Quiet::waitForRoom(int descriptor) const noexcept {
    const int flags = fcntl(descriptor, F_GETFL);
    if (flags < 0 || flags & O_NONBLOCK)
        return;
    pollfd target{descriptor, POLLOUT, 0};
    while (ppoll(&target, 1, nullptr, &m_mask) < 0 && errno == EINTR) {
    }
}

int Quiet::write(int descriptor, std::string_view bytes, bool mayWait) const noexcept {
    while (!bytes.empty()) {
        if (mayWait)
            waitForRoom(descriptor);
        const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
        if (written >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
            continue;
        }
        const int error = errno;
        if (error == EINTR)
            continue;
        if (error == EPIPE)
            takeBack(SIGPIPE);
        if (error == EFBIG)
            takeBack(SIGXFSZ);
        return error;
    }
    return 0;
}

// One that was pending before belongs to the program.
void Quiet::takeBack(int signal) const noexcept {
    if (sigismember(&m_pending, signal) == 1)
        return;
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, signal);
    const timespec atOnce{};
    sigtimedwait(&one, nullptr, &atOnce);
}

void report(const char *format, ...) noexcept {
    char line[1024];
    std::va_list arguments;
    va_start(arguments, format);
    int length = std::snprintf(line, sizeof line, "libhvd: ");
    length +=
        std::vsnprintf(line + length, sizeof line - static_cast<std::size_t>(length), format, arguments);
    va_end(arguments);
    const std::size_t end = std::min(static_cast<std::size_t>(length), sizeof line - 1);
    line[end] = '\n'; // in place of the NUL
    const Quiet quiet;
    quiet.write(STDERR_FILENO, {line, end + 1}, true);
}

} // namespace hvd
