// The readable form, and that the output disturbs nobody, whatever becomes of it.
#include "traceprobe.h"

#include <barrier>
#include <utility>

#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>

using namespace hvdtest;

namespace {

constinit TRC1_EPB s_record = makeRecord("Tov::f");
const std::string s_controls(2000, '\x1b');
TRC1_EPB s_longNamed = makeRecord(s_controls);

std::size_t count(const std::string &text, std::string_view part) {
    std::size_t found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++found;
    return found;
}

// What stands behind time and thread.
std::vector<std::string> rests(const std::string &trace) {
    constexpr std::string_view form = "dddd-dd-ddTdd:dd:dd.ddddddZ d";
    std::vector<std::string> result;
    for (const std::string &line : linesOf(trace)) {
        bool good = line.size() > form.size();
        for (std::size_t at = 0; good && at < form.size(); ++at)
            good =
                form[at] == 'd' ? std::isdigit(static_cast<unsigned char>(line[at])) : line[at] == form[at];
        const std::size_t rest = line.find_first_not_of("0123456789", form.size());
        good = good && rest != std::string::npos && line[rest] == ' ';
        EXPECT_TRUE(good) << line;
        result.push_back(good ? line.substr(rest + 1) : line);
    }
    return result;
}

TEST_F(TraceProbe, EachEventIsALineOfTimeThreadFunctionLineAndText) {
    const Outcome outcome = run({{"HVD_TRACE", "*=all"}}, [] {
        TRC1_Sync(&s_record);
        TRC1_Event(&s_record, 184, TRC1_ENTER);
        TRC1_Printf(&s_record, 184, "%s", "Args - path(/tmp/x) %d");
        TRC1_Printf(&s_record, 185, "+ %s", "more");
        TRC1_Printf(&s_record, 186, " + %s - ptr(NULL), size(%d)", "none", 7);
        TRC1_Printf(&s_record, 187, "%s", "a\nb\tc\rd\\e\x1b\x7f\xc2\x9b\xc3\xa9");
        TRC1_Dump(&s_record, 188, "0123456789ABCDEF\n\xff", 18, "%s", "data");
        TRC1_Event(&s_record, 215, TRC1_LEAVE);
    });
    EXPECT_EQ((std::vector<std::string>{
                  "Tov::f 184 Entry",
                  "Tov::f 184 Args - path(/tmp/x) %d",
                  "Tov::f 185 + more",
                  "Tov::f 186  + none - ptr(NULL), size(7)",
                  R"(Tov::f 187 a\nb\tc\rd\\e\x1b\x7f\xc2\x9bé)",
                  "Tov::f 188 data",
                  "Tov::f 188 00000000: 30313233 34353637 38394142 43444546  0123456789ABCDEF",
                  "Tov::f 188 00000010: 0aff                                 ..",
                  "Tov::f 215 Exit",
              }),
              rests(outcome.err));
}

TEST_F(TraceProbe, LongTextsGoOnInFurtherLinesAndLoseNothing) {
    std::string text;
    for (int i = 0; i < 20000; ++i)
        text += static_cast<char>('a' + i % 26);
    for (const char *target : {"stderr", "file"}) {
        SCOPED_TRACE(target);
        const std::string file = target == std::string("file") ? path("trace").string() : target;
        const Outcome outcome = run(tracing(file), [&] {
            TRC1_Sync(&s_record);
            TRC1_Printf(&s_record, 1, "%s", text.c_str());
            TRC1_Printf(&s_record, 2, "+ %s", text.c_str());
        });
        std::string joined;
        for (const std::string &rest : rests(outcome.err + contents(path("trace"))))
            joined += rest.starts_with("Tov::f 1 + ") ? rest.substr(11) : rest;
        EXPECT_EQ("Tov::f 1 " + text, joined.substr(0, 9 + text.size()));
        EXPECT_EQ(text.size(), count(joined.substr(9 + text.size()), "a") * 26 + text.size() % 26 - 26)
            << "as many letters in the second text";
    }
}

constexpr int threadCount = 8;
constexpr int rounds = 300;
constexpr int dumpRows = 188; // of 3000 bytes

std::string ownText(int thread) {
    return std::string(static_cast<std::size_t>(50 + 300 * thread), static_cast<char>('A' + thread));
}

void traceInThreads() {
    const std::string memory(3000, 'm');
    std::barrier start(threadCount);
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t)
        threads.emplace_back([&, t] {
            start.arrive_and_wait();
            levelOf(s_record);
            const std::string text = ownText(t);
            for (int i = 0; i < rounds; ++i) {
                TRC1_Printf(&s_record, static_cast<std::uint32_t>(t), "%s", text.c_str());
                TRC1_Dump(&s_record, static_cast<std::uint32_t>(t), memory.data(), 3000, "%s", "dump");
            }
        });
    for (std::thread &thread : threads)
        thread.join();
}

