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

const char *percentOrEnd(const char *at, const char *end) {
    const void *percent = std::memchr(at, '%', static_cast<std::size_t>(end - at));
    return percent ? static_cast<const char *>(percent) : end;
}

void appendCut(TovString &message, std::string_view text, std::size_t width) {
    constexpr std::string_view dots = "...";
    if (text.size() <= width)
        message += text;
    else
        message.append(text, 0, width - std::min(width, dots.size())).append(dots, 0, width);
}

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
    constexpr std::size_t usualLength = 32; // of an insert
    const std::size_t count = countOf(inserts);
    const char *const end = format + std::strlen(format);
    TovString message;
    message.reserve(static_cast<std::size_t>(end - format) + usualLength * count);
    TovString text; // one for all inserts, because it keeps its room
    std::size_t unnumbered = 0;
    const char *run = format; // plain text begins here
    const char *at = format;
    for (;;) {
        at = percentOrEnd(at, end);
        message.append(run, at);
        if (at == end)
            return message;
        run = ++at;
        if (skip(at, '%')) // which is where the run begins
            continue;
        const std::size_t index = readIndex(at, unnumbered);
        const std::size_t width = readWidth(at);
        if (at == end)
            return message;
        if (*at == 's' && index < count) {
            text.clear();
            inserts[index]->appendTo(text);
            appendCut(message, text, width);
        }
        run = ++at;
    }
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
