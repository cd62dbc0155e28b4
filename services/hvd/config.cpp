// Reads the environment once and publishes what it says.
#include <services/hvd/config.h>
#include <services/hvd/keptlist.h>
#include <services/hvd/levels.h>
#include <services/hvd/quiet.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>
#include <unistd.h>

namespace hvd {

namespace {

constexpr LevelText noLevels{nullptr, 0};
constexpr Config defaults{&noLevels, Format::Text, Target::Stderr};

constinit KeptList<LevelText> s_levelTexts;
constinit std::atomic<const Config *> s_config{nullptr};

struct Environment {
    const char *levels = secure_getenv("HVD_TRACE");
    const char *file = secure_getenv("HVD_TRACE_FILE");
    const char *format = secure_getenv("HVD_TRACE_FORMAT");

    bool empty() const { return !levels && !file && !format; }
};

LevelText *makeLevels(std::string_view text) {
    void *room = std::malloc(sizeof(LevelText) + text.size());
    if (!room)
        return nullptr;
    auto *made = new (room) LevelText{nullptr, text.size()};
    text.copy(reinterpret_cast<char *>(made + 1), text.size());
    return made;
}

Target targetOf(std::string_view file) {
    if (file.empty() || file == "stderr")
        return Target::Stderr;
    return file == "stdout" ? Target::Stdout : Target::File;
}

bool isRelative(std::string_view file) { return !file.empty() && file[0] != '/'; }

// Puts the folder that a relative path begins with; nothing when it can't be told. Gives the length.
std::size_t putFolder(char *room) {
    if (!getcwd(room, PATH_MAX - 1))
        return 0;
    const std::size_t length = std::strlen(room);
    room[length] = '/';
    return length + 1;
}

Config *makeConfig(const Environment &environment) {
    const std::string_view file = environment.file ? environment.file : "";
    const std::size_t folderRoom = isRelative(file) ? PATH_MAX : 0;
    void *block = std::malloc(sizeof(Config) + folderRoom + file.size() + 1);
    const LevelText *levels = keepLevels(environment.levels ? environment.levels : "");
    if (!block || !levels) {
        std::free(block);
        return nullptr;
    }
    const bool chrome = environment.format && std::string_view(environment.format) == "chrome";
    auto *made = new (block) Config{levels, chrome ? Format::Chrome : Format::Text, targetOf(file)};
    char *path = reinterpret_cast<char *>(made + 1);
    path += isRelative(file) ? putFolder(path) : 0;
    path += file.copy(path, file.size());
    *path = '\0';
    return made;
}

void reportFaults(const Environment &environment) {
    if (environment.levels)
        checkLevels(environment.levels, "HVD_TRACE");
    const std::string_view format = environment.format ? environment.format : "";
    if (!format.empty() && format != "text" && format != "chrome")
        report("HVD_TRACE_FORMAT: unknown format \"%s\"; text is written", environment.format);
}

const Config *readEnvironment() {
    const Environment environment;
    Config *made = environment.empty() ? nullptr : makeConfig(environment);
    if (!made && !environment.empty())
        return nullptr;
    const Config *published = nullptr;
    const Config *const mine = made ? made : &defaults;
    if (!s_config.compare_exchange_strong(published, mine, std::memory_order_acq_rel,
                                          std::memory_order_acquire)) {
        std::free(made);
        return published;
    }
    reportFaults(environment);
    return mine;
}

} // namespace

const LevelText *keepLevels(std::string_view text) noexcept {
    if (text.empty())
        return &noLevels;
    return s_levelTexts.findOrAdd([&](const LevelText &kept) { return kept.text() == text; },
                                  [&] { return makeLevels(text); });
}

const Config *config() noexcept {
    const Config *current = s_config.load(std::memory_order_acquire);
    return current ? current : readEnvironment();
}

} // namespace hvd