// Runs `body` with a pipe as standard output, and stores what comes through it.
void throughPipe(const std::filesystem::path &file, void (*body)()) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    ASSERT_EQ(STDOUT_FILENO, dup2(ends[1], STDOUT_FILENO));
    close(ends[1]);
    std::thread reader([&] {
        std::ofstream trace(file);
        char bytes[10000];
        for (ssize_t size; (size = read(ends[0], bytes, sizeof bytes)) > 0;)
            trace.write(bytes, size);
    });
    body();
    close(STDOUT_FILENO);
    reader.join();
}

void expectWholeLines(const std::string &trace, bool dumpsTogether) {
    std::map<std::string, int> lines;
    char owner = 0;
    int missing = 0;
    for (const std::string &rest : rests(trace)) {
        ASSERT_TRUE(rest.starts_with("Tov::f ") && rest.size() > 9 && rest[7] >= '0' && rest[7] <= '7')
            << rest;
        ASSERT_TRUE(!dumpsTogether || missing <= 0 || owner == rest[7]) << "inside a dump: " << rest;
        owner = rest[7];
        const std::string_view text = std::string_view(rest).substr(9);
        missing = text == "dump" ? dumpRows : missing - 1;
        const char *kind = text == ownText(owner - '0') ? " text"
                           : text == "dump"             ? " dump"
                           : text.ends_with("mmmmmmmm") ? " row"
                                                        : " torn";
        ++lines[owner + std::string(kind)];
    }
    for (char t = '0'; t < '0' + threadCount; ++t) {
        EXPECT_EQ(rounds, lines[t + std::string(" text")]);
        EXPECT_EQ(rounds, lines[t + std::string(" dump")]);
        EXPECT_EQ(rounds * dumpRows, lines[t + std::string(" row")]);
    }
    EXPECT_EQ(3u * threadCount, lines.size());
}

// In a file the lines of one dump stand together, too.
TEST_F(TraceProbe, ThreadsNeverTearEachOthersLines) {
    run(tracing(path("file")), traceInThreads);
    expectWholeLines(contents(path("file")), true);
    run(tracing("stdout"), [&] { throughPipe(path("pipe"), traceInThreads); });
    expectWholeLines(contents(path("pipe")), false);
}

// Targets ------------------------------------------------------------------------------------------------

void traceABit() {
    for (int i = 0; i < 3; ++i) {
        Call call(s_record);
        errno = 77;
        TRC1_Printf(&s_record, 11, "%s", "text");
        EXPECT_EQ(77, errno);
        TRC1_Dump(&s_record, 12, "memory", 6, "+ %s", "");
        EXPECT_EQ(77, errno);
        call.leave();
        EXPECT_EQ(77, errno);
    }
}

