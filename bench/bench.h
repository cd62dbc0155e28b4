// Shared by the topics. A topic is one source file and one program; it defines registerTopic().
//
// A benchmark is named  topic/job/variant/.../peer .  Names that differ only in their last component form
// one group, and ratios are formed inside a group alone. What the last component says:
//   limit:...    the physical bound of the group: memcpy, an empty loop, one malloc pair
//   model:...    a few lines written here that show what a rule costs
//   part:...     does less than the job
//   tovutil...   this library; variants behind a colon
//   all others   peers
#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tovbench {

/// Registers all benchmarks of the topic.
void registerTopic();

/// Registers a benchmark whose `prepare(state)` makes and checks its data, before each run, and gives the
/// body to run per iteration. Nothing is timed when the check fails.
template <class Prepare>
void preparedJob(const std::string &name, Prepare prepare, std::size_t bytes = 0) {
    benchmark::RegisterBenchmark(name.c_str(), [prepare, bytes](benchmark::State &state) {
        auto body = prepare(state);
        if (state.error_occurred())
            return;
        for (auto _ : state)
            body();
        if (bytes != 0)
            state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
    });
}

/// The same for a body that needs no preparation.
template <class Body>
void job(const std::string &name, Body body, std::size_t bytes = 0) {
    preparedJob(
        name, [body](benchmark::State &) { return body; }, bytes);
}

/// Fails the run unless `right`.
inline void require(benchmark::State &state, bool right) {
    if (!right)
        state.SkipWithError("wrong result");
}

/// A small generator of test data, the same in every run.
class Lcg {
public:
    explicit Lcg(std::uint64_t seed) : m_state(seed) {}
    std::uint32_t below(std::uint32_t n) {
        m_state = m_state * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<std::uint32_t>(m_state >> 33) % n;
    }

private:
    std::uint64_t m_state;
};

/// What generated texts are made of.
enum class Kind { Ascii, Latin, CyrAra, Cjk, Emoji, Web };
inline constexpr Kind allKinds[] = {Kind::Ascii, Kind::Latin, Kind::CyrAra,
                                    Kind::Cjk,   Kind::Emoji, Kind::Web};
const char *kindName(Kind kind);

/// One text in both forms.
struct Text {
    std::string_view utf8;
    std::u16string_view utf16;
};

/// A text of exactly `bytes` bytes in UTF-8, made once and kept.
const Text &text(Kind kind, std::size_t bytes);

/// Registers the limit of converting a text: memcpy of the larger of its two forms to `target`.
void copyLimit(const std::string &group, Kind kind, std::size_t bytes, void *target);

/// Memory for sources and targets, never freed. Sources begin 2048 bytes behind a page's start and targets
/// at one, so that nobody meets a load and a store that agree in their low 12 bits.
void *sourceArea(std::size_t bytes);
void *targetArea(std::size_t bytes);

/// A copy of `text` in a source area.
template <class Unit>
std::basic_string_view<Unit> placed(std::basic_string_view<Unit> text) {
    auto *to = static_cast<Unit *>(sourceArea(text.size() * sizeof(Unit)));
    text.copy(to, text.size());
    return {to, text.size()};
}

/// "32B", "64KiB", "8MiB".
std::string sizeName(std::size_t bytes);

} // namespace tovbench
