// A hex dump of 64 KiB, 16 bytes a line with offset, digits and characters; and of a few lines, where what a
// call prepares must not show.
#include "bench.h"

#include <tovutil/tovdump.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <vector>

#ifdef TOV_BENCH_ABSL
#include <absl/strings/escaping.h>
#endif
#ifdef TOV_BENCH_BOOST
#include <boost/algorithm/hex.hpp>
#endif
#ifdef TOV_BENCH_QT
#include <QByteArray>
#endif
#ifdef TOV_BENCH_SPDLOG
#include <fmt/compile.h>
#include <fmt/format.h>
#include <spdlog/fmt/bin_to_hex.h>
#endif

namespace tovbench {

namespace {

constexpr std::size_t c_headerLength = 133;
constexpr std::size_t c_lineLength = 68;

std::string_view block(std::size_t size) {
    static const std::string made = [] {
        Lcg random(23);
        std::string bytes(64 << 10, '\0');
        for (char &byte : bytes)
            byte = static_cast<char>(random.below(256));
        return bytes;
    }();
    return std::string_view(made).substr(0, size);
}

const unsigned char *unsignedBytes(std::string_view bytes) {
    return reinterpret_cast<const unsigned char *>(bytes.data());
}

char shown(unsigned char byte) { return std::isprint(byte) ? static_cast<char>(byte) : '.'; }

// snprintf for each line.
std::string bySnprintf(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size() / 16 * c_lineLength);
    const unsigned char *p = unsignedBytes(bytes);
    for (std::size_t at = 0; at < bytes.size(); at += 16, p += 16) {
        char line[96], text[17];
        for (std::size_t i = 0; i < 16; ++i)
            text[i] = shown(p[i]);
        text[16] = 0;
        const int length = std::snprintf(
            line, sizeof line,
            "\n%08X: %02X%02X%02X%02X %02X%02X%02X%02X  %02X%02X%02X%02X %02X%02X%02X%02X    %s ",
            static_cast<unsigned>(at), p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7], p[8], p[9], p[10],
            p[11], p[12], p[13], p[14], p[15], text);
        out.append(line, static_cast<std::size_t>(length));
    }
    return out;
}

// Sized once and written in place, from a table of digit pairs, with isprint for each byte.
std::string byPairs(std::string_view bytes) {
    static const auto pairs = [] {
        std::vector<char> table(512);
        for (std::size_t i = 0; i < 256; ++i) {
            table[2 * i] = "0123456789ABCDEF"[i >> 4];
            table[2 * i + 1] = "0123456789ABCDEF"[i & 15];
        }
        return table;
    }();
    static constexpr std::size_t column[16] = {11, 13, 15, 17, 20, 22, 24, 26,
                                               30, 32, 34, 36, 39, 41, 43, 45};
    std::string out(bytes.size() / 16 * c_lineLength, ' ');
    char *to = out.data();
    const unsigned char *p = unsignedBytes(bytes);
    for (std::size_t at = 0; at < bytes.size(); at += 16, p += 16, to += c_lineLength) {
        to[0] = '\n';
        for (std::size_t i = 0; i < 4; ++i)
            std::memcpy(to + 1 + 2 * i, &pairs[2 * (at >> (24 - 8 * i) & 255)], 2);
        to[9] = ':';
        for (std::size_t i = 0; i < 16; ++i) {
            std::memcpy(to + column[i], &pairs[2 * p[i]], 2);
            to[51 + i] = shown(p[i]);
        }
    }
    return out;
}

