// The stream buffer. Its put area is the free end of the block.
#include <tovutil/tovbuffs.h>

#include <tovutil/tovalloc.h>
#include <tovutil/tovtrcfn.h>

#include <cstring>

TOV_TRACE_FILE_AS("tovutil/tovbuffs", "TOVCMDUT", 0x40000000);

TovFastStrStreambuf::~TovFastStrStreambuf() {
    if (m_data)
        TovAllocator::deallocate(m_data, m_length);
}

TovFastStrStreambuf::int_type TovFastStrStreambuf::underflow() { return traits_type::eof(); }

int TovFastStrStreambuf::sync() { return 0; }

TovFastStrStreambuf::int_type TovFastStrStreambuf::overflow(int_type c) {
    TOV_TRACE_ENTER("TovFastStrStreambuf::overflow", TOV_VALUE(c));
    if (c == traits_type::eof()) {
        TOV_TRACE_LEAVE();
        return 0;
    }
    grow();
    sputc(traits_type::to_char_type(c));
    TOV_TRACE_DETAIL(TOV_VALUE(m_length));
    TOV_TRACE_LEAVE();
    return c;
}

void TovFastStrStreambuf::grow() {
    const std::size_t written = m_data ? static_cast<std::size_t>(pptr() - m_data) : 0;
    const std::uint32_t length = m_length == 0 ? 128 : 2 * m_length;
    if (length == 0)
        tovCheck("tovutil/tovbuffs", __LINE__, "Internal error: m_length < 0x80000000",
                 TOV_CODE(TOVRC_INTERNAL_ERROR));
    m_data = static_cast<char *>(TovAllocator::reallocate(m_data, m_length, length));
    m_length = length;
    const auto setPutArea = [&] { setp(m_data + written, m_data + m_length); };
    setPutArea(); // the former one is gone, also for a setbuf that raises
    setbuf(m_data, static_cast<std::streamsize>(m_length)); // for derived classes; the base does nothing
    setPutArea();
}

const char *TovFastStrStreambuf::getBuffer() const {
    TOV_TRACE_ENTER("TovFastStrStreambuf::getBuffer");
    TOV_TRACE_DETAIL_DUMP(clearedBlock(), m_length, "data");
    TOV_TRACE_LEAVE();
    return m_data;
}

// A trace shows the whole block, and of what was not written yet it must not show stale memory.
const char *TovFastStrStreambuf::clearedBlock() const {
    if (m_data)
        std::memset(pptr(), 0, static_cast<std::size_t>(epptr() - pptr()));
    return m_data;
}
