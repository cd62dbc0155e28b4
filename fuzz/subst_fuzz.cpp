// Any bytes as the format of a message, held against a model that is as slow as it is simple.
#include <tovutil/tovuterr.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace {

struct Text : TovInsert {
    void appendTo(TovString &text) const override { text += bytes; }
    std::string bytes;
};

// Takes the format apart from its front. An end is a NUL that nothing takes.
class Model {
public:
    Model(std::string_view format, const std::array<Text, 8> &inserts, std::size_t count)
        : m_rest(format), m_inserts(inserts), m_count(count) {}

    std::string message() {
        while (!m_rest.empty()) {
            if (m_rest.starts_with("%%"))
                m_message += '%', m_rest.remove_prefix(2);
            else if (m_rest[0] == '%')
                placeholder();
            else
                m_message += take();
        }
        return m_message;
    }

private:
    char front() const { return m_rest.empty() ? '\0' : m_rest[0]; }

    char take() {
        const char taken = front();
        m_rest.remove_prefix(m_rest.empty() ? 0 : 1);
        return taken;
    }

    // In 64 bits, so that a product can be compared before it loses its upper half.
    std::uint64_t number() {
        std::uint64_t value = 0;
        while (std::string_view("0123456789").find(front()) != std::string_view::npos) {
            const std::uint64_t wrapped = (value * 10 + std::uint64_t(front() - '0')) % (1ULL << 32);
            if (wrapped < value)
                break;
            value = wrapped;
            take();
        }
        return value;
    }

    void placeholder() {
        take();
        std::uint64_t ordinal = 0; // counts from 1
        if (front() != '(') {
            ordinal = ++m_unnumbered;
        } else {
            take();
            ordinal = number();
            if (front() == ')')
                take();
            else
                ++ordinal;
        }
        std::uint64_t width = 512;
        if (front() == '.') {
            take();
            width = number();
        }
        if (take() == 's' && ordinal >= 1 && ordinal <= m_count)
            insert(m_inserts[ordinal - 1].bytes, width);
    }

    void insert(std::string text, std::uint64_t width) {
        if (text.size() > width) {
            text.resize(width);
            for (std::size_t i = 0; i < 3 && i < width; ++i)
                text[width - 1 - i] = '.';
        }
        m_message += text;
    }

    std::string_view m_rest;
    const std::array<Text, 8> &m_inserts;
    std::size_t m_count;
    std::uint64_t m_unnumbered = 0;
    std::string m_message;
};

} // namespace

// The first byte counts the inserts, the next ones tell how long they are, in steps of 4 bytes; then the
// format.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::size_t count = size == 0 ? 0 : data[0] % 9;
    if (size < 1 + count)
        return 0;
    std::array<Text, 8> inserts;
    const TovInsert *pointers[9] = {};
    for (std::size_t i = 0; i < count; ++i) {
        inserts[i].bytes.assign(data[1 + i] * std::size_t{4} + i, static_cast<char>('1' + i));
        pointers[i] = &inserts[i];
    }
    const std::string given(reinterpret_cast<const char *>(data) + 1 + count, size - 1 - count);
    const std::size_t length = std::strlen(given.c_str());
    const auto format =
        std::make_unique<char[]>(length + 1); // exactly that, so that a sanitizer sees its end
    std::memcpy(format.get(), given.data(), length);
    const TovString message = TovInsert::subst(format.get(), pointers);
    if (message != std::string_view(Model({format.get(), length}, inserts, count).message()))
        std::abort();
    return 0;
}
