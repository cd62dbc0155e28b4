/// Where the converted text goes.
///
/// A file is written beside its name and takes the name only in commit(), so that a job which fails or is
/// interrupted leaves the old file alone and nothing else behind. Mode, owner and group of an old file stay,
/// as far as the user may set them, and symbolic links are followed, to a missing file, too. What is no plain
/// file, such as a device or a FIFO, is written directly.
#pragma once

#include <string>
#include <string_view>

#include <sys/stat.h>

class Output {
public:
    /// An empty name and "-" mean standard output.
    ///
    /// Errors     Here and below: Exit::DiskFull, Exit::ClosedPipe, Exit::Output for all else.
    explicit Output(const std::string &name);
    ~Output();
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;

    void write(std::string_view bytes);

    /// Whether bytes go into the very file that `input` describes while it is being read.
    bool overwrites(const struct stat &input) const;

    bool isTerminal() const;

    /// Brings all to the disk and gives the file its name.
    void commit();

private:
    void openBeside(mode_t mode);
    [[noreturn]] void fail(int error) const;

    std::string m_label;     // as reports name it
    std::string m_path;      // empty: written directly
    std::string m_temporary; // empty: none is there
    int m_descriptor = -1;
};

/// Arranges that signals which end the program remove the temporary file before, and that a closed pipe and a
/// file above the limit for its size are errors of write() and no signals.
void catchSignals();
