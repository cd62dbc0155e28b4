// The functions of the toolbox that can allocate, with each of their allocations failing in turn. The names
// of the loops stand beside the functions in tests/abi.
#include <support/failalloc.h>

#include <services/hvdctl.h>
#include <tovutil/random.h>
#include <tovutil/tovbuffs.h>
#include <tovutil/tovcache.h>
#include <tovutil/tovdump.h>
#include <tovutil/toverrio.h>
#include <tovutil/tovfheap.h>
#include <tovutil/tovldapu.h>
#include <tovutil/tovpath.h>
#include <tovutil/tovslibc.h>
#include <tovutil/tovutil.h>
#include <tovutil/tovxlat.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>

namespace {

using tovtest::failEachAllocation;

const TovString s_longText(100, 'x');

// Runs a loop on a call without an object; the same call then gets through.
template <class... Raised, class Op>
void canBeRepeated(Op op) {
    failEachAllocation<Raised...>([] { return 0; }, [&](int) { op(); }, [&](int) { op(); });
}

// Traces without memory of its own.
struct DroppedTrace {
    explicit DroppedTrace(const char *levels) {
        hvdTraceSetSink([](void *, const HvdTraceEvent &) {}, nullptr);
        hvdTraceSetLevels(levels);
    }
    ~DroppedTrace() {
        hvdTraceSetLevels("");
        hvdTraceSetSink(nullptr, nullptr);
    }
};

#define FAILS_WITH_EITHER TovError, std::bad_alloc

TEST(OutOfMemory, Paths) {
    const TovString path = s_longText + "/" + s_longText;
    canBeRepeated<TovError>([&] { EXPECT_EQ(s_longText, TovOsPath::baseName(path)); });
    canBeRepeated<TovError>([&] { EXPECT_EQ(101U, TovOsPath::pathName(path).size()); });
    // Only a trace needs memory.
    const DroppedTrace trace("TovOsPath::isFile=all");
    canBeRepeated<std::bad_alloc>([&] { EXPECT_FALSE(TovOsPath::isFile(path)); });
    canBeRepeated<std::bad_alloc>([] { EXPECT_FALSE(TovOsPath::isFile("/dev/null/x")); });
}

TEST(OutOfMemory, Tables) {
    const TovXlatEntry table[] = {{1, s_longText.c_str()}, {0, nullptr}};
    canBeRepeated<TovError>([&] { EXPECT_EQ(s_longText, table->print(1)); });
}

TEST(OutOfMemory, HexDump) {
    failEachAllocation<TovError>([] { return TovString("before"); },
                                 [](TovString &text) { tovDumpHex(text, "abc", 3); },
                                 [](const TovString &text) { EXPECT_EQ("", text); });
    canBeRepeated<TovError>([] {
        TovString text;
        tovDumpHex(text, s_longText.data(), 100);
    });
    std::ostringstream os;
    canBeRepeated<TovError>([&] { tovDumpHex(os, "abc", 3); });
}

TEST(OutOfMemory, StreamBuffer) {
    failEachAllocation<TovError>([] { return std::make_unique<TovFastStrStreambuf>(); },
                                 [](auto &buffer) {
                                     for (int i = 0; i < 1000; ++i)
                                         buffer->sputc('x');
                                 },
                                 [](auto &buffer) {
                                     const char *block = buffer->getBuffer();
                                     EXPECT_TRUE(!block || *block == 'x');
                                     EXPECT_EQ('y', buffer->sputc('y'));
                                 });
}

TEST(OutOfMemory, TracedStreamBuffer) {
    const DroppedTrace trace("TovFastStrStreambuf::*=all");
    failEachAllocation<FAILS_WITH_EITHER>([] { return std::make_unique<TovFastStrStreambuf>(); },
                                          [](auto &buffer) {
                                              buffer->sputc('x');
                                              EXPECT_EQ('x', *buffer->getBuffer());
                                          },
                                          [](auto &buffer) { EXPECT_EQ('y', buffer->sputc('y')); });
}

TEST(OutOfMemory, TracedRandomRelease) {
    const DroppedTrace trace("TovPoolCtrl::release=all");
    failEachAllocation<std::bad_alloc>([] { return __long_random(100); },
                                       [](unsigned) { TovRandom_release(); },
                                       [](unsigned) { EXPECT_LT(__long_random(100), 100U); });
}

TEST(OutOfMemory, TracedHeapRelease) {
    const DroppedTrace trace("TovPoolCtrl::release=all");
    failEachAllocation<std::bad_alloc>(
        [] {
            TovUtAlcPool::ms_lock = PTHREAD_ONCE_INIT;
            return &TovFastHeap::getEmptyRef();
        },
        [](const auto *) { TovUtAlcPool_release(); },
        [](const auto *empty) { EXPECT_EQ(empty, &TovFastHeap::getEmptyRef()) << "nothing is released"; });
}

TEST(OutOfMemory, Random) {
#ifdef TOV_THREAD_SANITIZER
    GTEST_SKIP() << "the sanitizer's own pthread_once does not let an exception through";
#endif
    const auto forget = [] {
        TovRandom_release();
        TovRandom::ms_pool = {}; // a stored failure stays in the list of pools
        TovRandom::ms_lock = PTHREAD_ONCE_INIT;
        return 0;
    };
    failEachAllocation<FAILS_WITH_EITHER>(
        forget, [](int) { __long_random(100); },
        [&](int) {
            forget();
            EXPECT_LT(__long_random(100), 100U);
        });
    canBeRepeated<FAILS_WITH_EITHER>([] { lrand48(); });
}

TEST(OutOfMemory, SharedLibrary) {
    const DroppedTrace trace("TovSharedLib::*=all");
    for (const bool decorate : {false, true})
        canBeRepeated<FAILS_WITH_EITHER>([&] {
            try {
                TovSharedLib library(s_longText.c_str(), decorate, false);
            } catch (const TovError &error) {
                if (error.getReturnCode() != TOVRC_SHLIB_ERROR)
                    throw;
            }
        });
    // The C library is in the process for good; its handle is only counted.
    canBeRepeated<FAILS_WITH_EITHER>([] {
        TovSharedLib library("libc.so.6", false, false);
        EXPECT_NE(nullptr, library.getFuncAddress("malloc"));
        library.load("libc.so.6");
        library.unload();
    });
    const TovSharedLib library("libc.so.6", false, false);
    canBeRepeated<FAILS_WITH_EITHER>([&] {
        try {
            library.getFuncAddress("noSuchFunction");
        } catch (const TovError &error) {
            if (error.getReturnCode() != TOVRC_SHLIB_ERROR)
                throw;
        }
    });
}

// Values are the numbers 0x100 to 0x1FF, and each is its own key.
struct NumberHelper : TovUtCacheHelper {
    unsigned hash(void *key) override { return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(key)); }
    bool equal(void *stored, void *probed) override { return stored == probed; }
    void *getKey(void *value) override { return value; }
    void *create(void *key, void *) override {
        const std::string needed(100, 'x');
        ++live;
        return key;
    }
    void destroy(void *) override { --live; }
    int live = 0;
};