TEST_F(TraceProbe, FaultsOfTheOutputAreReportedOnceAndDisturbNobody) {
    std::filesystem::create_directory(path("folder"));
    std::filesystem::create_symlink("target", path("link"));
    std::ofstream(path("file")) << "text of someone else";
    const struct {
        const char *why;
        std::string file;
        std::function<void()> before;
        const char *report;
    } rows[] = {
        {"full disk", "/dev/full", [] {}, "No space left on device"},
        {"no such folder", path("none/trace"), [] {}, "No such file or directory"},
        {"a folder", path("folder"), [] {}, "Is a directory"},
        {"a symbolic link", path("link"), [] {}, "Too many levels of symbolic links"},
        {"a file in place of a folder", path("file/trace"), [] {}, "Not a directory"},
        {"the process may not write so large a file", path("small"),
         [] {
             const rlimit none{100, 100};
             setrlimit(RLIMIT_FSIZE, &none);
         },
         "File too large"},
        {"closed standard output", "stdout", [] { close(STDOUT_FILENO); }, "Bad file descriptor"},
    };
    for (const auto &row : rows)
        for (const char *format : {"text", "chrome"}) {
            SCOPED_TRACE(std::string(row.why) + ", " + format);
            const Outcome outcome = run(tracing(row.file, format), [&] {
                row.before();
                traceABit();
            });
            EXPECT_EQ(1u, count(outcome.err, row.report)) << outcome.err;
            EXPECT_EQ(1u, linesOf(outcome.err).size()) << outcome.err;
            std::filesystem::remove(path("small"));
        }
    EXPECT_FALSE(std::filesystem::exists(path("target")));
}

void traceIntoABrokenPipe() {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    dup2(ends[1], STDOUT_FILENO);
    close(ends[0]);
    close(ends[1]);
    traceABit();
}

bool hasPendingPipeSignal() {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
}

TEST_F(TraceProbe, ABrokenPipeEndsNobody) {
    const Outcome outcome = run(tracing("stdout"), [] {
        traceIntoABrokenPipe();
        EXPECT_FALSE(hasPendingPipeSignal());
    });
    EXPECT_EQ(1u, count(outcome.err, "Broken pipe")) << outcome.err;
    run(tracing("stdout"), [] {
        sigset_t one;
        sigemptyset(&one);
        sigaddset(&one, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &one, nullptr);
        raise(SIGPIPE);
        traceIntoABrokenPipe();
        EXPECT_TRUE(hasPendingPipeSignal()) << "the program's own";
    });
}

void fillPipe(int descriptor) {
    fcntl(descriptor, F_SETFL, O_NONBLOCK);
    for (const std::size_t size : {std::size_t{4096}, std::size_t{1}})
        while (write(descriptor, std::string(size, 'x').data(), size) > 0) {
        }
    fcntl(descriptor, F_SETFL, 0);
}

// Also one whose handler traces: it may come while its thread opens the output.
TEST_F(TraceProbe, ASignalEndsWhoWaitsForTheReaderOfAFullPipe) {
    const struct {
        const char *format;
        bool fullBefore;
        void (*handler)(int);
    } rows[] = {
        {"text", false, [](int) { _exit(0); }},
        {"text", true, [](int) { _exit(0); }},
        {"chrome", false, [](int) { Call(s_record).leave(), _exit(0); }},
        {"chrome", true, [](int) { Call(s_record).leave(), _exit(0); }},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.format) + (row.fullBefore ? ", full before" : ", full by tracing"));
        run(tracing("stdout", row.format), [&] {
            int ends[2];
            ASSERT_EQ(0, pipe(ends));
            dup2(ends[1], STDOUT_FILENO);
            if (row.fullBefore)
                fillPipe(STDOUT_FILENO);
            struct sigaction action {};
            action.sa_handler = row.handler;
            sigaction(SIGALRM, &action, nullptr);
            const itimerval soon{{}, {0, 300'000}};
            setitimer(ITIMER_REAL, &soon, nullptr);
            for (;;)
                traceABit();
        });
    }
}

// A program that closes all descriptors and opens its own gets the same numbers.
TEST_F(TraceProbe, NeverWritesIntoWhatTheProgramOpensInItsPlace) {
    for (const char *format : {"text", "chrome"})
        for (const std::string &file :
             {path("trace").string(), std::string("stderr"), std::string("stdout")}) {
            SCOPED_TRACE(file + ", " + format);
            run(tracing(file, format), [&] {
                traceABit();
                for (int descriptor = 1; descriptor < 100; ++descriptor)
                    close(descriptor);
                for (int descriptor = 1; descriptor < 100; ++descriptor)
                    open(path("precious").c_str(), O_RDWR | O_CREAT, 0600);
                traceABit();
            });
            const std::string precious = contents(path("precious"));
            EXPECT_EQ(std::string::npos, precious.find("text")) << precious;
            for (const char *left : {"precious", "trace"})
                std::filesystem::remove(path(left));
        }
}

