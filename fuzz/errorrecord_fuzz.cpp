// Any bytes as the byte record of an error. What comes of it, also when the bytes end early, must be an error
// that can be read, copied, raised and written, and whose record is read back as the same error.
#include <tovutil/toverrio.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace {

void check(bool holds) {
    if (!holds)
        std::abort();
}

struct EndOfSource {};

struct Source : TovDataInput::Stream {
    explicit Source(std::string_view all) : rest(all) {}
    void read(char *bytes, unsigned length) override {
        check(length != 0 && length <= 64 * 1024);
        if (length > rest.size())
            throw EndOfSource();
        rest.copy(bytes, length);
        rest.remove_prefix(length);
    }
    std::string_view rest;
};

struct Sink : TovDataOutput {
    void write(const char *data, unsigned length) override { bytes.append(data, length); }
    std::string bytes;
};

std::string record(const TovErrorFull &error) {
    Sink sink;
    sink << error;
    return sink.bytes;
}

void checkUsable(const TovErrorFull &error) {
    const std::string bytes = record(error);
    Source source(bytes);
    TovDataInput in(source);
    TovErrorFull again;
    in >> again;
    check(source.rest.empty());
    check(record(again) == bytes);
    check(record(TovErrorFull(error)) == bytes);
    try {
        error.raise();
    } catch (const TovErrorFull &raised) {
        check(std::strcmp(raised.getErrorMessage(), error.getErrorMessage()) == 0);
        check(std::strcmp(raised.getLocation(), error.getLocation()) == 0);
    }
}

} // namespace

// One record behind the other, into one error.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    Source source(std::string_view(reinterpret_cast<const char *>(data), size));
    TovDataInput in(source);
    TovErrorFull error;
    try {
        while (!source.rest.empty())
            in >> error;
    } catch (const EndOfSource &) {
    }
    checkUsable(error);
    return 0;
}