void *number(std::uintptr_t value) { return reinterpret_cast<void *>(0x100 + value); }

TEST(OutOfMemory, Cache) {
    NumberHelper helper;
    struct End {
        void operator()(TovUtCacheImpl *cache) const { TovUtCacheImplFactory::destroy(0, cache); }
    };
    const auto filled = [&] {
        helper.live = 0;
        std::unique_ptr<TovUtCacheImpl, End> cache(TovUtCacheImplFactory::create(0, &helper, 53));
        for (unsigned i = 0; i < 53; ++i)
            cache->insert(number(i), nullptr, nullptr);
        return cache;
    };
    canBeRepeated<std::bad_alloc>(
        [&] { TovUtCacheImplFactory::destroy(0, TovUtCacheImplFactory::create(0, &helper, 5)); });
    // Growth of the table, the entry, the value.
    failEachAllocation<std::bad_alloc>(
        filled, [](auto &cache) { cache->insert(number(60), nullptr, nullptr); },
        [&](auto &cache) {
            EXPECT_EQ(53U, cache->size());
            EXPECT_EQ(53, helper.live);
            EXPECT_EQ(nullptr, cache->find(number(60)));
            cache->insert(number(60), nullptr, nullptr);
            EXPECT_EQ(nullptr, cache->find(number(0))) << "the oldest is still the oldest";
            EXPECT_NE(nullptr, cache->find(number(1)));
        });
    failEachAllocation<std::bad_alloc>(
        filled, [](auto &cache) { cache->setMaxSize(100, 10); },
        [](auto &cache) {
            EXPECT_EQ(53U, cache->maxSize());
            EXPECT_EQ(53U, cache->size());
        });
    failEachAllocation<std::bad_alloc>(
        filled, [](auto &cache) { cache->setMaxSize(1, 10); }, [](auto &) {});
}

