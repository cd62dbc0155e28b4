// Runs in a process of its own for every locale: the process's encoding is what it is at first use. The name
// of the case comes as the only argument, the locale through the environment.
#include <tovdom/tovnls/tovnls.h>
#include <tovutil/tovutil.h>

#include <cstdio>
#include <cstring>

namespace {

struct Case {
    const char *name;
    const TovUChar *units; ///< a text ...
    TovString bytes;       ///< ... and its form in the process's encoding
    const TovUChar *upper;
    bool utf8;
    bool ebcdic = false;
};

const Case s_cases[] = {
    {"utf8", u"i\u00FC\u20AC", "i\xC3\xBC\xE2\x82\xAC", u"I\u00DC\u20AC", true},
    {"latin1", u"i\u00FC", "i\xFC", u"I\u00DC", false},
    {"latin9", u"\u20AC", "\xA4", u"\u20AC", false},
    {"shiftjis", u"a\u3042", "a\x82\xA0", u"A\u3042", false},
    {"ebcdic", u"aA1", "\x81\xC1\xF1", u"AA1", false, true},
    {"turkish", u"i\u0131", "i\xC4\xB1", u"\u0130I", true},
};

int failures = 0;

void check(bool ok, const char *what) {
    if (!ok) {
        std::printf("failed: %s\n", what);
        ++failures;
    }
}

void run(const Case &c) {
    check(tovToMbcs(c.units, 0xFFFFFFFFU, true) == c.bytes, "to bytes");
    check(tovToUnicode(c.bytes.c_str(), 0xFFFFFFFFU, true) == c.units, "to units");
    check(tovToUpper(c.units) == c.upper, "to upper case");

    const TovNls process(nullptr);
    auto bytes = process.fromUnicode(c.units, -1);
    bytes.own();
    check(bytes.view() == c.bytes, "the converter without a name is the process's");
    check(process.getCodePageId() == tovGetCodePage(u"")->id, "row 1 is the process's code page");
    check((process.getCodePageId() == TovCodePage::Utf8) == c.utf8, "its id");
    // The table's fixed names are read in the process's encoding, so that they are there where it holds
    // ASCII.
    const TovCodePage *utf8 = tovGetCodePage(u"UTF-8");
    check(c.ebcdic ? !utf8 : utf8 && utf8->id == TovCodePage::Utf8, "UTF-8 has its fixed id");
}

} // namespace

int main(int argc, char **argv) {
    for (const Case &c : s_cases)
        if (argc == 2 && std::strcmp(argv[1], c.name) == 0) {
            run(c);
            return failures != 0;
        }
    std::puts("usage: processlocale_test CASE");
    return 2;
}
