#include "courier.h"

#include "../tovconv/utf8.h"
#include "failure.h"

#include <tovutil/toverrio.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <utility>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A record does not tell of secondary errors, so one of these stands in front of each record.
enum Mark : char { Problem = 'P', Secondary = 'S' };

class Record : public TovDataOutput {
public:
    void write(const char *bytes, unsigned length) override { m_bytes.append(bytes, length); }
    const std::string &bytes() const { return m_bytes; }

private:
    std::string m_bytes;
};

void append(Record &record, Mark mark, const TovError &error) {
    const char byte = mark;
    if (const auto *full = dynamic_cast<const TovErrorFull *>(&error)) {
        record.write(&byte, 1);
        record << *full;
    }
    if (error.getSecondary())
        append(record, Secondary, *error.getSecondary());
}

// The second process --------------------------------------------------------------------------------------

class Pipe : public TovDataInput::Stream {
public:
    explicit Pipe(int descriptor) : m_descriptor(descriptor) {}

    void read(char *bytes, unsigned length) override {
        if (!readOrEnd(bytes, length))
            throw Failure(Exit::Output, "a report is cut off");
    }

    // False when there is not a byte more.
    bool readOrEnd(char *bytes, unsigned length) {
        for (unsigned got = 0; got < length;) {
            const ssize_t count = ::read(m_descriptor, bytes + got, length - got);
            if (count == 0 && got == 0)
                return false;
            if (count == 0 || (count < 0 && errno != EINTR))
                throw Failure(Exit::Output, "a report is cut off");
            got += count > 0 ? static_cast<unsigned>(count) : 0;
        }
        return true;
    }

private:
    int m_descriptor;
};

bool isControl(char byte) { return (byte >= 0 && byte < ' ' && byte != '\n') || byte == '\x7F'; }

// Texts come from the input: what would steer a terminal is not shown, which also U+0080 to U+009F do.
std::string printable(std::string text) {
    std::replace_if(text.begin(), text.end(), isControl, '?');
    for (std::size_t at = 0; (at += wellFormedUtf8(std::string_view(text).substr(at))) < text.size();)
        text[at] = '?';
    for (std::size_t at = 0; (at = text.find('\xC2', at)) != text.npos; ++at)
        if (static_cast<unsigned char>(text[at + 1]) < 0xA0)
            text.replace(at, 2, "?");
    return text;
}

// False when the pipe has ended.
bool printNext(int descriptor) {
    Pipe pipe(descriptor);
    char mark = 0;
    if (!pipe.readOrEnd(&mark, 1))
        return false;
    TovErrorFull error;
    TovDataInput input(pipe);
    input >> error;
    const std::string text = printable(error.getErrorMessage());
    const char *clearLine = isatty(STDERR_FILENO) == 1 ? "\r\x1B[K" : "";
    std::fprintf(stderr, "%s%s%s\n", clearLine, mark == Secondary ? "because of " : "", text.c_str());
    return true;
}

bool hasEnded(const pollfd &pipe) { return pipe.revents != 0 && !printNext(pipe.fd); }

void printAll(const std::vector<int> &descriptors) {
    std::vector<pollfd> open;
    for (const int descriptor : descriptors)
        open.push_back({descriptor, POLLIN, 0});
    while (!open.empty()) {
        if (poll(open.data(), open.size(), -1) < 0)
            continue; // interrupted
        std::erase_if(open, hasEnded);
    }
}

[[noreturn]] void runPrinter(const std::vector<int> &descriptors) {
    int exitCode = EXIT_SUCCESS;
    try {
        printAll(descriptors);
        exitCode = std::ferror(stderr) ? EXIT_FAILURE : EXIT_SUCCESS;
    } catch (...) {
        exitCode = EXIT_FAILURE;
    }
    _exit(exitCode);
}

} // namespace

Courier::Courier(unsigned pipeCount) {
    std::vector<int> readEnds;
    for (unsigned i = 0; i < pipeCount; ++i) {
        int ends[2];
        if (pipe(ends) != 0)
            throw Failure(Exit::Output, "can't make a pipe", errno);
        readEnds.push_back(ends[0]);
        m_pipes.push_back(ends[1]);
    }
    std::signal(SIGPIPE, SIG_IGN); // a printer that has ended is told by write
    m_printer = fork();
    if (m_printer < 0)
        throw Failure(Exit::Output, "can't make a process", errno);
    for (const int descriptor : m_printer == 0 ? m_pipes : readEnds)
        close(descriptor);
    if (m_printer == 0)
        runPrinter(readEnds);
}

void Courier::send(unsigned pipe, const TovErrorFull &error) {
    Record record;
    append(record, Problem, error);
    for (std::size_t sent = 0; sent < record.bytes().size();) {
        const ssize_t count =
            write(m_pipes[pipe], record.bytes().data() + sent, record.bytes().size() - sent);
        if (count < 0 && errno != EINTR)
            throw Failure(Exit::Output, "the reports can't be sent", errno);
        sent += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
}

bool Courier::finish() {
    for (const int descriptor : std::exchange(m_pipes, {}))
        close(descriptor);
    int status = 0;
    if (const pid_t printer = std::exchange(m_printer, -1); printer > 0)
        while (waitpid(printer, &status, 0) < 0 && errno == EINTR) {
        }
    return status == 0;
}
