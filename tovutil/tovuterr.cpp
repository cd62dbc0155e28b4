// Messages with inserts, and return codes.
#include <tovutil/tovuterr.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>

// Messages ------------------------------------------------------------------------------------------

namespace {

bool skip(const char *&at, char wanted) {
    if (*at != wanted)
        return false;
    ++at;
    return true;
}

// Stops on the digit that would make the value smaller; one that wraps it to a larger value is taken. What
// stands behind a number that is too large depends on it.
std::uint32_t readNumber(const char *&at) {
    std::uint32_t number = 0;
    for (; *at >= '0' && *at <= '9'; ++at) {
        const std::uint32_t next = number * 10 + static_cast<std::uint32_t>(*at - '0');
        if (next < number)
            break;
        number = next;
    }
    return number;
}

// Number 0 becomes an index that no array has.
std::size_t readIndex(const char *&at, std::size_t &unnumbered) {
    if (!skip(at, '('))
        return unnumbered++;
    const std::size_t number = readNumber(at);
    return skip(at, ')') ? number - 1 : number;
}

std::size_t readWidth(const char *&at) { return skip(at, '.') ? readNumber(at) : 512; }

// Collects a message on the stack, as far as it fits: the string that will be the result serves the inserts
// until then, so that the usual message takes one allocation.
class Collector {
public:
    // Takes plain text up to a "%" or the end, and gives where that is.
    const char *appendPlain(const char *at) {
        for (;;) {
            std::size_t length = m_length; // in a register: a member would be written for each byte
            for (; *at != '%' && *at != '\0' && length < sizeof m_bytes; ++at)
                m_bytes[length++] = *at;
            m_length = length;
            if (*at == '%' || *at == '\0')
                return at;
            flush();
        }
    }

    void append(std::string_view piece) {
        if (piece.size() <= sizeof m_bytes - m_length) {
            m_length += piece.copy(m_bytes + m_length, piece.size());
        } else {
            flush();
            m_front += piece;
        }
    }

    void appendCut(std::string_view text, std::size_t width) {
        constexpr std::string_view dots = "...";
        if (text.size() <= width) {
            append(text);
        } else {
            append(text.substr(0, width - std::min(width, dots.size())));
            append(dots.substr(0, width));
        }
    }

    void moveTo(TovString &text) {
        if (m_front.empty()) {
            text.assign(m_bytes, m_length);
        } else {
            flush();
            text.swap(m_front);
        }
    }

private:
    void flush() {
        m_front.append(m_bytes, m_length);
        m_length = 0;
    }

    TovString m_front; // what stood here before
    char m_bytes[512];
    std::size_t m_length = 0;
};

std::size_t countOf(const TovInsert *const *inserts) {
    std::size_t count = 0;
    while (inserts[count])
        ++count;
    return count;
}

template <class... Insert>
TovString substAll(const char *format, const Insert &...inserts) {
    const TovInsert *const all[] = {&inserts..., nullptr};
    return TovInsert::subst(format, all);
}

} // namespace

TovInsert::~TovInsert() = default;

TovString TovInsert::subst(const char *format, const TovInsert &a) { return substAll(format, a); }
TovString TovInsert::subst(const char *format, const TovInsert &a, const TovInsert &b) {
    return substAll(format, a, b);
}
TovString TovInsert::subst(const char *format, const TovInsert &a, const TovInsert &b, const TovInsert &c) {
    return substAll(format, a, b, c);
}
TovString TovInsert::subst(const char *format, const TovInsert &a, const TovInsert &b, const TovInsert &c,
                           const TovInsert &d) {
    return substAll(format, a, b, c, d);
}
TovString TovInsert::subst(const char *format, const TovInsert &a, const TovInsert &b, const TovInsert &c,
                           const TovInsert &d, const TovInsert &e) {
    return substAll(format, a, b, c, d, e);
}
TovString TovInsert::subst(const char *format, const TovInsert &a, const TovInsert &b, const TovInsert &c,
                           const TovInsert &d, const TovInsert &e, const TovInsert &f) {
    return substAll(format, a, b, c, d, e, f);
}
TovString TovInsert::subst(const char *format, const TovInsert &a, const TovInsert &b, const TovInsert &c,
                           const TovInsert &d, const TovInsert &e, const TovInsert &f, const TovInsert &g) {
    return substAll(format, a, b, c, d, e, f, g);
}
TovString TovInsert::subst(const char *format, const TovInsert &a, const TovInsert &b, const TovInsert &c,
                           const TovInsert &d, const TovInsert &e, const TovInsert &f, const TovInsert &g,
                           const TovInsert &h) {
    return substAll(format, a, b, c, d, e, f, g, h);
}

TovString TovInsert::subst(const char *format, const TovInsert *const *inserts) {
    const std::size_t count = countOf(inserts);
    std::size_t unnumbered = 0;
    Collector message;
    TovString text; // of each insert, and in the end that of the message
    text.reserve(128);
    for (const char *at = message.appendPlain(format); *at != '\0'; at = message.appendPlain(at)) {
        if (skip(++at, '%')) {
            message.append("%");
            continue;
        }
        const std::size_t index = readIndex(at, unnumbered);
        const std::size_t width = readWidth(at);
        if (*at == 's' && index < count) {
            text.clear();
            inserts[index]->appendTo(text);
            message.appendCut(text, width);
        }
        if (*at != '\0')
            ++at;
    }
    message.moveTo(text);
    return text;
}

// Return codes --------------------------------------------------------------------------------------

// Callers that were built with it read and write the fields themselves.
static_assert(offsetof(TovRc, m_rc) == 0 && offsetof(TovRc, m_ownsMsg) == 4 && offsetof(TovRc, m_msg) == 8 &&
              offsetof(TovRc, m_error) == offsetof(TovRc, m_msg) + sizeof(void *));

void TovRc::setErrorObj(const TovError &error) {
    std::unique_ptr<TovError> copy(error.clone());
    const char *msg = copy->getErrorMessage(); // composing may raise
    reset();
    m_error = copy.release();
    m_rc = m_error->getReturnCode();
    m_msg = msg;
}

void TovRc::setMsg(std::uint32_t rc, const char *msg) {
    const char *source = msg ? msg : "";
    const std::size_t size = std::strlen(source) + 1;
    const void *copy = std::memcpy(::operator new(size), source, size);
    reset();
    m_rc = rc;
    m_msg = static_cast<const char *>(copy);
    m_ownsMsg = 1;
}
