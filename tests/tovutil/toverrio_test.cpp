#include <support/failalloc.h>

#include <tovutil/toverrio.h>
#include <tovutil/tovutil.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

// Takes the bytes, and the length of each write.
struct Sink : TovDataOutput {
    void write(const char *data, unsigned length) override {
        bytes.append(data, length);
        writes.push_back(length);
    }
    std::string bytes;
    std::vector<unsigned> writes;
};

// Gives bytes until there are no more; remembers the longest read.
struct Source : TovDataInput::Stream {
    explicit Source(std::string_view all) : rest(all) {}
    void read(char *data, unsigned length) override {
        EXPECT_NE(0U, length);
        longest = std::max(longest, length);
        if (length > rest.size())
            throw std::runtime_error("end of source");
        rest.copy(data, length);
        rest.remove_prefix(length);
    }
    std::string_view rest;
    unsigned longest = 0;
};

std::string word(std::uint32_t value) {
    return std::string(reinterpret_cast<const char *>(&value), sizeof value);
}

std::string counted(const std::string &text) { return word(static_cast<std::uint32_t>(text.size())) + text; }

std::string fixed(std::string text, std::size_t size) {
    text.resize(size);
    return text;
}

// The record of an error with these parts, as it is told, and of the parts that a test changes.
struct Record {
    std::string location, message;
    std::string code = fixed("CODE", 48);
    std::string errorText = "free text";
    std::string composedMessage, composedLocation;

    std::string bytes() const {
        return word(5) + word(6) + word(7) + word(8) + word(2) + word(8) + counted(location) +
               counted(message) + code + fixed("LAYER", 48) + fixed("REASON", 48) + fixed("from", 128) +
               fixed("version", 64) + fixed("file.cpp", 16) + fixed("build", 64) + word(9) +
               counted(errorText) + counted(composedMessage) + counted(composedLocation);
    }
};

const Record c_short{
    .location = "location", .message = "message", .composedMessage = "m", .composedLocation = "l"};

const char *const c_message = "CODE LAYER(REASON) Pos(6) ErrorType(ERROR),\nfree text";
const char *const c_location = "From (from), Line(9) in module (file.cpp) Build(build) Version(version)";

TovErrorFull someError(const TovError *secondary = nullptr) {
    return TovErrorFull(5, "CODE", 7, "LAYER", 8, "REASON", 6, TovError::Error, 9, "from", "version",
                        "dir/file.cpp", "build", "free text", secondary);
}

std::string record(const TovErrorFull &error) {
    Sink sink;
    sink << error;
    return sink.bytes;
}

void readInto(TovErrorFull &error, std::string_view bytes) {
    Source source(bytes);
    TovDataInput in(source);
    in >> error;
    EXPECT_TRUE(source.rest.empty());
}

std::string shown(const TovErrorFull &error) {
    return std::to_string(error.getReturnCode()) + " " + std::to_string(error.getPosition()) + " " +
           std::to_string(error.getFailedLayer()) + " " + std::to_string(error.getReason()) + " " +
           std::to_string(error.getErrorType()) + " " + error.getErrorMessage() + " " + error.getLocation() +
           " " + error.getErrString().c_str();
}

TEST(ErrorRecord, IsByteExact) {
    const TovErrorFull error = someError();
    const Record want{.location = c_location,
                      .message = c_message,
                      .composedMessage = c_message,
                      .composedLocation = c_location};
    Sink sink;
    EXPECT_EQ(&sink, &(sink << error));
    EXPECT_EQ(want.bytes(), sink.bytes);
    const auto messageLength = static_cast<unsigned>(std::strlen(c_message));
    const auto locationLength = static_cast<unsigned>(std::strlen(c_location));
    EXPECT_EQ(
        (std::vector<unsigned>{4,  4,  4,  4, 4, 4, 4, locationLength, 4, messageLength, 48, 48, 48, 128,
                               64, 16, 64, 4, 4, 9, 4, messageLength,  4, locationLength}),
        sink.writes);
}

TEST(ErrorRecord, TakesTheMessageFromTheVirtualAccessors) {
    struct Derived : TovErrorFull {
        const char *getLocation() const override { return nullptr; }
        const char *getErrorMessage() const override { return "own message"; }
    };
    const std::string bytes = record(Derived());
    EXPECT_EQ(word(0) + counted("own message"), bytes.substr(24, 4 + 4 + 11)) << "a null text has length 0";
    EXPECT_TRUE(record(TovErrorFull()).ends_with(bytes.substr(24 + 4 + 4 + 11))) << "all else is as it was";
}