TEST_F(TraceProbe, AFileNeverBecomesAStandardStream) {
    run(tracing(path("trace")), [] {
        for (int descriptor : {0, 1, 2})
            close(descriptor);
        traceABit();
        for (int descriptor : {0, 1, 2})
            EXPECT_EQ(-1, fcntl(descriptor, F_GETFD));
    });
    EXPECT_EQ(15u, rests(contents(path("trace"))).size());
}

// How many descriptors of this process are open on the file and stay open in a program that it starts.
std::pair<int, int> descriptorsOf(const std::filesystem::path &file) {
    int open = 0;
    int inherited = 0;
    struct stat wanted, status;
    EXPECT_EQ(0, stat(file.c_str(), &wanted));
    for (int descriptor = 0; descriptor < 100; ++descriptor)
        if (fstat(descriptor, &status) == 0 && status.st_ino == wanted.st_ino) {
            ++open;
            inherited += (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0;
        }
    return {open, inherited};
}

TEST_F(TraceProbe, AFileIsAppendedToAndItsOwnersAlone) {
    for (int runs = 0; runs < 2; ++runs) {
        run({{"HVD_TRACE", "*=flow"}, {"HVD_TRACE_FILE", "trace"}}, [&] {
            umask(0);
            std::filesystem::current_path(path("."));
            levelOf(s_record);
            std::filesystem::current_path("/");
            Call(s_record).leave();
            EXPECT_EQ(std::pair(1, 0), descriptorsOf(path("trace")));
        });
    }
    EXPECT_EQ(4u, rests(contents(path("trace"))).size());
    struct stat status;
    ASSERT_EQ(0, stat(path("trace").c_str(), &status));
    EXPECT_EQ(0600u, status.st_mode & 0777);
}

// Starts processes at once, each of which traces in several threads.
void traceInProcesses(const std::filesystem::path &start) {
    std::vector<pid_t> children;
    for (int c = 0; c < 4; ++c) {
        children.push_back(fork());
        if (children.back() != 0)
            continue;
        while (!std::filesystem::exists(start)) {
        }
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([] {
                for (int i = 0; i < 10; ++i)
                    TRC1_Printf(&s_record, 1, "%s", "text");
            });
        for (std::thread &thread : threads)
            thread.join();
        _exit(0);
    }
    const std::ofstream now(start);
    for (pid_t child : children)
        EXPECT_EQ(0, TraceProbe::statusOf(child));
}

// The size is made up: the file has a hole. All notice at once, but only one may rename it: the next one
// would rename the new file, and the full one would be lost.
TEST_F(TraceProbe, AFullFileIsRenamedOnceAndBegunAnew) {
    constexpr std::uintmax_t limit = std::uintmax_t{64} << 20;
    for (const std::uintmax_t size : {limit, limit - 1000})
        for (int round = 0; round < 20; ++round) {
            SCOPED_TRACE(round);
            for (const char *name : {"start", "trace", "trace.1"})
                std::filesystem::remove(path(name));
            std::ofstream(path("trace")) << "former\n";
            std::filesystem::resize_file(path("trace"), size);
            const Outcome outcome = run(tracing(path("trace")), [&] {
                levelOf(s_record);
                traceInProcesses(path("start"));
            });
            EXPECT_EQ("", outcome.err);
            std::ifstream full(path("trace.1"));
            std::string former;
            std::getline(full, former);
            ASSERT_EQ("former", former);
            full.seekg(static_cast<std::streamoff>(size));
            const std::string rest{std::istreambuf_iterator<char>(full), {}};
            EXPECT_EQ(160u, count(rest, " text\n") + count(contents(path("trace")), " text\n"));
        }
}

TEST_F(TraceProbe, AnUnknownFormatIsReportedAndTextIsWritten) {
    const Outcome outcome = run({{"HVD_TRACE", "*=flow"}, {"HVD_TRACE_FORMAT", "xml"}}, [] {
        Call(s_record).leave();
        Call(s_record).leave();
    });
    EXPECT_EQ(1u, count(outcome.err, "HVD_TRACE_FORMAT: unknown format \"xml\""));
    EXPECT_EQ(5u, linesOf(outcome.err).size());
}

// Any time, any thread -------------------------------------------------------------------------------------

struct Late {
    ~Late() { TRC1_Printf(&s_record, 1, "%s", text); }
    const char *text;
};

TEST_F(TraceProbe, DestructorsOfThreadsAndStaticsMayTrace) {
    for (const char *format : {"text", "chrome"}) {
        SCOPED_TRACE(format);
        const Outcome outcome = run(tracing("stderr", format), [] {
            levelOf(s_record);
            static Late s_late{"from a static"};
            std::thread([] {
                thread_local Late late;
                late.text = "from a thread";
            }).join();
            pthread_key_t key;
            pthread_key_create(&key, [](void *) { TRC1_Printf(&s_record, 1, "%s", "from a key"); });
            std::thread([key] {
                TRC1_Printf(&s_record, 1, "%s", "early");
                pthread_setspecific(key, &s_record);
            }).join();
        });
        for (const char *text : {"from a static", "from a thread", "from a key"})
            EXPECT_EQ(1u, count(outcome.err, text)) << outcome.err;
    }
}

TEST_F(TraceProbe, CancellationAndSignalHandlersWaitForTheEndOfAnEvent) {
    for (const char *format : {"text", "chrome"}) {
        SCOPED_TRACE(format);
        run(tracing(path("trace"), format), [] {
            levelOf(s_record);
            struct sigaction action {};
            action.sa_handler = [](int) { TRC1_Printf(&s_record, 2, "%s", "handler"); };
            sigaction(SIGUSR1, &action, nullptr);
            std::thread busy([] {
                for (int i = 0; i < 2000; ++i)
                    TRC1_Printf(&s_record, 1, "%s", "thread");
            });
            std::thread cancelled([] {
                for (;;)
                    TRC1_Printf(&s_record, 3, "%s", "cancelled"), pthread_testcancel();
            });
            for (int i = 0; i < 200; ++i)
                pthread_kill(busy.native_handle(), SIGUSR1);
            pthread_cancel(cancelled.native_handle());
            busy.join();
            cancelled.join();
        });
        EXPECT_EQ(2000u, count(contents(path("trace")), "thread"));
        EXPECT_LE(1u, count(contents(path("trace")), "handler"));
        std::filesystem::remove(path("trace"));
    }
}

struct Seen {
    static void take(void *context, const HvdTraceEvent &event) {
        static_cast<Seen *>(context)->events.push_back(
            std::to_string(event.kind) + " " + std::to_string(event.line) + " " +
            (event.format ? event.format : "-") + " " + (event.text ? event.text : "-") + " " +
            std::string(static_cast<const char *>(event.address), event.size));
        errno = 5;
    }
    std::vector<std::string> events;
};

// Exhausted memory ----------------------------------------------------------------------------------------

#if !defined(__SANITIZE_ADDRESS__) && !defined(TOV_THREAD_SANITIZER) // their own memory has no limit
/// Holds all memory that this process can get while it lives.
class NoMemory {
public:
    NoMemory() {
        volatile char stack[1 << 18]; // the stack could not grow any more, either
        for (std::size_t at = 0; at < sizeof stack; at += 1024)
            stack[at] = 0;
        getrlimit(RLIMIT_AS, &m_limit);
        const rlimit none{0, m_limit.rlim_max};
        setrlimit(RLIMIT_AS, &none);
        for (std::size_t size = std::size_t{1} << 24; size >= sizeof(void *); size /= 2)
            while (void *block = std::malloc(size)) {
                *static_cast<void **>(block) = m_blocks;
                m_blocks = block;
            }
    }
    ~NoMemory() {
        setrlimit(RLIMIT_AS, &m_limit);
        while (m_blocks)
            std::free(std::exchange(m_blocks, *static_cast<void **>(m_blocks)));
    }
    NoMemory(const NoMemory &) = delete;
    NoMemory &operator=(const NoMemory &) = delete;

private:
    rlimit m_limit{};
    void *m_blocks = nullptr;
};

// With the file's beginning, a full file, and an event that doesn't fit the stack.
TEST_F(TraceProbe, ThreadsMayHaveTheLeastStack) {
    for (const char *format : {"text", "chrome"}) {
        SCOPED_TRACE(format);
        const Outcome outcome = run(tracing(path("trace"), format), [&] {
            pthread_attr_t attributes;
            pthread_attr_init(&attributes);
            ASSERT_EQ(0, pthread_attr_setstacksize(&attributes, static_cast<std::size_t>(PTHREAD_STACK_MIN)));
            const std::filesystem::path file = path("trace");
            pthread_t thread;
            const auto body = [](void *trace) -> void * {
                static char memory[5000];
                Call call(s_record);
                if (truncate(static_cast<const char *>(trace), off_t{65} << 20) == 0)
                    TRC1_Dump(&s_record, 1, memory, sizeof memory, "%s", "dump");
                call.leave();
                return nullptr;
            };
            ASSERT_EQ(0, pthread_create(&thread, &attributes, body, const_cast<char *>(file.c_str())));
            pthread_join(thread, nullptr);
        });
        EXPECT_EQ("", outcome.err);
        EXPECT_EQ(1u, count(contents(path("trace")), "dump"));
        std::filesystem::remove(path("trace"));
    }
}

TEST_F(TraceProbe, ExhaustedMemoryDisturbsNobody) {
    const std::string longText(50000, 'x');
    for (const char *format : {"text", "chrome"})
        for (const bool early : {true, false}) {
            SCOPED_TRACE(std::string(format) + (early ? ", tracing before" : ", from the first event on"));
            run(tracing(path("trace"), format), [&] {
                if (early)
                    traceABit();
                {
                    const NoMemory none;
                    traceABit();
                    TRC1_Printf(&s_record, 30, "+ %s", longText.c_str());
                    TRC1_Dump(&s_record, 31, longText.data(), 50000, "%s", "long");
                    TRC1_Printf(&s_longNamed, 32, "%s", "text");
                    hvdTraceSetSink(Seen::take, nullptr);
                    hvdTraceSetLevels("*=flow,Other=all");
                }
                traceABit();
            });
            const std::string trace = contents(path("trace"));
            if (format == std::string("text")) {
                EXPECT_EQ(early ? 9u : 3u, count(trace, " Entry\n"));
                EXPECT_EQ(early ? 3125u : 0u, count(trace, "78787878 78787878 78787878 78787878"));
                rests(trace);
            } else {
                EXPECT_EQ("\n]\n", trace.substr(trace.size() - 3));
                EXPECT_EQ(count(trace, "\"ph\":\"B\""), count(trace, "\"ph\":\"E\""));
            }
            std::filesystem::remove(path("trace"));
        }
}
#endif

// The sink ------------------------------------------------------------------------------------------------

TEST_F(TraceProbe, ASinkGetsEveryEventInPlaceOfTheOutput) {
    const Outcome outcome = run({{"HVD_TRACE", "*=all"}}, [] {
        Seen first, second;
        const std::string longText(2000, 'x');
        levelOf(s_record);
        hvdTraceSetSink(Seen::take, &first);
        errno = 77;
        TRC1_Event(&s_record, 1, TRC1_ENTER);
        TRC1_Printf(&s_record, 2, "%s", "%d");
        TRC1_Printf(&s_record, 3, "%s - ptr(NULL), size(%d)", "t", -1);
        hvdTraceSetSink(Seen::take, &second);
        TRC1_Printf(&s_record, 4, "+ %s", longText.c_str());
        TRC1_Dump(&s_record, 5, "abc", 3, "+ %s", "t");
        TRC1_Event(&s_record, 6, TRC1_LEAVE);
        EXPECT_EQ(77, errno);
        hvdTraceSetSink(nullptr, nullptr);
        EXPECT_EQ((std::vector<std::string>{"0 1 - - ", "2 2 %s %d ",
                                            "2 3 %s - ptr(NULL), size(%d) t - ptr(NULL), size(-1) "}),
                  first.events);
        EXPECT_EQ((std::vector<std::string>{"2 4 + %s + " + longText + " ", "3 5 + %s + t abc", "1 6 - - "}),
                  second.events);
    });
    EXPECT_EQ("", outcome.err);
}

} // namespace
