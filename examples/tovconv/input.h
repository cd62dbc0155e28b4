/// One input, a file or standard input, read from front to end.
#pragma once

#include <cstddef>
#include <string>

#include <sys/stat.h>

class Input {
public:
    /// "-" means standard input.
    ///
    /// Errors     Exit::Input.
    explicit Input(const std::string &name);
    ~Input();
    Input(const Input &) = delete;
    Input &operator=(const Input &) = delete;

    /// As reports name it.
    const std::string &name() const { return m_name; }

    /// What one read gives, at most `size` bytes and 0 only at the end.
    std::size_t read(char *buffer, std::size_t size);

    struct stat status() const;

private:
    std::string m_name;
    int m_descriptor;
};
