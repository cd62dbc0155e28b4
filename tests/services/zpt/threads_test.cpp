// All services at once from several threads, and children made while threads are inside of them.
#include "pages.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

using namespace tovtest;

namespace {

constexpr const char *c_pages[] = {
    "windows-1252", "ibm-37",  "Shift_JIS", "GB18030",   "ibm-930",     "EUC-JP", "Big5",        "EUC-KR",
    "ISO-2022-JP",  "UTF-7",   "UTF-8",     "KOI8-R",    "ISO-8859-15", "IBM850", "windows-949", "gb2312",
    "ibm-1047",     "TIS-620", "UTF-32",    "macintosh", "ibm-1388",    "SCSU",   "GBK",         "US-ASCII"};

// One of each: a name resolved, a locale opened and released, text there and back, case mapped. More pages
// than a thread keeps converters for, so that some are closed and opened again. False when a text comes
// back changed.
bool useEverything(unsigned turn) {
    const char *name = c_pages[turn % std::size(c_pages)];
    const Page page(name);
    const std::u16string text = u"Plain text, long enough for a table or two. \r\n";
    const bool same = page.toUnits(page.fromUnits(text)) == text;
    char16_t upper[8];
    const std::int32_t mapped =
        CXMapStringU(LNG1_PrivateFunction_GetProcessLocale(), upper, 8, u"stra\u00DFe", 6, CX_MAP_UPPER);
    return same && mapped == 7 && LNG1_GetCodepageId("no such page", nullptr) == 0;
}

// Pages that are made of many others or of rules. Filled before any thread is made, for a child would wait
// for ever for a thread that was filling it.
std::vector<std::int32_t> s_heavyPages;

void fillHeavyPages() {
    for (const std::int32_t id : allPages())
        if (Icu(Page(id).name()).type() >= UCNV_ISO_2022)
            s_heavyPages.push_back(id);
}

// More pages than a thread keeps, so that most of the time is spent inside of ICU's locks.
bool openAndClose(unsigned turn) {
    return !Page(s_heavyPages[turn % s_heavyPages.size()]).fromUnits(u"A").empty();
}

class BusyThreads {
public:
    BusyThreads(unsigned count, bool (*work)(unsigned turn)) {
        for (unsigned i = 0; i < count; ++i)
            m_threads.emplace_back([this, i, work] {
                for (unsigned turn = i; !m_stop; turn += 7)
                    if (!work(turn))
                        m_good = false;
            });
    }
    bool stop() {
        m_stop = true;
        for (std::thread &thread : m_threads)
            thread.join();
        m_threads.clear();
        return m_good;
    }
    ~BusyThreads() { stop(); }

private:
    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_good{true};
    std::vector<std::thread> m_threads;
};

// 0 when the child ended well. One that hangs is ended by its alarm.
int runChild(unsigned turn) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        bool good = true;
        for (unsigned i = 0; i < 4; ++i)
            good = useEverything(turn + 5 * i) && openAndClose(turn + i) && good;
        _exit(good ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

} // namespace

// First in this program, so that the threads race to the first use of all there is.
TEST(Threads, ShareEverything) {
    BusyThreads threads(4, useEverything);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_TRUE(threads.stop());
}

TEST(Threads, ShareOneLocale) {
    const Page page("Shift_JIS");
    std::atomic<int> bad{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            const std::u16string text = u"\u65E5\u672C\u8A9E and ASCII \u3042\u3044\u3046";
            for (int turn = 0; turn < 3000; ++turn) { // the table appears midway
                bad += page.toUnits(page.fromUnits(text)) != text;
                page.fromUnits(u"\u0E01"); // sets the last error of all
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(0, bad);
    EXPECT_EQ(50, CXGetError(page.locale()));
}

// Threads come and go, so that forks meet the closing of converters as well.
TEST(Fork, LeavesNoChildHanging) {
#ifdef TOV_ADDRESS_SANITIZER
    GTEST_SKIP() << "the sanitizer's allocator leaves its own locks taken in the children of a busy process";
#endif
    fillHeavyPages();
    std::atomic<bool> stop{false};
    std::thread shortLived([&] {
        for (unsigned turn = 0; !stop; ++turn)
            std::thread([turn] { useEverything(turn); }).join();
    });
    BusyThreads threads(2, useEverything);
    BusyThreads openers(2, openAndClose);
    for (unsigned turn = 0; turn < 200; ++turn)
        EXPECT_EQ(0, runChild(turn)) << "child " << turn;
    stop = true;
    shortLived.join();
    EXPECT_TRUE(threads.stop());
    EXPECT_TRUE(openers.stop());
}
