#include <support/failalloc.h>
#include <support/random.h>
#include <support/traced.h>

#include <tovutil/tovbuffs.h>
#include <tovutil/tovutil.h>

#include <gtest/gtest.h>

#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

// The block's sizes, as the traced growths tell them.
Lines growths(const tovtest::TraceRecorder &recorder) {
    Lines sizes;
    for (const auto &event : recorder.events())
        sizes.push_back(event.text);
    return sizes;
}

// The bytes written, one after the other.
std::string counted(std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
        text += static_cast<char>('a' + i % 26);
    return text;
}

TEST(TovFastStrStreambuf, DoublesItsBlock) {
    const struct {
        std::size_t length;
        Lines want;
    } rows[] = {
        {0, {}},
        {1, {"Detail - m_length(128) "}},
        {128, {"Detail - m_length(128) "}},
        {129, {"Detail - m_length(128) ", "Detail - m_length(256) "}},
        {256, {"Detail - m_length(128) ", "Detail - m_length(256) "}},
        {257, {"Detail - m_length(128) ", "Detail - m_length(256) ", "Detail - m_length(512) "}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.length);
        const std::string text = counted(row.length);
        for (const bool atOnce : {false, true}) {
            const tovtest::TraceRecorder recorder("TovFastStrStreambuf::overflow=detail");
            TovFastStrStreambuf buffer;
            std::ostream os(&buffer);
            if (atOnce)
                os << text;
            else
                for (const char c : text)
                    os.put(c);
            EXPECT_EQ(row.want, growths(recorder));
            ASSERT_EQ(row.length == 0, buffer.getBuffer() == nullptr);
            if (row.length != 0) {
                EXPECT_EQ(text, std::string(buffer.getBuffer(), row.length));
            }
        }
    }
}

TEST(TovFastStrStreambuf, KeepsWhatWasWrittenInPiecesOfAnySize) {
    auto random = tovtest::generator();
    for (int round = 0; round < 50; ++round) {
        TovFastStrStreambuf buffer;
        std::ostream os(&buffer);
        std::string want;
        while (want.size() < 5000) {
            const std::string piece(random() % 300, static_cast<char>(random()));
            os << piece << std::flush;
            want += piece;
            os.put('\xFF');
            want += '\xFF';
        }
        ASSERT_TRUE(os.good());
        ASSERT_EQ(want, std::string(buffer.getBuffer(), want.size()));
    }
}

TEST(TovFastStrStreambuf, IsNotReadThroughTheStream) {
    TovFastStrStreambuf buffer;
    std::ostream(&buffer) << "text";
    EXPECT_EQ(EOF, buffer.sgetc());
    EXPECT_EQ(EOF, buffer.sbumpc());
    EXPECT_EQ(0, buffer.pubsync());
}

struct Opened : TovFastStrStreambuf {
    using TovFastStrStreambuf::overflow;
    std::streambuf *setbuf(char *block, std::streamsize length) override {
        blocks.emplace_back(block, length);
        if (raises)
            throw std::runtime_error("setbuf");
        return this;
    }
    std::vector<std::pair<const char *, std::streamsize>> blocks;
    bool raises = false;
};

TEST(TovFastStrStreambuf, TellsADerivedClassItsBlocks) {
    Opened buffer;
    std::ostream(&buffer) << counted(129);
    ASSERT_EQ(2U, buffer.blocks.size());
    EXPECT_EQ(128, buffer.blocks[0].second);
    EXPECT_EQ(256, buffer.blocks[1].second);
    EXPECT_EQ(buffer.getBuffer(), buffer.blocks[1].first);
}

TEST(TovFastStrStreambuf, WritesIntoItsNewBlockAfterADerivedClassRaises) {
    Opened buffer;
    std::ostream os(&buffer);
    os << counted(128);
    buffer.raises = true;
    EXPECT_THROW(buffer.overflow('x'), std::runtime_error);
    os << 'y';
    EXPECT_EQ(counted(128) + "y", std::string(buffer.getBuffer(), 129));
}

TEST(TovFastStrStreambuf, HasNothingToDoForTheEnd) {
    Opened buffer;
    const long before = tovtest::allocationCount();
    EXPECT_EQ(0, buffer.overflow(EOF));
    EXPECT_EQ(before, tovtest::allocationCount());
    EXPECT_EQ(nullptr, buffer.getBuffer());
    EXPECT_EQ(0xFF, buffer.overflow(0xFF)) << "a byte that is negative as a character";
    EXPECT_EQ('\xFF', *buffer.getBuffer());
}

TEST(TovFastStrStreambuf, KeepsAllWhenItCannotGrow) {
    TovFastStrStreambuf buffer;
    std::ostream os(&buffer);
    os.exceptions(std::ios::badbit);
    const std::string text = counted(256);
    os << text;
    const char *block = buffer.getBuffer();
    {
        const tovtest::FailingAllocation failing(1);
        EXPECT_THROW(os << 'x', TovError);
    }
    EXPECT_EQ(block, buffer.getBuffer());
    EXPECT_EQ(text, std::string(block, 256));
    os.clear();
    os << 'x';
    EXPECT_EQ(text + 'x', std::string(buffer.getBuffer(), 257));
}

TEST(TovFastStrStreambuf, GivesItsBlockBack) {
    const long before = tovtest::liveAllocations();
    {
        TovFastStrStreambuf unused, buffer;
        std::ostream(&buffer) << counted(1000);
    }
    EXPECT_EQ(before, tovtest::liveAllocations());
}

TEST(TovFastStrStreambuf, TracesUnderItsOwnUnit) {
    tovtest::TraceRecorder recorder("TOVCMDUT=all");
    TovFastStrStreambuf buffer;
    buffer.getBuffer();
    buffer.sputc('x');
    buffer.getBuffer();
    const std::string overflow = "TovFastStrStreambuf::overflow", get = "TovFastStrStreambuf::getBuffer";
    EXPECT_EQ((Lines{"> " + get, get + ": Args - ", get + ": Detail - data - ptr(NULL), size(0)", "< " + get,
                     "> " + overflow, overflow + ": Args - c(120) ", overflow + ": Detail - m_length(128) ",
                     "< " + overflow, "> " + get, get + ": Args - ", get + ": Detail - data", "< " + get}),
              recorder.lines());
    const auto events = recorder.events();
    ASSERT_EQ(12U, events.size());
    EXPECT_EQ('x' + std::string(127, '\0'), events[10].memory) << "without stale memory";
}

} // namespace
