/// Carries errors as byte records to a second process, which prints them on standard error.
#pragma once

#include <tovutil/tovutil.h>

#include <vector>

#include <sys/types.h>

class Courier {
public:
    /// Makes `pipeCount` pipes and the process that reads them. To be called before any thread is started.
    ///
    /// Errors     Failure, Exit::Output.
    explicit Courier(unsigned pipeCount);
    ~Courier() { finish(); }

    Courier(const Courier &) = delete;
    Courier &operator=(const Courier &) = delete;

    /// Sends an error with its secondary errors.
    ///
    /// Errors     Failure, Exit::Output; exhausted memory.
    /// Threads    Each pipe one thread at a time.
    void send(unsigned pipe, const TovErrorFull &error);

    /// Waits until all that was sent is printed; false when that has failed.
    bool finish();

private:
    std::vector<int> m_pipes;
    pid_t m_printer = -1;
};
