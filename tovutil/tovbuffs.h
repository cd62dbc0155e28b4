/// A stream buffer that collects what is written in one growing block, which is read in place.
///
///     TovFastStrStreambuf buffer;
///     std::ostream os(&buffer);
///     os << "text " << 42 << '\0';
///     use(buffer.getBuffer());
///
/// Ownership  The block belongs to the buffer. Its address changes when it grows.
/// Units      The block has 128 bytes at first and doubles; it never shrinks. No NUL is added: a caller
///            who wants one inserts it.
/// Errors     The out-of-memory TovError when the block can't grow, TOVRC_INTERNAL_ERROR when it would
///            reach 4 GiB; what was written stays. A stream turns an exception of its buffer into its
///            badbit unless its exceptions() say otherwise.
/// Threads    One thread at a time.
/// Cost       A growth copies what was written; between two of them nothing here is called.
#pragma once

#include <tovutil/tovexport.h>

#include <cstdint>
#include <streambuf>

class TOV_EXPORT TovFastStrStreambuf : public std::streambuf {
public:
    TovFastStrStreambuf() = default;
    TovFastStrStreambuf(const TovFastStrStreambuf &) = delete;
    TovFastStrStreambuf &operator=(const TovFastStrStreambuf &) = delete;
    ~TovFastStrStreambuf() override;

    /// The start of the block, valid until it grows; null if nothing was ever written.
    const char *getBuffer() const;

protected:
    int_type underflow() override; // always the end: nothing is read through the stream
    int_type overflow(int_type c) override;
    int sync() override; // nothing to do: the characters are in place

private:
    void grow();
    const char *clearedBlock() const;

    char *m_data = nullptr;
    std::uint32_t m_length = 0; // of the block, not of what was written
};
