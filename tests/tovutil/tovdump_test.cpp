#include <support/failalloc.h>
#include <support/random.h>
#include <support/traced.h>

#include <tovutil/tovdump.h>
#include <tovutil/toverrfl.h>

#include <gtest/gtest.h>

#include <cctype>
#include <clocale>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace tovdetail {
void writeDumpOffset(char *target, std::uint32_t offset);
}

namespace {

const std::string c_header = "           0 1 2 3  4 5 6 7   8 9 A B  C D E F    0123456789ABCDEF\n"
                             "          ------------------------------------    ----------------";

std::string dump(const std::string &bytes) {
    TovString text = "what was there before";
    tovDumpHex(text, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    return text.c_str();
}

// Byte by byte, with the C library's formatting.
std::string slowDump(const std::string &bytes) {
    std::string text = c_header;
    char piece[32];
    for (std::size_t start = 0; start < bytes.size(); start += 16) {
        std::snprintf(piece, sizeof piece, "\n%08zX: ", start);
        text += piece;
        std::string characters;
        for (std::size_t i = 0; i < 16; ++i) {
            const bool there = start + i < bytes.size();
            const auto byte = static_cast<unsigned char>(there ? bytes[start + i] : 0);
            std::snprintf(piece, sizeof piece, "%02X", byte);
            text += std::string(i == 8 ? 2 : i == 4 || i == 12, ' ') + (there ? piece : "  ");
            characters += !there ? ' ' : std::isprint(byte) ? static_cast<char>(byte) : '.';
        }
        text += "    " + characters + " ";
    }
    return text;
}

TEST(tovDumpHex, WritesAFixedTable) {
    EXPECT_EQ(c_header, dump(""));
    EXPECT_EQ(c_header + "\n00000000: 616263                                  abc              ",
              dump("abc"));
    EXPECT_EQ(c_header + "\n00000000: 0041FF                                  .A.              ",
              dump(std::string("\0A\xFF", 3)));
    EXPECT_EQ(c_header + "\n00000000: 30313233 34353637  38394142 43444546    0123456789ABCDEF " +
                  "\n00000010: 7E                                      ~                ",
              dump("0123456789ABCDEF~"));
    EXPECT_EQ(201U, dump(std::string(16, 'x')).size());
    EXPECT_EQ(269U, dump(std::string(17, 'x')).size());
}

TEST(tovDumpHex, AgreesWithTheSlowWayAtAllLengths) {
    auto random = tovtest::generator();
    for (std::size_t length = 0; length < 600; ++length) {
        std::string bytes(length, '\0');
        for (char &byte : bytes)
            byte = static_cast<char>(random());
        ASSERT_EQ(slowDump(bytes), dump(bytes)) << length;
    }
}

TEST(tovDumpHex, ShowsWhatTheLocaleCallsPrintable) {
    const std::string former = std::setlocale(LC_CTYPE, nullptr);
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte)
        bytes += static_cast<char>(byte);
    for (const char *locale : {"C", "de_DE.ISO-8859-1", "de_DE.iso88591", "de_DE"}) {
        if (!std::setlocale(LC_CTYPE, locale))
            continue;
        SCOPED_TRACE(locale);
        EXPECT_EQ(slowDump(bytes), dump(bytes)) << "by the table";
        EXPECT_EQ(slowDump(bytes.substr(192, 16)), dump(bytes.substr(192, 16))) << "byte by byte";
    }
    std::setlocale(LC_CTYPE, former.c_str());
}

TEST(tovDumpHex, WritesAllEightDigitsOfAnOffset) {
    const struct {
        std::uint32_t offset;
        const char *want;
    } rows[] = {
        {0, "00000000:"},          {0x10, "00000010:"},       {0x89ABCDEF, "89ABCDEF:"},
        {0x7FFFFFF0, "7FFFFFF0:"}, {0xFFFFFFF0, "FFFFFFF0:"},
    };
    for (const auto &row : rows) {
        char text[10] = {};
        tovdetail::writeDumpOffset(text, row.offset);
        EXPECT_STREQ(row.want, text);
    }
}

TEST(tovDumpHex, RefusesALengthThatIsNegativeAsASignedNumber) {
    for (const std::uint32_t length : {0x80000000U, 0x80000001U, 0xFFFFFFF0U, 0xFFFFFFFFU}) {
        TovString text = "before";
        EXPECT_THROW(tovDumpHex(text, "x", length), TovErrorFull);
        EXPECT_EQ("before", text);
        std::ostringstream os;
        EXPECT_THROW(tovDumpHex(os, "x", length), TovErrorFull);
        EXPECT_EQ("", os.str());
    }
}

TEST(tovDumpHex, TakesOneAllocationAndIsEmptyWithoutIt) {
    TovString text;
    const long before = tovtest::allocationCount();
    tovDumpHex(text, "0123456789", 10);
    EXPECT_EQ(before + 1, tovtest::allocationCount());
    const char *block = text.data();
    tovDumpHex(text, nullptr, 0);
    EXPECT_EQ(block, text.data()) << "a text that has room needs none";
    EXPECT_EQ(c_header.size(), text.size());

    const std::string bytes(1000, 'x');
    {
        const tovtest::FailingAllocation failing(1);
        EXPECT_THROW(tovDumpHex(text, bytes.data(), 1000), TovError);
    }
    EXPECT_EQ("", text);
}

TEST(tovDumpHex, GoesIntoAStreamAsItIs) {
    std::ostringstream os;
    os << "<";
    tovDumpHex(os, "abc", 3);
    os << ">";
    EXPECT_EQ("<" + dump("abc") + ">", os.str());
}

TEST(tovDumpHex, TracesBothForms) {
    const tovtest::TraceRecorder recorder("tovDumpHex=all");
    std::ostringstream os;
    tovDumpHex(os, "abc", 3);
    EXPECT_EQ((std::vector<std::string>{"> tovDumpHex", "tovDumpHex: Args - ", "> tovDumpHex",
                                        "tovDumpHex: Args - ", "< tovDumpHex", "< tovDumpHex"}),
              recorder.lines());
}

} // namespace
