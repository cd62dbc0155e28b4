#include "input.h"

#include "failure.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace {

int openForReading(const std::string &name) {
    const int descriptor = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        throw systemFailure(Exit::Input, name, errno);
    return descriptor;
}

} // namespace

Input::Input(const std::string &name)
    : m_name(name == "-" ? "standard input" : name),
      m_descriptor(name == "-" ? STDIN_FILENO : openForReading(name)) {}

Input::~Input() {
    if (m_descriptor != STDIN_FILENO)
        close(m_descriptor);
}

std::size_t Input::read(char *buffer, std::size_t size) {
    for (;;) {
        const ssize_t count = ::read(m_descriptor, buffer, size);
        if (count >= 0)
            return static_cast<std::size_t>(count);
        if (errno != EINTR)
            throw systemFailure(Exit::Input, m_name, errno);
    }
}

struct stat Input::status() const {
    struct stat status = {};
    if (fstat(m_descriptor, &status) != 0)
        throw systemFailure(Exit::Input, m_name, errno);
    return status;
}
