// Memory that ends where it ends: an access beside it is a fault, also one within a vector register.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <new>

namespace tovtest {

/// Room for at least `count` elements between two pages that can't be touched.
template <class T>
class Guarded {
public:
    explicit Guarded(std::size_t count) {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        m_size = (count * sizeof(T) + page - 1) / page * page;
        void *all = mmap(nullptr, m_size + 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (all == MAP_FAILED)
            throw std::bad_alloc();
        m_all = static_cast<char *>(all);
        m_begin = m_all + page;
        if (mprotect(m_begin, m_size, PROT_READ | PROT_WRITE) != 0)
            throw std::bad_alloc();
    }
    ~Guarded() { munmap(m_all, m_size + 2 * static_cast<std::size_t>(m_begin - m_all)); }
    Guarded(const Guarded &) = delete;
    Guarded &operator=(const Guarded &) = delete;

    T *begin() const { return reinterpret_cast<T *>(m_begin); }
    T *end() const { return reinterpret_cast<T *>(m_begin + m_size); }

private:
    char *m_all;
    char *m_begin;
    std::size_t m_size;
};

} // namespace tovtest
