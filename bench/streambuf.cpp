// A text written through a standard stream into memory, and read there: 100 bytes, 10 KiB, 1 MiB, in pieces
// as programs write them.
#include "bench.h"

#include <tovutil/tovbuffs.h>

#include <cstring>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <vector>

namespace tovbench {

namespace {

// A text of `size` bytes in pieces, some words and a single character each.
void write(std::ostream &os, std::size_t size) {
    static constexpr std::string_view words = "some words of a line";
    std::size_t done = 0;
    for (; done + words.size() + 1 <= size; done += words.size() + 1) {
        os << words;
        os.put('\n');
    }
    os << words.substr(0, size - done);
}

const std::string &expected(std::size_t size) {
    static std::string text;
    std::ostringstream os;
    write(os, size);
    text = os.str();
    return text;
}

// Memory that is there before: what the stream alone costs.
class FixedBuffer : public std::streambuf {
public:
    explicit FixedBuffer(std::vector<char> &room) { setp(room.data(), room.data() + room.size()); }
};

template <class Use>
void add(std::size_t size, const char *peer, Use use) {
    preparedJob(
        "streambuf/" + sizeName(size) + "/" + peer,
        [size, use](benchmark::State &state) {
            bool right = false;
            use(size, [&](const char *text) { right = std::memcmp(text, expected(size).data(), size) == 0; });
            require(state, right);
            return [size, use] { use(size, [](const char *text) { benchmark::DoNotOptimize(text); }); };
        },
        size);
}

void addSize(std::size_t size) {
    preparedJob(
        "streambuf/" + sizeName(size) + "/limit:fixed-buffer",
        [size](benchmark::State &) {
            return [size, room = std::vector<char>(size)]() mutable {
                FixedBuffer buffer(room);
                std::ostream os(&buffer);
                write(os, size);
                benchmark::DoNotOptimize(room.data());
            };
        },
        size);
    add(size, "tovutil", [](std::size_t count, auto read) {
        TovFastStrStreambuf buffer;
        std::ostream os(&buffer);
        write(os, count);
        read(buffer.getBuffer());
    });
    add(size, "ostringstream-str", [](std::size_t count, auto read) {
        std::ostringstream os;
        write(os, count);
        const std::string text = os.str();
        read(text.data());
    });
    add(size, "ostringstream-view", [](std::size_t count, auto read) {
        std::ostringstream os;
        write(os, count);
        read(os.view().data());
    });
}

} // namespace

void registerTopic() {
    addSize(100);
    addSize(10 << 10);
    addSize(1 << 20);
}

} // namespace tovbench
