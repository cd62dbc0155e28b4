// What 16-bit strings cost that copy, share and grow.
#include "bench.h"

#include <tovutil/tovfheap.h>
#include <tovutil/tovutstr.h>

#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include <unicode/unistr.h>
#ifdef TOV_BENCH_BOOST
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>
#endif
#ifdef TOV_BENCH_QT
#include <QString>
#endif

namespace tovbench {

namespace {

using Units = std::u16string;

Units letters(std::size_t n) {
    Lcg random(21);
    Units text(n, u' ');
    for (char16_t &unit : text)
        unit = static_cast<char16_t>(u'a' + random.below(26));
    return text;
}

icu::UnicodeString icuString(const Units &text) {
    return {text.data(), static_cast<std::int32_t>(text.size())};
}
#ifdef TOV_BENCH_QT
QString qtString(const Units &text) {
    return QString(reinterpret_cast<const QChar *>(text.data()), static_cast<int>(text.size()));
}
#endif

#ifdef TOV_BENCH_BOOST
// The least that a shared string can be: three words and one plain count.
struct Counted : boost::intrusive_ref_counter<Counted, boost::thread_unsafe_counter> {
    Units text;
};
struct Shared {
    boost::intrusive_ptr<Counted> owner;
    const char16_t *begin, *end;
};

[[gnu::noinline]] Shared share(const Units &text) {
    boost::intrusive_ptr<Counted> owner(new Counted);
    owner->text = text;
    const char16_t *begin = owner->text.data();
    return {owner, begin, begin + text.size()};
}
#endif

// A copy that ends at once.
void registerCopy(std::size_t n) {
    const std::string group = "stringedit/copy/" + std::to_string(n) + "/";
    const Units text = letters(n);
    const auto copy = [&](const char *peer, auto source) {
        job(group + peer, [source = std::move(source)] {
            auto made = source;
            benchmark::DoNotOptimize(made);
        });
    };
#ifdef TOV_BENCH_BOOST
    copy("limit:count", share(text));
#endif
    copy("tovutil", TovUniString(text));
    copy("tovutil:static", TovUniString::fromStatic(text.data(), static_cast<unsigned>(n)));
    copy("std", text);
    copy("icu", icuString(text));
#ifdef TOV_BENCH_QT
    copy("qt", qtString(text));
#endif
    job(group + "tovutil:on-heap", [heap = TovFastHeap::create(0), source = TovUniString(text)] {
        const TovUniString made = TovUniString::fromHeap(source.data(), source.length(), heap.get());
        benchmark::DoNotOptimize(&made);
    });
}

// The middle half.
void registerSubstring(std::size_t n) {
    const std::string group = "stringedit/substr/" + std::to_string(n) + "/";
    const Units text = letters(n);
    const std::size_t at = n / 4, count = n / 2;
#ifdef TOV_BENCH_BOOST
    job(group + "limit:count", [shared = share(text), at, count] {
        Shared made = shared;
        made.begin += at;
        made.end = made.begin + count;
        benchmark::DoNotOptimize(made);
    });
#endif
    job(group + "tovutil",
        [source = TovUniString(text), at = static_cast<unsigned>(at), count = static_cast<unsigned>(count)] {
            const TovUniString made = source.substr(at, count);
            benchmark::DoNotOptimize(&made);
        });
    job(group + "std", [=] {
        auto made = text.substr(at, count);
        benchmark::DoNotOptimize(made);
    });
    const auto position = static_cast<std::int32_t>(at), length = static_cast<std::int32_t>(count);
    job(group + "icu", [source = icuString(text), position, length] {
        icu::UnicodeString made(source, position, length);
        benchmark::DoNotOptimize(made);
    });
    job(group + "icu-alias", [source = icuString(text), position, length] {
        icu::UnicodeString made = source.tempSubString(position, length);
        benchmark::DoNotOptimize(made);
    });
#ifdef TOV_BENCH_QT
    job(group + "qt", [source = qtString(text), position, length] {
        QString made = source.mid(position, length);
        benchmark::DoNotOptimize(made);
    });
#endif
}

// From an empty string, unit by unit.
void registerAppend(unsigned n) {
    const std::string group = "stringedit/append/" + std::to_string(n) + "/";
    const auto unitAt = [](unsigned i) { return static_cast<char16_t>(u'a' + (i & 15)); };
    job(group + "limit:reserved", [=] {
        auto *text = static_cast<char16_t *>(std::malloc(2 * std::size_t(n)));
        for (unsigned i = 0; i < n; ++i) {
            text[i] = unitAt(i);
            benchmark::ClobberMemory();
        }
        benchmark::DoNotOptimize(text);
        std::free(text);
    });
    const auto grow = [&](const char *peer, auto empty, auto append) {
        job(group + peer, [=] {
            auto text = empty;
            for (unsigned i = 0; i < n; ++i) {
                append(text, unitAt(i));
                benchmark::ClobberMemory();
            }
            benchmark::DoNotOptimize(text);
        });
    };
    grow("tovutil", TovUniString(), [](TovUniString &text, char16_t unit) { text.append(unit); });
    grow("std", Units(), [](Units &text, char16_t unit) { text.push_back(unit); });
    grow("vector", std::vector<char16_t>(),
         [](std::vector<char16_t> &text, char16_t unit) { text.push_back(unit); });
    grow("icu", icu::UnicodeString(), [](icu::UnicodeString &text, char16_t unit) { text.append(unit); });
#ifdef TOV_BENCH_QT
    grow("qt", QString(), [](QString &text, char16_t unit) { text.append(QChar(unit)); });
#endif
    // What every unit costs that goes to a buffer behind a pointer: is it the one writer's, has it room.
    struct Buffer {
        int count;
        unsigned capacity;
        char16_t units[2000];
    };
    struct Handle {
        char16_t *end;
        Buffer *buffer;
    };
    job(group + "model:counted-buffer", [=] {
        Handle text{};
        text.buffer = static_cast<Buffer *>(std::malloc(sizeof(Buffer)));
        text.buffer->count = 1;
        text.buffer->capacity = 2000;
        text.end = text.buffer->units;
        for (unsigned i = 0; i < n; ++i) {
            benchmark::DoNotOptimize(text);
            if (text.buffer->count == 1 && text.end < text.buffer->units + text.buffer->capacity)
                *text.end++ = unitAt(i);
            benchmark::ClobberMemory();
        }
        std::free(text.buffer);
    });
    // Growth by just what is told: a new buffer for each ten units.
    job(group + "model:exact-buffers", [=] {
        char16_t *text = nullptr;
        unsigned room = 0;
        for (unsigned i = 0; i < n; ++i) {
            if (i == room) {
                auto *larger = static_cast<char16_t *>(std::malloc(2 * (std::size_t(room) + 11)));
                if (text)
                    std::memcpy(larger, text, 2 * std::size_t(room));
                std::free(text);
                text = larger;
                room += 10;
            }
            text[i] = unitAt(i);
            benchmark::ClobberMemory();
        }
        std::free(text);
    });
}

} // namespace

void registerTopic() {
    for (const std::size_t n : {std::size_t(20), std::size_t(2000)}) {
        registerCopy(n);
        registerSubstring(n);
    }
    for (const unsigned n : {20U, 200U, 2000U})
        registerAppend(n);
}

} // namespace tovbench
