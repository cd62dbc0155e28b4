// The output file: opened at the first event, shared without a lock, begun anew when it is full.
#pragma once

#include <services/hvd/config.h>
#include <services/hvd/quiet.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <sys/types.h>

namespace hvd {

constexpr unsigned fileSlots = 2; ///< the present file, and one that its last writers still hold

/// What a file is known by. A program may close our descriptor and get the same number for a file of
/// its own.
struct FileIdentity {
    dev_t device;
    ino_t inode;

    bool operator==(const FileIdentity &) const = default;
};

/// An open output file. Its writers are counted, so that the last one out closes it, and nobody waits.
struct OutputFile {
    std::atomic<std::uint32_t> state; ///< 0: unused; else claimed or open, and the count of writers
    std::atomic<bool> rotates;        ///< begun anew when it is full
    int descriptor;
    bool owned; ///< opened here, not the program's own standard stream
    bool regular;
    bool ofProcess;       ///< named after the process
    std::uint32_t serial; ///< another one for each file, above 0
    FileIdentity identity;
};

/// One event's hold on the output file. False when there is none: it can't be opened, the program has
/// closed it, or the trace is complete.
///
/// Errors     Reported on standard error, the first one of the process alone.
class Output {
public:
    explicit Output(const Quiet &quiet) noexcept;
    ~Output();
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;

    explicit operator bool() const noexcept { return m_file != nullptr; }
    int descriptor() const noexcept { return m_file->descriptor; }
    /// What goes out in one piece: any size in a file, and in a pipe what the system writes whole.
    std::size_t atOnce() const noexcept;
    unsigned slot() const noexcept;
    std::uint32_t serial() const noexcept { return m_file->serial; }
    /// Reports a failed write.
    void failed(int error) const noexcept;

private:
    const Quiet &m_quiet;
    OutputFile *m_file;
};

/// Whether there will be no more output, so that nothing need be formatted.
bool outputIsClosed() noexcept;

/// Ends the output, and waits for a moment for those who are writing.
void closeOutput(const Quiet &quiet) noexcept;

/// The process that opened the output.
pid_t outputProcess() noexcept;

/// Makes the output of a forked child: a text file goes on being shared, a file of events gets a name
/// of its own.
void outputForked() noexcept;

} // namespace hvd
