/// The one lock around every call of ICU that may take a lock of ICU's own: opening and closing a
/// converter, and all that reads the alias table.
///
/// ICU's locks are not known to fork: a child made while another thread holds one would wait for
/// ever. This lock is held across every fork, so that no thread is inside such a call then.
/// Conversion with an open converter and case mapping take no lock in ICU and run without this one.
#pragma once

namespace zpt {

class IcuLock {
public:
    IcuLock() noexcept;
    ~IcuLock();
    IcuLock(const IcuLock &) = delete;
    IcuLock &operator=(const IcuLock &) = delete;
};

} // namespace zpt
