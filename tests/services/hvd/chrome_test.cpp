// Files of the Trace Event form: each is one JSON array in which the begin and end events of every thread
// balance, whatever has happened to the functions, threads and processes meanwhile.
#include "traceprobe.h"

#include <nlohmann/json.hpp>

#include <barrier>
#include <set>

#include <sys/stat.h>

using namespace hvdtest;

namespace {

constinit TRC1_EPB s_outer = makeRecord("outer");
constinit TRC1_EPB s_inner = makeRecord("inner");
constinit TRC1_EPB s_next = makeRecord("next");

/// The events of one file, checked as every file must be.
struct Trace {
    explicit Trace(const std::string &text) {
        const auto json = nlohmann::json::parse(text, nullptr, false);
        EXPECT_TRUE(json.is_array()) << text.substr(0, 2000);
        if (!json.is_array())
            return;
        std::map<std::pair<long, long>, int> open;
        for (const auto &event : json) {
            EXPECT_TRUE(event["pid"].is_number_unsigned() && event["tid"].is_number_unsigned() &&
                        event["ts"].is_number())
                << event;
            int &depth = open[{event["pid"].get<long>(), event["tid"].get<long>()}];
            depth += event["ph"] == "B" ? 1 : event["ph"] == "E" ? -1 : 0;
            EXPECT_LE(0, depth) << "an end without a begin: " << event;
            events.push_back(event);
        }
        for (const auto &[thread, depth] : open)
            EXPECT_EQ(0, depth) << "open functions in thread " << thread.second;
    }

    /// "outer( text )" for begin, text and end, of all threads, by time.
    std::string story() const {
        auto sorted = events;
        std::stable_sort(sorted.begin(), sorted.end(),
                         [](const auto &a, const auto &b) { return a["ts"] < b["ts"]; });
        std::string story;
        for (const auto &event : sorted)
            story += event["ph"] == "B"   ? event["name"].template get<std::string>() + "( "
                     : event["ph"] == "E" ? ") "
                     : event["ph"] == "i" ? event["name"].template get<std::string>() + " "
                                          : "";
        return story;
    }

    std::size_t count(const char *kind) const {
        return static_cast<std::size_t>(std::count_if(
            events.begin(), events.end(), [&](const auto &event) { return event["ph"] == kind; }));
    }

    std::vector<nlohmann::json> events;
};

class Chrome : public TraceProbe {
protected:
    /// Traces `body` into a file of its own.
    Trace traceOf(const std::function<void()> &body) const {
        std::filesystem::remove(path("trace"));
        const Outcome outcome = run(tracing(path("trace"), "chrome"), body);
        EXPECT_EQ("", outcome.err);
        return Trace(contents(path("trace")));
    }

