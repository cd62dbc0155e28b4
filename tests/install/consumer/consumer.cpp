// Uses an installed copy of the library from a program whose own symbols are hidden: exceptions have to
// keep their type across the boundary, and buffers their owner.
#include <tovdom/tovnls/tovnls.h>
#include <tovutil/tovutil.h>

#include <cstdio>
#include <string_view>

namespace {

int s_failures = 0;

void expect(bool holds, const char *what) {
    if (holds)
        return;
    std::fprintf(stderr, "consumer: %s\n", what);
    ++s_failures;
}

const TovUChar *const c_wrongName = u"no-such-code-page";

template <class Caught>
void expectUnknownName(const char *what) {
    try {
        const TovNls converter(c_wrongName);
    } catch (const Caught &error) {
        expect(error.getReturnCode() == TOVRC_NLS_ERROR, "the return code of an unknown code page");
        expect(std::string_view(error.getErrorMessage()).find("no-such-code-page") != std::string_view::npos,
               "the composed message names the code page");
        return;
    } catch (...) {
    }
    expect(false, what);
}

// Thrown here, raised anew by a virtual function of the library, caught here.
class OwnError : public TovErrorFull {
public:
    TovError *clone() const override { return new OwnError(*this); }
    [[noreturn]] void raise() const override { throw OwnError(*this); }
};

void expectOwnError() {
    try {
        OwnError().logRaise();
    } catch (const OwnError &) {
        return;
    } catch (...) {
    }
    expect(false, "logRaise keeps a type of the program's own");
}

void expectConversion(const TovUChar *codePage, std::string_view bytes, std::u16string_view units) {
    const TovNls converter(codePage);
    auto toUnits = converter.toUnicode(bytes.data(), static_cast<std::int32_t>(bytes.size()));
    toUnits.own();
    expect(toUnits.view() == units, "bytes to 16-bit units");
    auto toBytes = converter.fromUnicode(units.data(), static_cast<std::int32_t>(units.size()));
    toBytes.own();
    expect(toBytes.view() == bytes, "16-bit units to bytes");
}

} // namespace

int main() {
    expectUnknownName<TovErrorFull>("an unknown code page is caught as TovErrorFull");
    expectUnknownName<TovError>("an unknown code page is caught as TovError");
    expectOwnError();
    expectConversion(u"utf-8",
                     "Gr\xC3\xBC\xC3\x9F"
                     "e \xF0\x9F\x99\x82",
                     u"Gr\u00FC\u00DFe \U0001F642");
    expectConversion(u"windows-1252",
                     "Gr\xFC\xDF"
                     "e \x80",
                     u"Gr\u00FC\u00DFe \u20AC");
    return s_failures == 0 ? 0 : 1;
}