TEST(ErrorRecord, OfADefaultErrorHasItsComposedTexts) {
    const std::string message = "ReturnCode(0) Layer(0) Reason(0) Pos(0) ErrorType(API),\n";
    const std::string location = "From (), Line(0) in module () Build() Version()";
    EXPECT_EQ(word(0) + word(0) + word(0) + word(0) + word(8) + word(0) + counted(location) +
                  counted(message) + std::string(48 + 48 + 48 + 128 + 64 + 16 + 64, '\0') + word(0) +
                  word(0) + counted(message) + counted(location),
              record(TovErrorFull()));
}

TEST(ErrorRecord, SaysThatACompositionFoundNoMemory) {
    TovErrorFull error(1, "", 0, "", 0, "", 0, TovError::Api, 0, "", "", "", "", TovString(2000, 'x'),
                       nullptr);
    for (int nth = 1; error.hasMods(); ++nth) { // the failure that the composition forgives
        const tovtest::FailingAllocation failing(nth);
        try {
            error.checkMods();
        } catch (const TovError &) {
        }
        if (!failing.fired())
            FAIL() << "no failure was forgiven";
    }
    Sink sink;
    sink << error;
    EXPECT_EQ(word(0) + counted("Can't create error message: Out of memory."),
              sink.bytes.substr(24, 4 + 4 + 42));
    EXPECT_EQ(word(0) + word(0), sink.bytes.substr(sink.bytes.size() - 8));
}

TEST(ErrorRecord, CarriesNoStaleBytes) {
    TovErrorFull error(1, "a long name of the code", 1, "a long name", 1, "a long name", 1, TovError::Api, 1,
                       "a long name", "a long name", "a/longname.cpp", "a long name", "text", nullptr);
    error.setFile("");
    error = someError();
    error.setFile("");
    EXPECT_NE(std::string::npos, record(error).find(fixed("version", 64) + fixed("", 16) + "build"));
    EXPECT_EQ(std::string::npos, record(error).find("long"));
}

TEST(ErrorRecord, IsReadBack) {
    const TovErrorFull secondary(1, "S", 1, "", 0, "", 0, TovError::Api, 0, "", "", "", "", "secondary",
                                 nullptr);
    const TovErrorFull errors[] = {
        someError(),
        someError(&secondary),
        TovErrorFull(),
        TovErrorFull(0xFFFFFFFF, "", 0xFFFFFFFF, "", 0xFFFFFFFF, "", 0xFFFFFFFF,
                     static_cast<TovError::ErrorType>(99), 0xFFFFFFFF, "", "", "", "", "", nullptr),
        TovErrorFull(21011, "C", 1, "", 0, "", 0, TovError::Api, 0, "", "", "", "", TovString("a\0b", 3),
                     nullptr),
        TovErrorFull(1, "C", 1, "", 0, "", 0, TovError::Api, 0, "", "", "", "", TovString(200000, 'x'),
                     nullptr),
    };
    std::string all;
    for (const TovErrorFull &error : errors)
        all += record(error);
    Source source(all);
    TovDataInput in(source);
    TovErrorFull target(1, std::string(47, 'c').c_str(), 1, std::string(47, 'l').c_str(), 1,
                        std::string(47, 'r').c_str(), 1, TovError::Critical, 1, std::string(127, 'f').c_str(),
                        std::string(63, 'v').c_str(), "a_longer_name.c", std::string(63, 'b').c_str(),
                        TovString(1000, 't'), &secondary);
    for (const TovErrorFull &error : errors) { // one record behind the other, into the same target
        EXPECT_EQ(&in, &(in >> target));
        EXPECT_EQ(shown(error), shown(target));
        EXPECT_EQ(error.getErrString(), target.getErrString());
        EXPECT_EQ(record(error), record(target));
        EXPECT_STREQ(secondary.getErrorMessage(), target.getSecondary()->getErrorMessage())
            << "the target's own secondary stays";
    }
    EXPECT_TRUE(source.rest.empty());
    EXPECT_EQ(64U * 1024, source.longest);

    TovErrorFull without;
    readInto(without, record(errors[1]));
    EXPECT_EQ(nullptr, without.getSecondary());
}