std::string byTovutil(std::string_view bytes) {
    TovString out;
    tovDumpHex(out, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    return out.substr(c_headerLength).c_str();
}

#ifdef TOV_BENCH_SPDLOG
template <class Format>
std::string byFmt(std::string_view bytes, const Format &format) {
    fmt::memory_buffer out;
    out.reserve(bytes.size() / 16 * c_lineLength);
    const unsigned char *p = unsignedBytes(bytes);
    for (std::size_t at = 0; at < bytes.size(); at += 16, p += 16) {
        char text[16];
        for (std::size_t i = 0; i < 16; ++i)
            text[i] = shown(p[i]);
        fmt::format_to(fmt::appender(out), format, static_cast<unsigned>(at), p[0], p[1], p[2], p[3], p[4],
                       p[5], p[6], p[7], p[8], p[9], p[10], p[11], p[12], p[13], p[14], p[15],
                       fmt::string_view(text, 16));
    }
    return fmt::to_string(out);
}
#endif

// A peer that writes the same lines.
template <class Make>
void dump(std::size_t size, const char *peer, Make make) {
    preparedJob(
        "hexdump/" + sizeName(size) + "/" + peer,
        [size, make](benchmark::State &state) {
            require(state, make(block(size)) == bySnprintf(block(size)));
            return [size, make] {
                auto made = make(block(size));
                benchmark::DoNotOptimize(made);
            };
        },
        size);
}

// One that writes something like them, or less.
template <class Make>
void other(std::size_t size, const char *peer, Make make) {
    job(
        "hexdump/" + sizeName(size) + "/" + peer,
        [size, make] {
            auto made = make(block(size));
            benchmark::DoNotOptimize(made);
        },
        size);
}

void addTovutil(std::size_t size) {
    preparedJob(
        "hexdump/" + sizeName(size) + "/tovutil",
        [size](benchmark::State &state) {
            require(state, byTovutil(block(size)) == bySnprintf(block(size)));
            return [bytes = block(size)] {
                TovString made;
                tovDumpHex(made, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
                benchmark::DoNotOptimize(made);
            };
        },
        size);
}

void addSize(std::size_t size) {
    const std::size_t length = size / 16 * c_lineLength;
    preparedJob(
        "hexdump/" + sizeName(size) + "/limit:memcpy-output",
        [length](benchmark::State &) {
            return [from = std::string(length, 'x'), to = std::string(length, 'x')]() mutable {
                std::memcpy(to.data(), from.data(), from.size());
                benchmark::ClobberMemory();
            };
        },
        size);
    addTovutil(size);
    dump(size, "snprintf", bySnprintf);
    dump(size, "model:pair-table", byPairs);
#ifdef TOV_BENCH_SPDLOG
#define TOV_BENCH_LINE                                                                                       \
    "\n{:08X}: {:02X}{:02X}{:02X}{:02X} {:02X}{:02X}{:02X}{:02X}  {:02X}{:02X}{:02X}{:02X} "                 \
    "{:02X}{:02X}{:02X}{:02X}    {} "
    dump(size, "fmt", [](std::string_view bytes) { return byFmt(bytes, fmt::runtime(TOV_BENCH_LINE)); });
    dump(size, "fmt-compiled",
         [](std::string_view bytes) { return byFmt(bytes, FMT_COMPILE(TOV_BENCH_LINE)); });
    // A dump of nearly the same layout.
    other(size, "spdlog-to_hex", [](std::string_view bytes) {
        return fmt::format("{:Xa}", spdlog::to_hex(bytes.begin(), bytes.end(), 16));
    });
#endif
    // Digits alone, less than half of the output.
#ifdef TOV_BENCH_ABSL
    other(size, "part:digits-absl", [](std::string_view bytes) {
        return absl::BytesToHexString({bytes.data(), bytes.size()});
    });
#endif
#ifdef TOV_BENCH_QT
    other(size, "part:digits-qt", [](std::string_view bytes) {
        return QByteArray::fromRawData(bytes.data(), static_cast<int>(bytes.size())).toHex();
    });
#endif
#ifdef TOV_BENCH_BOOST
    other(size, "part:digits-boost", [](std::string_view bytes) {
        std::string out(2 * bytes.size(), ' ');
        boost::algorithm::hex(bytes.begin(), bytes.end(), out.begin());
        return out;
    });
#endif
}

} // namespace

void registerTopic() {
    addSize(64 << 10);
    addSize(256);
    addSize(32);
}

} // namespace tovbench
