// Any bytes as UTF-8 and as UTF-16, by every kernel that the processor has, against the scalar code.
#include <tovutil/tovutf8k.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

using tovdetail::Utf16To8;
using tovdetail::Utf8To16;
using tovdetail::UtfRun;

void check(bool holds) {
    if (!holds)
        std::abort();
}

template <class S, class D>
struct Conversion {
    ConversionResult result;
    std::size_t taken;
    std::size_t written;
    std::unique_ptr<D[]> target; // exactly the room that was given, so that a sanitizer sees its end
};

template <class S, class D, class Convert>
Conversion<S, D> run(const S *source, std::size_t length, std::size_t room, Convert convert) {
    Conversion<S, D> done{ok, 0, 0, std::make_unique<D[]>(room)};
    UtfRun<S, D> run{source, source + length, done.target.get(), done.target.get() + room};
    done.result = convert(run);
    done.taken = static_cast<std::size_t>(run.source - source);
    done.written = static_cast<std::size_t>(run.target - done.target.get());
    return done;
}

template <class S, class D>
void compare(const Conversion<S, D> &one, const Conversion<S, D> &other, std::size_t room) {
    check(one.result == other.result && one.taken == other.taken && one.written == other.written);
    const std::size_t count = one.result == targetExhausted ? room : one.written;
    check(std::memcmp(one.target.get(), other.target.get(), count * sizeof(D)) == 0);
}

void tryUtf8(const unsigned char *source, std::size_t length, std::size_t room) {
    const auto scalar = run<unsigned char, TovUChar>(
        source, length, room, [](Utf8To16 &run) { return tovdetail::utf8To16Scalar(run, run.sourceEnd); });
    for (const auto &kernel : tovdetail::utfKernels()) {
        if (kernel.usable())
            compare(scalar,
                    run<unsigned char, TovUChar>(
                        source, length, room,
                        [&](Utf8To16 &run) { return tovdetail::utf8To16By(kernel.to16, run); }),
                    room);
    }
}

void tryUtf16(const TovUChar *source, std::size_t length, std::size_t room) {
    const auto scalar = run<TovUChar, unsigned char>(
        source, length, room, [](Utf16To8 &run) { return tovdetail::utf16To8Scalar(run, run.sourceEnd); });
    for (const auto &kernel : tovdetail::utfKernels()) {
        if (kernel.usable())
            compare(scalar,
                    run<TovUChar, unsigned char>(
                        source, length, room,
                        [&](Utf16To8 &run) { return tovdetail::utf16To8By(kernel.to8, run); }),
                    room);
    }
}

// The string functions give what the scalar code gives with enough room.
void tryStrings(const unsigned char *source, std::size_t length) {
    const auto scalar = run<unsigned char, TovUChar>(
        source, length, length, [](Utf8To16 &run) { return tovdetail::utf8To16Scalar(run, run.sourceEnd); });
    TovUString units;
    const bool whole =
        tovUtf8ToUtf16(reinterpret_cast<const char *>(source), static_cast<std::uint32_t>(length), units);
    check(whole == (scalar.result == ok));
    check(units == std::u16string_view(scalar.target.get(), whole ? scalar.written : 0));
}

} // namespace

// The first two bytes choose the room: up to the worst case, which every second input gets in full.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size < 2)
        return 0;
    const std::size_t length = size - 2;
    const auto bytes = std::make_unique<unsigned char[]>(length);
    std::memcpy(bytes.get(), data + 2, length);
    const auto units = std::make_unique<TovUChar[]>(length / 2);
    std::memcpy(units.get(), data + 2, length / 2 * 2);
    const std::size_t sixteenths = data[0] % 2 != 0 ? 16 : data[1] % 16;
    tryUtf8(bytes.get(), length, length * sixteenths / 16);
    tryUtf16(units.get(), length / 2, length / 2 * 3 * sixteenths / 16);
    tryStrings(bytes.get(), length);
    return 0;
}