    std::vector<std::filesystem::path> files() const {
        std::vector<std::filesystem::path> found;
        for (const auto &entry : std::filesystem::directory_iterator(path(".")))
            if (entry.path().filename().string().starts_with("trace"))
                found.push_back(entry.path());
        return found;
    }
};

[[gnu::noinline]] void leaf(TRC1_EPB &record, bool raise) {
    Call call(record);
    if (raise)
        throw 1;
    call.leave();
}

void swallow(TRC1_EPB &record) {
    try {
        leaf(record, true);
    } catch (int) {
    }
}

[[gnu::noinline]] void recursive(int depth, bool raise) {
    Call call(s_outer);
    if (depth > 0)
        recursive(depth - 1, raise);
    else if (raise)
        throw 1;
    call.leave();
}

// The innermost call throws, the outermost catches.
[[gnu::noinline]] void catching(int depth, int outermost) {
    Call call(s_outer);
    if (depth == 0)
        throw 1;
    try {
        catching(depth - 1, outermost);
    } catch (int) {
        if (depth < outermost)
            throw;
    }
    call.leave();
}

void text(TRC1_EPB &record, const char *text) { TRC1_Printf(&record, 11, "%s", text); }

TEST_F(Chrome, EntryAndExitNestAndTextsStandBetween) {
    const Trace trace = traceOf([] {
        Call call(s_outer);
        text(s_outer, "Args");
        leaf(s_inner, false);
        text(s_outer, "Return");
        call.leave();
    });
    EXPECT_EQ("outer( Args inner( ) Return ) ", trace.story());
    EXPECT_EQ(10, trace.events[1]["args"]["line"]);
    for (const auto &event : trace.events)
        if (event["ph"] == "i") {
            EXPECT_EQ("outer", event["args"]["function"]);
            EXPECT_EQ(11, event["args"]["line"]);
            EXPECT_EQ("PROBE", event["cat"]);
        }
}

TEST_F(Chrome, ExceptionalExitsAreClosed) {
    const struct {
        const char *why;
        std::function<void()> body;
        const char *story;
    } rows[] = {
        {"by the exit of the outer function",
         [] {
             Call call(s_outer);
             swallow(s_inner);
             call.leave();
             leaf(s_next, false);
         },
         "outer( inner( ) ) next( ) "},
        {"by the same function in a loop",
         [] {
             Call call(s_outer);
             for (int i = 0; i < 3; ++i)
                 swallow(s_inner);
             call.leave();
         },
         "outer( inner( ) inner( ) inner( ) ) "},
        {"by the exit of one of several calls of one function",
         [] {
             Call call(s_next);
             try {
                 recursive(3, true);
             } catch (int) {
             }
             call.leave();
             leaf(s_inner, false);
         },
         "next( outer( outer( outer( outer( ) ) ) ) ) inner( ) "},
        {"by the exit of an outer call of the same function",
         [] {
             catching(2, 2);
             text(s_next, "behind");
         },
         "outer( outer( outer( ) ) ) behind "},
        {"by the end of the process", [] { swallow(s_inner); }, "inner( ) "},
        {"by the end of the thread",
         [] {
             std::thread([] { swallow(s_inner); }).join();
             leaf(s_next, false);
         },
         "inner( ) next( ) "},
        {"an exit whose entry was not traced",
         [] {
             levelOf(s_inner);
             TRC1_Event(&s_inner, 1, TRC1_LEAVE);
             leaf(s_next, false);
         },
         "next( ) "},
        {"recursion without an exception", [] { recursive(2, false); }, "outer( outer( outer( ) ) ) "},
        {"very deep recursion: only that all is balanced",
         [] {
             try {
                 recursive(1000, true);
             } catch (int) {
             }
         },
         nullptr},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        const Trace trace = traceOf(row.body);
        if (row.story) {
            EXPECT_EQ(row.story, trace.story());
        }
    }
}

TEST_F(Chrome, PiecesOfATextAreOneEvent) {
    const std::string longPiece(100000, 'x');
    const struct {
        const char *why;
        std::function<void()> body;
        std::string name;
    } rows[] = {
        {"a character that is cut between pieces",
         [] {
             text(s_outer, "one \xc3");
             TRC1_Printf(&s_outer, 1, "+ %s", "\xa9 two");
         },
         "one \u00e9 two"},
        {"what is traced while the text is made",
         [] {
             text(s_outer, "one ");
             leaf(s_inner, false);
             TRC1_Printf(&s_outer, 1, "+ %s", "two");
         },
         "one two"},
        {"a null address at the end",
         [] {
             text(s_outer, "one ");
             TRC1_Printf(&s_outer, 1, " + %s - ptr(NULL), size(%d)", "two", 3);
         },
         "one two - ptr(NULL), size(3)"},
        {"quotes, backslashes and control characters", [] { text(s_outer, "\"\\\n\t\x01\x7f/"); },
         "\"\\\n\t\x01\x7f/"},
        {"bytes that are no UTF-8: alone, cut, overlong, surrogate, too large",
         [] { text(s_outer, "\xff|\xe2\x82|\xc0\xaf|\xed\xa0\x80|\xf4\x90\x80\x80|\xc3"); },
         "\ufffd|\ufffd\ufffd|\ufffd\ufffd|\ufffd\ufffd\ufffd|\ufffd\ufffd\ufffd\ufffd|\ufffd"},
        {"every length of UTF-8",
         [] { text(s_outer, "\u0080\u07ff\u0800\ud7fb\ue000\uffff\U00010000\U0010ffff"); },
         "\u0080\u07ff\u0800\ud7fb\ue000\uffff\U00010000\U0010ffff"},
        {"a long text",
         [&] {
             text(s_outer, longPiece.c_str());
             TRC1_Printf(&s_outer, 1, "+ %s", longPiece.c_str());
         },
         longPiece + longPiece},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        const Trace trace = traceOf([&] {
            levelOf(s_outer);
            row.body();
        });
        std::vector<std::string> names;
        for (const auto &event : trace.events)
            if (event["ph"] == "i")
                names.push_back(event["name"]);
        EXPECT_EQ(std::vector<std::string>{row.name}, names);
    }
}

TEST_F(Chrome, EveryByteStringBecomesValidJson) {
    const Trace trace = traceOf([] {
        levelOf(s_outer);
        std::uint64_t state = 1;
        for (int i = 0; i < 2000; ++i) {
            char bytes[24] = {};
            for (char &byte : bytes)
                byte = static_cast<char>((state = state * 6364136223846793005U + 1442695040888963407U) >> 56);
            bytes[23] = '\0';
            text(s_outer, bytes);
        }
    });
    EXPECT_EQ(2000u, trace.count("i"));
}

TEST_F(Chrome, ADumpCarriesItsMemory) {
    const std::string large(1 << 20, 'L');
    const Trace trace = traceOf([&] {
        levelOf(s_outer);
        text(s_outer, "data ");
        TRC1_Dump(&s_outer, 11, "\x01\xff", 2, "+ %s", "here");
        TRC1_Dump(&s_outer, 11, large.data(), 1 << 20, "%s", "large");
    });
    ASSERT_EQ(2u, trace.count("i"));
    EXPECT_EQ("data here", trace.events[1]["name"]);
    EXPECT_EQ("01ff", trace.events[1]["args"]["memory"]);
    EXPECT_EQ(2, trace.events[1]["args"]["size"]);
    EXPECT_EQ(1 << 20, trace.events[2]["args"]["size"]);
    EXPECT_EQ(2u << 16, trace.events[2]["args"]["memory"].get<std::string>().size()) << "the first 64 KiB";
}

TEST_F(Chrome, ThreadsThatStillRunAtTheEndAreClosed) {
    for (int round = 0; round < 5; ++round) {
        const Trace trace = traceOf([] {
            static std::barrier entered(5);
            for (int t = 0; t < 4; ++t)
                std::thread([] {
                    Call call(s_outer);
                    text(s_outer, "waits");
                    entered.arrive_and_wait();
                    for (;;)
                        leaf(s_inner, false);
                }).detach();
            entered.arrive_and_wait();
        });
        std::set<long> threads;
        for (const auto &event : trace.events)
            if (event["ph"] == "i" && event["name"] == "waits")
                threads.insert(event["tid"].get<long>());
        EXPECT_EQ(4u, threads.size());
    }
}

TEST_F(Chrome, ManyThreadsShareOneFile) {
    const Trace trace = traceOf([] {
        std::vector<std::thread> threads;
        for (int t = 0; t < 8; ++t)
            threads.emplace_back([] {
                for (int i = 0; i < 300; ++i) {
                    Call call(s_outer);
                    i % 3 ? leaf(s_inner, false) : swallow(s_inner);
                    text(s_outer, "text");
                    call.leave();
                }
            });
        for (std::thread &thread : threads)
            thread.join();
    });
    EXPECT_EQ(2u * 8 * 300, trace.count("B"));
    EXPECT_EQ(8u * 300, trace.count("i"));
}

TEST_F(Chrome, AFurtherRunGoesOnInTheSameFile) {
    const auto once = [&] { return run(tracing(path("trace"), "chrome"), [] { leaf(s_outer, false); }); };
    once();
    once();
    EXPECT_EQ("outer( ) outer( ) ", Trace(contents(path("trace"))).story());
    run(tracing(path("trace"), "chrome"), [] {
        leaf(s_inner, false);
        _exit(0);
    });
    once();
    EXPECT_EQ("outer( ) outer( ) inner( ) outer( ) ", Trace(contents(path("trace"))).story())
        << "also behind a run that has not come to its end";
}

TEST_F(Chrome, AFileOfSomethingElseIsLeftAlone) {
    for (const char *other : {"x", "[", "{}", "some text\n", "2026-01-01 [\n]\n"}) {
        std::ofstream(path("trace")) << other;
        const Outcome outcome = run(tracing(path("trace"), "chrome"), [] { leaf(s_outer, false); });
        EXPECT_NE(std::string::npos, outcome.err.find("something else"));
        EXPECT_EQ(other, contents(path("trace")));
    }
}

// Parent and child both go on in the functions that are open at the fork.
TEST_F(Chrome, AForkedChildWritesAFileOfItsOwn) {
    run(tracing(path("trace"), "chrome"), [] {
        Call call(s_outer);
        Call inner(s_inner);
        text(s_inner, "before");
        const pid_t child = fork();
        text(s_inner, child == 0 ? "child" : "parent");
        inner.leave();
        call.leave();
        if (child == 0)
            std::exit(0);
        EXPECT_EQ(0, statusOf(child));
    });
    ASSERT_EQ(2u, files().size());
    for (const auto &file : files()) {
        const bool child = file.filename() != "trace";
        EXPECT_EQ(child ? "outer( inner( child ) ) " : "outer( inner( before parent ) ) ",
                  Trace(contents(file)).story())
            << file;
    }
}

// A sanitizer's own work at exit takes locks that a thread may have held at the fork.
#if defined(__SANITIZE_ADDRESS__) || defined(TOV_THREAD_SANITIZER)
constexpr bool childrenExit = false;
#else
constexpr bool childrenExit = true;
#endif

TEST_F(Chrome, ChildrenForkedAmongBusyThreadsAreCompleteAndDoNotHang) {
    run(tracing(path("trace"), "chrome"), [] {
        leaf(s_outer, false); // or else a child could be first to open the file
        std::atomic<bool> done = false;
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([&] {
                while (!done) {
                    Call call(s_outer);
                    text(s_outer, "busy");
                    call.leave();
                    usleep(100);
                }
            });
        for (int c = 0; c < 30; ++c) {
            const pid_t child = fork();
            if (child == 0) {
                leaf(s_inner, false);
                hvdTraceSetLevels("*=flow");
                leaf(s_next, false);
                childrenExit ? std::exit(0) : _exit(0);
            }
            EXPECT_EQ(0, statusOf(child));
        }
        done = true;
        for (std::thread &thread : threads)
            thread.join();
    });
    EXPECT_EQ(31u, files().size());
    for (const auto &file : files())
        if (file.filename() != "trace") {
            const std::string end = childrenExit ? "" : "\n]\n";
            EXPECT_EQ("inner( ) next( ) ", Trace(contents(file) + end).story()) << file;
        }
    Trace(contents(path("trace")));
}

TEST_F(Chrome, ASecondProcessFindsTheFileTaken) {
    run(tracing(path("trace"), "chrome"), [&] {
        leaf(s_outer, false);
        const pid_t other = fork();
        if (other == 0) {
            execl("/proc/self/exe", "test", "--gtest_filter=Reentered.*", nullptr);
            _exit(1);
        }
        EXPECT_EQ(0, statusOf(other));
    });
    ASSERT_EQ(2u, files().size());
    for (const auto &file : files())
        EXPECT_EQ(file.filename() == "trace" ? "outer( ) " : "next( ) ", Trace(contents(file)).story());
}

// Run by the test above in a program of its own; nothing is traced when it runs by itself.
TEST(Reentered, TracesOneCall) { leaf(s_next, false); }

// All threads have open functions while the file is begun anew. It is nearly full of blanks before.
TEST_F(Chrome, BothFilesAreCompleteWhenOneIsFull) {
    const std::string blanks((std::size_t{64} << 20) - 50000, ' ');
    std::ofstream(path("trace")) << "[\n"
                                 << blanks << R"({"ph":"M","pid":1,"tid":1,"ts":1})"
                                 << "\n]\n";
    const Outcome outcome = run(tracing(path("trace"), "chrome"), [&] {
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([] {
                Call call(s_outer);
                for (int i = 0; i < 100; ++i) {
                    Call inner(s_inner);
                    text(s_inner, "text");
                    inner.leave();
                }
                call.leave();
            });
        for (std::thread &thread : threads)
            thread.join();
    });
    EXPECT_EQ("", outcome.err);
    std::size_t texts = 0;
    for (const char *name : {"trace", "trace.1"}) {
        SCOPED_TRACE(name);
        std::string json = contents(path(name));
        if (json.size() > blanks.size())
            json.erase(2, blanks.size());
        const Trace trace(json);
        EXPECT_GT(trace.count("i"), 0u);
        texts += trace.count("i");
    }
    EXPECT_EQ(400u, texts);
    EXPECT_EQ(2u, files().size());
}

TEST_F(Chrome, StandardOutputTakesTheEventsOfOneProcess) {
    const Outcome outcome = run(tracing("stdout", "chrome"), [] {
        Call call(s_outer);
        const pid_t child = fork();
        if (child == 0) {
            leaf(s_inner, false);
            std::exit(0);
        }
        EXPECT_EQ(0, statusOf(child));
        call.leave();
    });
    EXPECT_EQ("outer( ) ", Trace(outcome.out).story());
}

} // namespace
