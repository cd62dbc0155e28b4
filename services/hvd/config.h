// What the environment asks for.
#pragma once

#include <cstddef>
#include <string_view>

namespace hvd {

/// A text of levels. Each distinct one is kept once and for ever, because another thread may still read
/// it; programs go back and forth between a few.
struct LevelText {
    LevelText *next;
    std::size_t length;

    std::string_view text() const noexcept { return {reinterpret_cast<const char *>(this + 1), length}; }
};

/// The kept form of a text; null when memory has run out.
const LevelText *keepLevels(std::string_view text) noexcept;

enum class Format { Text, Chrome };
enum class Target { Stderr, Stdout, File };

struct Config {
    const LevelText *levels;
    Format format;
    Target target;

    /// Of Target::File: absolute, so that a later change of directory doesn't matter.
    const char *path() const noexcept { return reinterpret_cast<const char *>(this + 1); }
};

/// What HVD_TRACE, HVD_TRACE_FILE and HVD_TRACE_FORMAT say, as at the first call. Null when memory has
/// run out; a later call tries again.
///
/// Threads    Any, without a lock: of threads that race to be first, all but one throw away what they
///            have read.
const Config *config() noexcept;

} // namespace hvd
