#include <gtest/gtest.h>

#include <cstdlib>
#include <dlfcn.h>
#include <new>

namespace {

constexpr std::size_t c_watchedSize = 123456; // no block of anybody else is as large as that

long s_taken = 0;
void *s_watched = nullptr;

void give(void *block) {
    if (block == s_watched)
        s_watched = nullptr;
    std::free(block);
}

} // namespace

void *operator new(std::size_t size) {
    void *block = std::malloc(size);
    if (!block)
        throw std::bad_alloc();
    if (size > c_watchedSize && size < c_watchedSize + 1000) {
        ++s_taken;
        s_watched = block;
    }
    return block;
}

void operator delete(void *block) noexcept { give(block); }

void operator delete(void *block, std::size_t) noexcept { give(block); }

namespace {

bool isLoaded() {
    void *library = dlopen("libtovutil.so.1", RTLD_LAZY | RTLD_NOLOAD);
    if (library)
        dlclose(library);
    return library != nullptr;
}

struct Row {
    const char *why, *mode;
    bool livesUntilUnload;
};

TEST(Unload, FreesTheHeapThatIsOffAndTheLibrary) {
    const Row rows[] = {{"a heap ends with its last reference", "on", false},
                        {"the heap of a process that has them off ends with the library", "off", true},
                        {"and is made anew by the library loaded anew", "off", true}};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.why);
        setenv("TOV_FAST_HEAP", row.mode, 1);
        void *module = dlopen(TOV_MODULE, RTLD_NOW);
        ASSERT_NE(nullptr, module) << dlerror();
        EXPECT_TRUE(isLoaded());
        const long before = s_taken;
        reinterpret_cast<void (*)(std::size_t)>(dlsym(module, "takeFromHeap"))(c_watchedSize);
        EXPECT_EQ(before + 1, s_taken);
        EXPECT_EQ(row.livesUntilUnload, s_watched != nullptr);
        dlclose(module);
        EXPECT_FALSE(isLoaded());
        EXPECT_EQ(nullptr, s_watched);
    }
}

TEST(Unload, EndsNothingThatWasNotMade) {
    setenv("TOV_FAST_HEAP", "off", 1);
    void *module = dlopen(TOV_MODULE, RTLD_NOW);
    ASSERT_NE(nullptr, module) << dlerror();
    dlclose(module);
    EXPECT_FALSE(isLoaded());
}

} // namespace
