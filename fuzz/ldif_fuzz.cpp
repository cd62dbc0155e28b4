// Any bytes as LDIF text: what is loaded does not depend on the pieces in which it arrives, and whatever is
// counted was given.
#include <examples/dirload/loader.h>
#include <tovutil/tovutf8.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

void check(bool holds) {
    if (!holds)
        std::abort();
}

class Text : public ByteSource {
public:
    Text(std::string_view text, std::size_t piece) : m_rest(text), m_piece(piece) {}
    std::size_t read(char *buffer, std::size_t size) override {
        const std::size_t count = m_rest.copy(buffer, size < m_piece ? size : m_piece);
        m_rest.remove_prefix(count);
        return count;
    }

private:
    std::string_view m_rest;
    std::size_t m_piece;
};

// Everything that a loader gives, in one text.
struct Log : LoadSink {
    void entry(const Entry &entry) override {
        text.append(u"E").append(entry.dn);
        for (const Attribute &attribute : entry.attributes)
            text.append(u"|").append(attribute.name.view()).append(u"=").append(attribute.value.view());
        ++entries;
    }
    void problem(const TovErrorFull &error) override {
        const TovString report = error.getErrString() + error.getSecondary()->getErrorMessage();
        text.append(report.begin(), report.end());
        ++problems;
    }

    TovUString text;
    std::uint64_t entries = 0;
    std::uint64_t problems = 0;
};

TovUString load(std::string_view bytes, std::size_t piece) {
    constexpr std::size_t longestLine = 300;
    Log log;
    Loader loader(log, nullptr);
    Text source(bytes, piece);
    loader.load(source, "file", longestLine);
    const Totals totals = loader.totals();
    std::uint64_t errors = 0;
    for (const std::uint64_t count : totals.errors)
        errors += count;
    check(totals.entries == log.entries && errors == log.problems);
    return log.text;
}

// A name in its normal form is its own normal form.
void tryName(std::string_view bytes) {
    try {
        const TovUString normal = normalDn(bytes);
        check(normalDn(tovToLdapString(normal)) == normal);
    } catch (const TovErrorFull &) {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    check(load(bytes, 100000) == load(bytes, 1));
    tryName(bytes.substr(0, bytes.find('\n')));
    return 0;
}
