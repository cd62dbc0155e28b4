#include <support/failalloc.h>
#include <support/traced.h>

#include <tovutil/tovtrcfn.h>
#include <tovutil/tovutil.h>

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

TOV_TRACE_FILE("tests/tovtrace");

namespace {

using tovtest::TraceRecorder;

// Where a text went, one entry a call: "FORMAT|TEXT" for the facility, with "|SIZE bytes" for a dump.
std::vector<std::string> sent(const TraceRecorder &recorder) {
    std::vector<std::string> result;
    for (const auto &event : recorder.events())
        if (event.kind == HvdTraceEvent::Text || event.kind == HvdTraceEvent::Dump)
            result.push_back(
                event.format + "|" + event.text +
                (event.kind == HvdTraceEvent::Dump ? "|" + std::to_string(event.memory.size()) : ""));
    return result;
}

TRC1_EPB s_probe = TOV_RECORD("probe", 1, TRC1_FLAG_FUNCTION);

std::string xs(std::size_t count) { return std::string(count, 'x'); }

TEST(TovTraceBuff, CutsATextByCountAlone) {
    const struct {
        std::size_t length;
        std::vector<std::string> want;
    } rows[] = {
        {0, {}},
        {71, {"%s|" + xs(71)}},
        {72, {"%s|" + xs(72)}},
        {73, {"%s|" + xs(72), "+ %s|+ x"}},
        {144, {"%s|" + xs(72), "+ %s|+ " + xs(72)}},
        {150, {"%s|" + xs(72), "+ %s|+ " + xs(72), "+ %s|+ " + xs(6)}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.length);
        for (bool unitByUnit : {false, true}) {
            TraceRecorder recorder("*=all");
            TovTraceStream stream;
            tovtraceos &os = stream.getOs(&s_probe, 7);
            if (unitByUnit)
                for (std::size_t i = 0; i < row.length; ++i)
                    os << 'x';
            else
                os << xs(row.length);
            os << std::flush << std::flush;
            EXPECT_EQ(row.want, sent(recorder));
        }
    }
}

TEST(TovTraceBuff, SendsTheMemoryWithTheLastPiece) {
    const char memory[5] = {1, 2, 3, 4, 5};
    const struct {
        std::size_t length;
        const void *address;
        std::vector<std::string> want;
    } rows[] = {
        {10, memory, {"%s|" + xs(10) + "|5"}},
        {72, memory, {"%s|" + xs(72), "+ %s|+ |5"}},
        {80, memory, {"%s|" + xs(72), "+ %s|+ " + xs(8) + "|5"}},
        {0, memory, {"%s||5"}},
        {3, nullptr, {"%s - ptr(NULL), size(%d)|xxx - ptr(NULL), size(5)"}},
        {75, nullptr, {"%s|" + xs(72), " + %s - ptr(NULL), size(%d)| + xxx - ptr(NULL), size(5)"}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.length);
        TraceRecorder recorder("*=all");
        TovTraceStream stream;
        stream.getOs(&s_probe, 7, row.address, 5) << xs(row.length) << std::flush << std::flush;
        EXPECT_EQ(row.want, sent(recorder)) << "once, also when the stream is flushed again";
    }
}

std::vector<std::string> s_calls;

void logCallback(const char *text, bool continuation) {
    s_calls.push_back(std::string(continuation ? "+" : "") + text);
}

void dumpCallback(const void *address, unsigned size, const char *text, bool continuation) {
    s_calls.push_back((continuation ? "+" : "") + std::string(text) + (address ? "@" : "@null ") +
                      std::to_string(size));
}

TEST(TovTraceBuff, GoesToStringsAndCallbacks) {
    TovTraceStream stream;
    TovString target = "before ";
    stream.getOs(target) << xs(200) << 17 << std::flush;
    EXPECT_EQ(std::string("before ") + xs(200) + "17", std::string(target));

    s_calls.clear();
    stream.getOs(logCallback) << xs(73) << std::flush;
    EXPECT_EQ((std::vector<std::string>{xs(72), "+x"}), s_calls);

    s_calls.clear();
    stream.getOs(dumpCallback, logCallback, &target, 9) << xs(73) << std::flush << "more" << std::flush;
    EXPECT_EQ((std::vector<std::string>{xs(72), "+x@9", "+more"}), s_calls);

    s_calls.clear();
    stream.getOs(dumpCallback, logCallback, nullptr, 9) << std::flush;
    EXPECT_EQ((std::vector<std::string>{"@null 9"}), s_calls);
}

TEST(TovTraceBuff, DropsTextWithoutATarget) {
    TovTraceStream unset;
    unset.getOs() << xs(300) << std::flush;
    EXPECT_FALSE(unset.getOs().fail());

    TovTraceStream stream;
    TovString target;
    stream.getOs(target) << "dropped by the next text";
    stream.getOs(target) << "kept" << std::flush << "dropped with the object";
    EXPECT_EQ("kept", target);
    EXPECT_EQ(-1, stream.getBuff().sgetc()) << "it can't be read";
}

TEST(TovTraceStream, WritesValuesInTheirForms) {
    TovTraceStream stream;
    TovString target;
    const char *null = nullptr;
    unsigned char *nullToo = nullptr;
    tovtraceos &os = stream.getOs(target);
    os << null << ' ' << nullToo << ' ' << "text" << ' ' << -1 << ' ' << 4294967295U << ' ' << true << ' '
       << static_cast<std::int8_t>('A') << ' ' << static_cast<const void *>(nullptr) << ' '
       << TovString("ab\0c", 4) << std::flush;
    EXPECT_EQ("NULL NULL text -1 4294967295 1 A 0 ab", target);

    os.setstate(std::ios::badbit);
    target.clear();
    stream.getOs(target) << "good again" << std::flush;
    EXPECT_EQ("good again", target);
}

TEST(tovTraceStr, StandsInForNull) {
    EXPECT_STREQ("{NULL}", tovTraceStr(static_cast<const char *>(nullptr)));
    EXPECT_STREQ("{NULL}", tovTraceStr(static_cast<const TovUChar *>(nullptr)).c_str());
    const char *text = "text";
    EXPECT_EQ(text, tovTraceStr(text));
    EXPECT_EQ("gr\xC3\xBC\xC3\x9F", tovTraceStr(u"gr\u00FC\u00DF"));
}

// The statements of a traced function ---------------------------------------------------------------

int s_computed;

int computed(int value) {
    ++s_computed;
    return value;
}

int tracedFunction(const char *name, bool raise) {
    TOV_TRACE_ENTER("tracedFunction", TOV_VALUE(name) << TOV_VALUE(raise));
    TOV_TRACE_STATE(TOV_VALUE(computed(1)));
    TOV_TRACE_DETAIL("plain text");
    TOV_TRACE_FLOW(TOV_NAMED("two", 2));
    TOV_TRACE_ERROR("(" << computed(3) << ")");
    TOV_TRACE_DETAIL_DUMP(name, 2, "data");
    if (raise)
        throw 1;
    return TOV_TRACE_RESULT(computed(4));
}

void tracedWithoutResult() {
    TOV_TRACE_ENTER("tracedWithoutResult");
    TOV_TRACE_LEAVE();
}

TEST(TracedFunction, WritesWhatItsLevelAsksFor) {
    const struct {
        const char *levels;
        int computed;
        std::vector<std::string> want;
    } rows[] = {
        {"tracedFunction=flow",
         1,
         {"> tracedFunction", "tracedFunction: Args - name(n) raise(0) ", "tracedFunction: Flow - two(2) ",
          "tracedFunction: Return - 4", "< tracedFunction"}},
        {"tracedFunction=state", 2, {"tracedFunction: State - computed(1)(1) "}},
        {"tracedFunction=detail",
         1,
         {"tracedFunction: Detail - plain text", "tracedFunction: Detail - data"}},
        {"tracedFunction=error", 2, {"tracedFunction: !!! Error - (3)"}},
        {"other=all", 1, {}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.levels);
        TraceRecorder recorder(row.levels);
        s_computed = 0;
        EXPECT_EQ(4, tracedFunction("n", false));
        EXPECT_EQ(row.computed, s_computed) << "no more than the result and what is written";
        EXPECT_EQ(row.want, recorder.lines());
    }
}

TEST(TracedFunction, ReportsNoExitWhenItIsLeftByAnException) {
    TraceRecorder recorder("traced*=flow");
    EXPECT_THROW(tracedFunction(nullptr, true), int);
    tracedWithoutResult();
    EXPECT_EQ((std::vector<std::string>{"> tracedFunction", "tracedFunction: Args - name(NULL) raise(1) ",
                                        "tracedFunction: Flow - two(2) ", "> tracedWithoutResult",
                                        "tracedWithoutResult: Args - ", "< tracedWithoutResult"}),
              recorder.lines());
}

TEST(TracedFunction, DescribesItselfInItsRecord) {
    TraceRecorder recorder("*=flow");
    tracedWithoutResult();
    const auto events = recorder.events();
    ASSERT_EQ(3U, events.size());
    EXPECT_EQ(events[0].line, events[1].line) << "entry and arguments are one statement";
    EXPECT_EQ(events[0].line + 1, events[2].line);
}

TEST(TracedFunction, AllocatesNothingWhenItIsOff) {
    TraceRecorder recorder("");
    tracedFunction("n", false);
    const long before = tovtest::allocationCount();
    tracedFunction("n", false);
    tracedWithoutResult();
    EXPECT_EQ(before, tovtest::allocationCount());
}

TEST(LOG, WritesThroughTheRecordOfTheFile) {
    TraceRecorder recorder("LOG=state");
    EXPECT_TRUE(LOG(TRC1_STATE));
    EXPECT_FALSE(LOG(TRC1_STATE | TRC1_FLOW));
    const TovLogCallback log = LOG;
    const TovDumpCallback dump = LOG;
    const char memory[3] = {};
    log("text", false);
    log("text", true);
    dump(memory, 3, "text", false);
    dump(memory, 3, "text", true);
    dump(nullptr, 3, "text", false);
    dump(nullptr, 3, "text", true);
    EXPECT_EQ((std::vector<std::string>{"%s|text", "+ %s|+ text", "%s|text|3", "+ %s|+ text|3",
                                        "%s - ptr(NULL), size(%d)|text - ptr(NULL), size(3)",
                                        "+ %s - ptr(NULL), size(%d)|+ text - ptr(NULL), size(3)"}),
              sent(recorder));
    EXPECT_STREQ("TOVUTIL", s_unit.unitName.text);
    EXPECT_EQ(11U, s_unit.buildDate.length);
    EXPECT_EQ(8U, s_unit.buildTime.length);
}

TEST(ValueForms, Convert16BitText) {
    EXPECT_EQ("\xE2\x82\xAC", tovdetail::traceForm(u"\u20AC"));
    EXPECT_EQ("a", tovdetail::traceForm(TovUString(u"a")));
    EXPECT_EQ("", tovdetail::traceForm(static_cast<const TovUChar *>(nullptr)));
}

} // namespace