struct StringSink : TovDataOutput {
    StringSink() { bytes.reserve(2000); }
    void write(const char *data, unsigned length) override { bytes.append(data, length); }
    std::string bytes;
};

struct StringSource : TovDataInput::Stream {
    explicit StringSource(const std::string &all) : rest(all) {}
    void read(char *data, unsigned length) override {
        rest.copy(data, length);
        rest.remove_prefix(length);
    }
    std::string_view rest;
};

TEST(OutOfMemory, ErrorRecord) {
    const auto make = [] {
        return TovErrorFull(5, "CODE", 7, "LAYER", 8, "REASON", 6, TovError::Error, 9, "from", "version",
                            "file.cpp", "build", s_longText, nullptr);
    };
    StringSink whole;
    whole << make();
    failEachAllocation<TovError>([&] { return std::make_pair(make(), std::make_unique<StringSink>()); },
                                 [](auto &pair) { *pair.second << pair.first; },
                                 [](auto &pair) { EXPECT_EQ("", pair.second->bytes) << "all or nothing"; });
    failEachAllocation<FAILS_WITH_EITHER>([] { return TovErrorFull(); },
                                          [&](TovErrorFull &error) {
                                              StringSource source(whole.bytes);
                                              TovDataInput in(source);
                                              in >> error;
                                          },
                                          [&](TovErrorFull &error) {
                                              const TovErrorFull copy(error);
                                              EXPECT_STREQ(error.getErrorMessage(), copy.getErrorMessage());
                                              StringSource source(whole.bytes);
                                              TovDataInput in(source);
                                              in >> error;
                                              EXPECT_STREQ(make().getErrorMessage(), error.getErrorMessage());
                                          });
}

TEST(OutOfMemory, StandardOutput) {
    // A standard stream makes an error state of its buffer's failure.
    canBeRepeated<std::bad_alloc>([] {
        std::ostringstream os;
        TovStdOutputStream(os).write(s_longText.data(), 100);
    });
}

TEST(OutOfMemory, LdapUrls) {
    const TovString url = "ldap://host/dc=" + s_longText;
    ::setenv("QMDDIR", url.c_str(), 1);
    canBeRepeated<TovError>([&] { EXPECT_EQ(url, TovLdapUtil::getDefaultUrl()); });
    canBeRepeated<TovError>([&] { EXPECT_EQ("dc=" + s_longText, TovLdapUtil::extractContextDn(url)); });
    canBeRepeated<TovError>(
        [] { EXPECT_EQ("ldap://host/" + s_longText, TovLdapUtil::makeUrl("", "", "", s_longText)); });
    canBeRepeated<TovError>([] {
        EXPECT_EQ("file:///" + s_longText + "/dc=" + s_longText,
                  TovLdapUtil::makeUrl(s_longText, "", "", ""));
    });
    canBeRepeated<TovError>([] { TovLdapUtil::makeUrl("", s_longText, s_longText, s_longText); });
    failEachAllocation<TovError>([] { return TovString("before"); },
                                 [](TovString &dir) { tovGetQMDDIR(dir); },
                                 [](const TovString &dir) { EXPECT_EQ("before", dir); });
    ::unsetenv("QMDDIR");
    const DroppedTrace trace("TovLdapUtil::*=all");
    canBeRepeated<std::bad_alloc>([] { TovLdapUtil::checkUrl("url"); });
}

TEST(OutOfMemory, LdapNames) {
    const TovUString dn(50, u',');
    canBeRepeated<TovError>([&] { EXPECT_EQ(100U, TovLdapUtil::dnEscape(dn).size()); });
    canBeRepeated<TovError>([&] { EXPECT_EQ(dn, TovLdapUtil::dnUnEscape(dn)); });
    canBeRepeated<FAILS_WITH_EITHER>([] {
        try {
            TovLdapUtil::dnUnEscape(u"\\");
        } catch (const TovError &error) {
            if (error.getReturnCode() != TOVRC_INTERNAL_ERROR)
                throw;
        }
    });
}

} // namespace
