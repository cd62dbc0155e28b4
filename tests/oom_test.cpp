// Every public function that can allocate, with each of its allocations failing in turn. The names of the
// loops stand beside the functions in tests/abi, so that a new export without a loop is noticed.
#include <support/failalloc.h>

#include <services/hvdctl.h>
#include <services/lng1.h>
#include <tovdom/tovnls/tovnls.h>
#include <tovutil/tovmodule.h>
#include <tovutil/tovtrace.h>
#include <tovutil/tovutf8.h>
#include <tovutil/tovutil.h>
#include <tovutil/tovutstr.h>

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <sstream>
#include <string>

namespace {

using tovtest::failEachAllocation;

const TovString s_longText(300, 'x');

TovErrorFull fullError() {
    const TovErrorFull inner(3, "INNER", 0, "", 0, "", 0, TovError::Api, 1, "", "", "", "", s_longText,
                             nullptr);
    return TovErrorFull(5, "CODE", 7, "", 3, "", 0, TovError::Error, 1, "from", "v", "file", "b", s_longText,
                        &inner);
}

TovError plainError() {
    const TovErrorFull inner = fullError();
    return TovError(1, 2, 3, 4, TovError::Error, "location", "message", &inner);
}

std::string shown(const TovError &error) {
    return std::to_string(error.getReturnCode()) + error.getLocation() + error.getErrorMessage() +
           (error.getSecondary() ? shown(*error.getSecondary()) : "");
}

// Runs a loop on an object that must be as it was after a failure, and for which the same call then gets
// through.
template <class... Raised, class Make, class Op>
void leavesAsItWas(Make make, Op op) {
    failEachAllocation<Raised...>(make, op, [&](auto &object) {
        EXPECT_EQ(shown(make()), shown(object));
        op(object);
    });
}

// Runs a loop on a call without an object; the same call then gets through.
template <class... Raised, class Op>
void canBeRepeated(Op op) {
    failEachAllocation<Raised...>([] { return 0; }, [&](int) { op(); }, [&](int) { op(); });
}

#define FAILS_WITH_EITHER TovError, std::bad_alloc

TEST(OutOfMemory, TovErrorConstructor) {
    canBeRepeated<FAILS_WITH_EITHER>([] { plainError(); });
    const long before = tovtest::allocationCount();
    TovErrorFull::getOutOfMem();
    const TovError copy(TovErrorFull::getOutOfMem());
    EXPECT_EQ(before, tovtest::allocationCount()) << "the out-of-memory error takes no memory";
}

TEST(OutOfMemory, TovErrorCopy) {
    const TovError source = plainError();
    const TovErrorFull full = fullError();
    canBeRepeated<FAILS_WITH_EITHER>([&] { TovError copy(source); });
    canBeRepeated<FAILS_WITH_EITHER>([&] { TovError copy(full); });
    canBeRepeated<FAILS_WITH_EITHER>([&] { std::unique_ptr<TovError> copy(source.clone()); });
    leavesAsItWas<FAILS_WITH_EITHER>(plainError, [&](TovError &error) { error = full; });
    leavesAsItWas<FAILS_WITH_EITHER>(plainError, [](TovError &error) { error = *error.getSecondary(); });
}

TEST(OutOfMemory, TovErrorSetters) {
    const TovErrorFull other = fullError();
    const std::string long300(300, 'y');
    for (const auto &make : {+[] { return TovError(); }, +[] { return plainError(); }}) {
        leavesAsItWas<FAILS_WITH_EITHER>(make, [](TovError &error) { error.setReturnCode(9); });
        leavesAsItWas<FAILS_WITH_EITHER>(make, [](TovError &error) { error.setFailedLayer(9); });
        leavesAsItWas<FAILS_WITH_EITHER>(make, [](TovError &error) { error.setReason(9); });
        leavesAsItWas<FAILS_WITH_EITHER>(make, [](TovError &error) { error.setPosition(9); });
        leavesAsItWas<FAILS_WITH_EITHER>(make, [](TovError &error) { error.setErrorType(TovError::Api); });
        leavesAsItWas<FAILS_WITH_EITHER>(make, [](TovError &error) { error.setMods(false); });
        leavesAsItWas<FAILS_WITH_EITHER>(make, [&](TovError &error) { error.setLocation(long300.c_str()); });
        leavesAsItWas<FAILS_WITH_EITHER>(make,
                                         [&](TovError &error) { error.setErrorMessage(long300.c_str()); });
        leavesAsItWas<FAILS_WITH_EITHER>(make, [&](TovError &error) { error.setSecondary(&other); });
    }
}

TEST(OutOfMemory, TovErrorImpl) {
    const TovErrorFull secondary = fullError();
    canBeRepeated<FAILS_WITH_EITHER>(
        [&] { delete TovErrorImpl::create(1, 2, 3, 4, TovError::Api, "location", "message", &secondary); });
    canBeRepeated<TovError>([] { tovFree(TovErrorImpl::dupString("text")); });
    TovErrorImpl body(1, 2, 3, 4, TovError::Api, "location", "message", nullptr);
    canBeRepeated<FAILS_WITH_EITHER>([&] { TovErrorImpl copy(body); });
    canBeRepeated<TovError>([&] { body.setErrorMessage("message"); });
    canBeRepeated<TovError>([&] { body.setLocation("location"); });
    EXPECT_STREQ("message", body.m_errorMessage);
}

// An exception other than those of memory is what the call is meant to raise.
template <class Raise>
void raisesInTheEnd(Raise raise, std::uint32_t code) {
    canBeRepeated<FAILS_WITH_EITHER>([&] {
        try {
            raise();
        } catch (const TovError &error) {
            if (error.getReturnCode() != code)
                throw;
        }
    });
}

TEST(OutOfMemory, Raising) {
    const TovError plain = plainError();
    const TovErrorFull full = fullError();
    raisesInTheEnd([&] { plain.raise(); }, 1);
    raisesInTheEnd([&] { plain.logRaise(); }, 1);
    raisesInTheEnd([&] { full.raise(); }, 5);
    raisesInTheEnd([&] { full.logRaise(); }, 5);
    raisesInTheEnd([] { tovCheck("file", 1, "Internal error: x", TOV_CODE(TOVRC_INTERNAL_ERROR)); },
                   TOVRC_INTERNAL_ERROR);
}

TEST(OutOfMemory, TovErrorFull) {
    const TovErrorFull full = fullError();
    full.getErrorMessage();
    canBeRepeated<FAILS_WITH_EITHER>([] { fullError(); });
    canBeRepeated<FAILS_WITH_EITHER>([&] { TovErrorFull copy(full); });
    canBeRepeated<FAILS_WITH_EITHER>([&] { std::unique_ptr<TovError> copy(full.clone()); });
    canBeRepeated<TovError>([&] { full.getErrString(); });
    const auto other = [] {
        return TovErrorFull(9, "N", 9, "", 9, "", 9, TovError::Api, 9, "", "", "", "", "t", nullptr);
    };
    leavesAsItWas<FAILS_WITH_EITHER>(other, [&](TovErrorFull &error) { error = full; });
    leavesAsItWas<FAILS_WITH_EITHER>(other, [](TovErrorFull &error) { error = TovErrorFull(); });
    leavesAsItWas<FAILS_WITH_EITHER>(other, [](TovErrorFull &error) { error.setFile("a/b"); });
    failEachAllocation<FAILS_WITH_EITHER>(
        [] { return TovErrorFull(); }, [](TovErrorFull &error) { error.setFile("a/b"); },
        [](TovErrorFull &error) {
            EXPECT_STREQ("From (), Line(0) in module () Build() Version()", error.getLocation());
        });
}

TEST(OutOfMemory, Composition) {
    failEachAllocation<TovError>(
        fullError, [](const TovErrorFull &error) { error.checkMods(); },
        [](TovErrorFull &error) {
            error.setReason(3); // a swallowed failure holds until the next change
            EXPECT_NE(nullptr, strstr(error.getErrorMessage(), "CODE Layer(7) Reason(3)"));
            EXPECT_NE(nullptr, strstr(error.getLocation(), "From (from)"));
        });
    failEachAllocation<FAILS_WITH_EITHER>([] { return TovErrorFull(); },
                                          [](const TovErrorFull &error) { error.getErrorMessage(); },
                                          [](const TovErrorFull &error) { error.getLocation(); });
}

TEST(OutOfMemory, PoolControl) {
    static TovPoolCtrlList list;
    failEachAllocation<std::bad_alloc>([] { return 0; },
                                       [](int) { TovPoolCtrlListImpl::checkInit(list, nullptr); },
                                       [](int) { EXPECT_EQ(0, list.m_isInit); });
    ASSERT_NE(0, list.m_isInit);
    // The entries stay in their list for ever, so the list keeps what the loops leave.
    static int data;
    static TovPoolCtrl ok, failed;
    failEachAllocation<std::bad_alloc>([] { return ok = {}, 0; },
                                       [](int) { ok.initOk(&data, nullptr, list, nullptr); },
                                       [](int) { EXPECT_EQ(TovPoolCtrl::Untouched, ok.m_stat); });
    EXPECT_EQ(&data, ok.m_data);
    const TovErrorFull error = fullError();
    error.getErrorMessage();
    failEachAllocation<FAILS_WITH_EITHER>([] { return failed = {}, 0; },
                                          [&](int) { failed.initError(error, nullptr, list, nullptr); },
                                          [](int) { EXPECT_EQ(TovPoolCtrl::Untouched, failed.m_stat); });
    EXPECT_EQ(TovPoolCtrl::Failed, failed.m_stat);
    canBeRepeated<std::bad_alloc>([] { TovPoolCtrlImpl::create(&ok, nullptr, list); });
}

// The first access of a module, again and again.
template <class Forget, class Use>
void firstAccess(Forget forget, Use use) {
#ifdef TOV_THREAD_SANITIZER
    GTEST_SKIP() << "the sanitizer's own pthread_once does not let an exception through";
#endif
    failEachAllocation<FAILS_WITH_EITHER>(
        [&] {
            forget();
            return 0;
        },
        [&](int) { use(); },
        [&](int) {
            forget();
            use();
        });
}

TEST(OutOfMemory, ModuleInit) {
    const auto forget = [](TovPoolCtrl &pool, pthread_once_t &once, void (*release)()) {
        release();
        pool = {}; // a stored failure stays in the list of pools
        once = PTHREAD_ONCE_INIT;
    };
    firstAccess([&] { forget(TovErrFl::ms_pool, TovErrFl::ms_lock, TovErrFl_release); },
                [] { TovErrFl::ms_pool.get(TovErrFl::ms_lock, TovErrFl_init); });
    firstAccess([&] { forget(TovTrace::ms_pool, TovTrace::ms_lock, TovTrace_release); },
                [] { tovTraceStr(static_cast<const char *>(nullptr)); });
    firstAccess([&] { forget(TovCpMgr::ms_pool, TovCpMgr::ms_lock, TovCpMgr_release); },
                [] { loadCpTable(); });
}

TEST(OutOfMemory, Allocator) {
    canBeRepeated<TovError>([] { tovFree(tovMalloc(10)); });
    canBeRepeated<TovError>([] { tovFree(tovRealloc(nullptr, 10)); });
    canBeRepeated<TovError>([] { TovAllocator::deallocate(TovAllocator::allocate(10)); });
    canBeRepeated<TovError>([] { TovAllocator::deallocate(TovAllocator::reallocate(nullptr, 0, 10)); });
    canBeRepeated<TovError>([] { TovAllocator::deallocate(TovAllocator::reallocate(nullptr, 10)); });
}

TEST(OutOfMemory, TraceStream) {
    tovTraceStr(static_cast<const char *>(nullptr)); // the module itself has a loop of its own
    TovString target;
    target.reserve(1000);
    canBeRepeated<std::bad_alloc>([] { TovTraceStream().getBuff(); });
    canBeRepeated<std::bad_alloc>([] { TovTraceStream().getOs(); });
    canBeRepeated<std::bad_alloc>([&] { TovTraceStream().getOs(target) << "text" << std::flush; });
    canBeRepeated<std::bad_alloc>([] { TovTraceStream().getOs(nullptr, 1); });
    canBeRepeated<std::bad_alloc>([] { TovTraceStream().getOs(nullptr, 1, nullptr, 0); });
    canBeRepeated<std::bad_alloc>([] { TovTraceStream().getOs([](const char *, bool) {}); });
    canBeRepeated<std::bad_alloc>([] {
        TovTraceStream().getOs([](const void *, unsigned, const char *, bool) {}, nullptr, nullptr, 0);
    });
    // A stream turns the failure of its buffer into an error state, as every standard stream does.
    canBeRepeated<std::bad_alloc>([] {
        TovString grown;
        TovTraceStream().getOs(grown)
            << std::string_view("0123456789012345678901234567890123456789") << std::flush;
    });
    canBeRepeated<FAILS_WITH_EITHER>(
        [] { tovTraceStr(u"a text that is too long for a string without memory"); });
    canBeRepeated<FAILS_WITH_EITHER>([] { tovTraceStr(static_cast<const TovUChar *>(nullptr)); });
}

TEST(OutOfMemory, TracedCalls) {
    // Only the first statement of a call needs memory, and only its failure shows.
    const struct Tracing {
        Tracing() {
            hvdTraceSetSink([](void *, const HvdTraceEvent &) {}, nullptr);
            hvdTraceSetLevels("*=all");
        }
        ~Tracing() {
            hvdTraceSetLevels("");
            hvdTraceSetSink(nullptr, nullptr);
        }
    } tracing;
    canBeRepeated<FAILS_WITH_EITHER>([] { tovGetCodePage(u"utf-8"); });
    raisesInTheEnd([] { TovNls nls(u"no such page"); }, TOVRC_NLS_ERROR);
    const TovMutex first(TovMutex::Recursive); // the once-control of the attribute is a test of its own
    canBeRepeated<FAILS_WITH_EITHER>([] { TovMutex mutex(TovMutex::Recursive); });
    canBeRepeated<FAILS_WITH_EITHER>([] { tovutil_recursiveAttrInitFunc(); });
    canBeRepeated<FAILS_WITH_EITHER>([] { tovStrlen(u"text"); });
    for (const TovUChar *name : {u"utf-8", u"ibm-37"}) {
        const TovNls nls(name);
        canBeRepeated<FAILS_WITH_EITHER>([&] { nls.getMaxByteLen(); });
        canBeRepeated<FAILS_WITH_EITHER>([&] { nls.getMinByteLen(); });
        canBeRepeated<FAILS_WITH_EITHER>([&] { nls.isEbcdicBased(); });
    }
    CXLocale *locale = LNG1_PrivateFunction_GetProcessLocale();
    canBeRepeated<FAILS_WITH_EITHER>([&] { tovNlsGetMaxByteLen(locale); });
    canBeRepeated<FAILS_WITH_EITHER>([&] { tovNlsGetMinByteLen(locale); });

    const struct {
        TovPoolCtrl &pool;
        pthread_once_t &once;
        void (*init)(), (*release)();
    } modules[] = {
        {TovErrFl::ms_pool, TovErrFl::ms_lock, TovErrFl_init, TovErrFl_release},
        {TovTrace::ms_pool, TovTrace::ms_lock, TovTrace_init, TovTrace_release},
        {TovCpMgr::ms_pool, TovCpMgr::ms_lock, TovCpMgr_init, TovCpMgr_release},
        {TovUtStr::ms_pool, TovUtStr::ms_lock, TovUtStr_init, TovUtStr_release},
        {TovUtStrPool::ms_pool, TovUtStrPool::ms_lock, TovUtStrPool_init, TovUtStrPool_release},
    };
    for (const auto &module : modules) {
        const auto begin = [&] {
            module.release();
            module.pool = {};
            module.once = PTHREAD_ONCE_INIT;
            module.pool.get(module.once, module.init);
            return 0;
        };
        failEachAllocation<FAILS_WITH_EITHER>(
            begin, [&](int) { module.release(); }, [](int) {});
        begin();
    }
}

const TovUString s_text(100, u'\u00FC');

TEST(OutOfMemory, ProcessLocale) {
    canBeRepeated<FAILS_WITH_EITHER>([] { EXPECT_EQ(200U, tovToMbcs(s_text.c_str(), 100, false).size()); });
    const TovString bytes = tovToMbcs(s_text.c_str(), 100, true);
    canBeRepeated<FAILS_WITH_EITHER>([&] { EXPECT_EQ(s_text, tovToUnicode(bytes.c_str(), 200, false)); });
    raisesInTheEnd([] { tovToMbcs(u"", 0xFFFFFFFFU, true); }, TOVRC_INVALID_WCHAR);
    raisesInTheEnd([] { tovToUnicode("", 0xFFFFFFFFU, true); }, TOVRC_INVALID_MBCHAR);
}

TEST(OutOfMemory, StringHelpers) {
    const TovUString padded = u"  " + s_text + u"\t ";
    canBeRepeated<FAILS_WITH_EITHER>([] { EXPECT_EQ(s_text, tovToUString(s_text.c_str(), 0)); });
    canBeRepeated<FAILS_WITH_EITHER>([] { EXPECT_EQ(u"-1234567890123", tovToUString(-1234567890123L)); });
    canBeRepeated<FAILS_WITH_EITHER>([&] { EXPECT_EQ(s_text + u"\t", tovTrimSpaces(padded)); });
    canBeRepeated<FAILS_WITH_EITHER>([&] { EXPECT_EQ(s_text, tovTrimWhiteSpaces(padded)); });
    canBeRepeated<FAILS_WITH_EITHER>([] { EXPECT_EQ(TovUString(100, u'\u00DC'), tovToUpper(s_text)); });
    canBeRepeated<FAILS_WITH_EITHER>([] { EXPECT_EQ(s_text, tovToLower(s_text)); });
    std::ostringstream os;
    canBeRepeated<FAILS_WITH_EITHER>([&] { static_cast<std::ostream &>(os) << s_text; });
}

TEST(OutOfMemory, UtfStrings) {
    const TovString bytes(200, 'x');
    canBeRepeated<TovError>([&] {
        TovUString units;
        EXPECT_TRUE(tovUtf8ToUtf16(bytes.data(), 200, units));
    });
    canBeRepeated<TovError>([] {
        TovString target;
        EXPECT_TRUE(tovUtf16ToUtf8(s_text.data(), 100, target));
    });
    canBeRepeated<TovError>([&] { tovFromLdapString(bytes.c_str()); });
    canBeRepeated<TovError>([] { tovToLdapString(s_text); });
    canBeRepeated<TovError>([] { tovToLdapString(s_text.c_str()); });
}

TEST(OutOfMemory, CodePageTable) {
    const TovUChar *names[] = {u"windows-1250", u"windows-1251", u"windows-1253", u"windows-1254",
                               u"windows-1255", u"windows-1256", u"windows-1257", u"windows-1258"};
    std::size_t next = 0;
    // Each step asks for a name that the table does not have yet.
    failEachAllocation<FAILS_WITH_EITHER>(
        [&] { return names[next++ % std::size(names)]; }, [](const TovUChar *name) { tovGetCodePage(name); },
        [](const TovUChar *name) { EXPECT_NE(nullptr, tovGetCodePage(name)); });
    const TovUString longName(40, u'x');
    raisesInTheEnd([&] { tovGetCodePage(longName.c_str()); }, TOVRC_NLS_ERROR);
    canBeRepeated<FAILS_WITH_EITHER>([] { TovNls::isNativeUtf16(u"utf-16"); });
}

TEST(OutOfMemory, LocalePrimitives) {
    const std::int32_t id = tovGetCodePage(u"windows-1252")->id;
    // The closed library tells its own lack of memory with a code.
    const auto open = [&] { CXReleaseLocale(tovNlsGetLocale(id), 0); };
    failEachAllocation<FAILS_WITH_EITHER>([] { return 0; }, [&](int) { open(); }, [&](int) { open(); });
    CXLocale *locale = tovNlsGetLocale(id);
    canBeRepeated<std::bad_alloc>([&] { tovNlsFromUnicode(s_text.c_str(), -1, locale).own(); });
    canBeRepeated<std::bad_alloc>([&] { tovNlsToUnicode("text", -1, locale).own(); });
    canBeRepeated<std::bad_alloc>([&] { tovNlsGetLocaleTextInfo(locale, 1).own(); });
    canBeRepeated<std::bad_alloc>([&] { tovNlsGetLocaleTextInfoU(locale, 1).own(); });
    CXReleaseLocale(locale, 0);
}

TEST(OutOfMemory, TovNls) {
    for (const TovUChar *name : {u"utf-8", u"utf-16be", u"cp1252", u"shift_jis"}) {
        canBeRepeated<FAILS_WITH_EITHER>([&] { TovNls nls(name); });
        const TovNls nls(name);
        canBeRepeated<FAILS_WITH_EITHER>(
            [&] { nls.toUnicode("some text that needs memory for a string", -1).own(); });
        canBeRepeated<FAILS_WITH_EITHER>([&] { nls.fromUnicode(u"text", -1).own(); });
    }
    raisesInTheEnd([] { TovNls nls(u"no such page"); }, TOVRC_NLS_ERROR);
}

} // namespace