TEST(ErrorRecord, ComposesAnewWhatAStrangerClaims) {
    const Record stranger{.location = "claimed location",
                          .message = "claimed message",
                          .composedMessage = "other message",
                          .composedLocation = "other location"};
    TovErrorFull error;
    readInto(error, stranger.bytes());
    EXPECT_TRUE(error.hasMods());
    EXPECT_STREQ("claimed location", error.TovError::getLocation());
    EXPECT_STREQ("claimed message", error.TovError::getErrorMessage());
    EXPECT_STREQ(c_message, error.getErrorMessage());
    EXPECT_STREQ(c_location, error.getLocation());

    std::string other = stranger.bytes();
    other.replace(20, 4, word(77));
    readInto(error, other);
    EXPECT_EQ(77U, error.getReason()) << "the second of the two reasons holds";
}

TEST(ErrorRecord, CutsAFixedTextWithoutItsNul) {
    std::string bytes = Record{}.bytes();
    const std::size_t start = 24 + 4 + 4;
    const std::size_t sizes[] = {48, 48, 48, 128, 64, 16, 64};
    std::size_t at = start;
    char letter = 'a';
    for (const std::size_t size : sizes) {
        std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), size, letter++);
        at += size;
    }
    TovErrorFull error;
    readInto(error, bytes);
    const auto run = [](char c, std::size_t count) { return std::string(count, c); };
    EXPECT_EQ(run('a', 47) + " " + run('b', 47) + "(" + run('c', 47) +
                  ") Pos(6) ErrorType(ERROR),\nfree text",
              error.getErrorMessage());
    EXPECT_EQ("From (" + run('d', 127) + "), Line(9) in module (" + run('f', 15) + ") Build(" + run('g', 63) +
                  ") Version(" + run('e', 63) + ")",
              error.getLocation());

    bytes.replace(start, 8, std::string("XY\0stale", 8));
    readInto(error, bytes);
    EXPECT_NE(std::string::npos, record(error).find(fixed("XY", 48) + run('b', 47)))
        << "what follows a NUL is dropped";
}

TEST(ErrorRecord, LeavesAValidErrorWhereverTheSourceEnds) {
    const std::string bytes = c_short.bytes();
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        SCOPED_TRACE(length);
        TovErrorFull error;
        Source source(std::string_view(bytes).substr(0, length));
        TovDataInput in(source);
        EXPECT_THROW(in >> error, std::runtime_error);
        EXPECT_EQ(length >= 4 ? 5U : 0U, error.getReturnCode()) << "the fields read so far";
        const TovErrorFull copy(error);
        EXPECT_EQ(shown(error), shown(copy));
        EXPECT_EQ(record(error), record(copy));
        readInto(error, bytes);
        EXPECT_STREQ(c_message, error.getErrorMessage());
    }
}

TEST(ErrorRecord, TakesMemoryOnlyAsBytesArrive) {
    // A 4 GiB length word in each of the five counted texts of a short record.
    const std::string bytes = c_short.bytes();
    const std::size_t words[] = {24, 24 + 4 + 8, bytes.size() - 4 - 1 - 4 - 1 - 4 - 9,
                                 bytes.size() - 4 - 1 - 4 - 1, bytes.size() - 4 - 1};
    for (const std::size_t at : words) {
        for (const std::uint32_t length : {0xFFFFFFFFU, 0x80000000U, 0x7FFFFFFFU}) {
            std::string claimed = bytes;
            claimed.replace(at, 4, word(length));
            TovErrorFull error;
            Source source(claimed);
            TovDataInput in(source);
            EXPECT_THROW(in >> error, std::runtime_error);
            EXPECT_EQ(64U * 1024, source.longest);
            EXPECT_LT(error.getErrString().capacity(), 200000U);
        }
    }
}

TEST(TovStdOutputStream, PassesBytesOn) {
    std::ostringstream os;
    TovStdOutputStream out(os);
    TovOutputStream &sink = out;
    sink.write("a\0b", 3);
    sink.write("", 0);
    sink.write("c", 1);
    EXPECT_EQ(std::string("a\0bc", 4), os.str());
    os.setstate(std::ios::failbit);
    sink.write("d", 1);
    EXPECT_EQ(std::string("a\0bc", 4), os.str());
}

} // namespace
