// The loader of dirload on small texts, and the program on what its generator makes.
#include <examples/dirload/loader.h>
#include <support/failalloc.h>
#include <support/random.h>

#include <tovutil/tovutf8.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/wait.h>

namespace {

using namespace std::string_literals;
using nlohmann::json;

// A source that gives its bytes in pieces.
class Text : public ByteSource {
public:
    Text(std::string_view text, std::size_t piece) : m_rest(text), m_piece(piece) {}
    std::size_t read(char *buffer, std::size_t size) override {
        const std::size_t count = m_rest.copy(buffer, std::min(size, m_piece));
        m_rest.remove_prefix(count);
        return count;
    }

private:
    std::string_view m_rest;
    std::size_t m_piece;
};

std::string utf8(std::u16string_view text) { return std::string(tovToLdapString(TovUString(text))); }

// Entries as "dn|name=value|...", problems as "line:column NAME".
struct Loaded : LoadSink {
    void entry(const Entry &entry) override {
        std::string text = utf8(entry.dn);
        for (const Attribute &attribute : entry.attributes)
            text += "|" + utf8(attribute.name) + "=" + utf8(attribute.value);
        entries.push_back(text);
    }
    void problem(const TovErrorFull &error) override {
        std::istringstream text(std::string(error.getErrString()));
        std::string file, line, column;
        std::getline(std::getline(std::getline(text, file, ':'), line, ':'), column, ':');
        const char *name = c_faults[error.getReturnCode() - c_firstFault].name;
        problems.push_back(line + ":" + column + " " + name);
    }

    std::vector<std::string> entries;
    std::vector<std::string> problems;
    Totals totals;
};

const char *refuse(TovUniString &value) { return value == u"bad" ? "no good" : nullptr; }
constexpr DirloadAttribute c_plugin[] = {{"checked", refuse}, {nullptr, nullptr}};

constexpr std::size_t c_limit = 100; // of a line

Loaded load(std::string_view text, std::size_t piece) {
    Loaded loaded;
    Loader loader(loaded, c_plugin);
    Text source(text, piece);
    loader.load(source, "file", c_limit);
    loaded.totals = loader.totals();
    return loaded;
}

using Lines = std::vector<std::string>;

TEST(Dirload, ReadsAllFormsOfWellFormedText) {
    const struct {
        const char *why;
        std::string text;
        Lines entries;
    } rows[] = {
        {"nothing", "", {}},
        {"a version alone", "version: 1", {}},
        {"no final newline", "dn: cn=a\nsn: b", {"cn=a|sn=b"}},
        {"no blank after the colon, several, and one behind", "dn:cn=a\nsn:   b ", {"cn=a|sn=b "}},
        {"no value", "dn: cn=a\nsn:\nsn: \nsn::", {"cn=a|sn=|sn=|sn="}},
        {"the root", "dn:\nsn: b", {"|sn=b"}},
        {"CR LF", "version: 1\r\ndn: cn=a\r\nsn: b\r\n\r\n\r\ndn: cn=c\r\n", {"cn=a|sn=b", "cn=c"}},
        {"folds, one in the name, one without text", "dn: c\n n=a\nde\n sc: x\n \n  y", {"cn=a|desc=x y"}},
        {"folds with CR LF", "dn: cn=a\r\nsn: b\r\n c\r\n", {"cn=a|sn=bc"}},
        {"comments, folded too", "# x\n y\ndn: cn=a\n#z\nsn: b\n# e\n", {"cn=a|sn=b"}},
        {"base64 of all lengths",
         "dn:: Y249YQ==\nsn:: YWI=\nsn:: YWJj\nsn:: YWJj\n ZA==",
         {"cn=a|sn=ab|sn=abc|sn=abcd"}},
        {"a NUL in base64", "dn: cn=a\nsn:: YQBi", {"cn=a|sn=a\0b"s}},
        {"UTF-8, folded inside a character", "dn: cn=a\nsn: \xC3\n \xA4\xF0\x9F\x98\x80", {"cn=a|sn=ä😀"}},
        {"options are no part of the name",
         "dn: cn=a\nsn;lang-de;x-1: b\n2.5.4.4;x: c",
         {"cn=a|sn=b|2.5.4.4=c"}},
        {"binary values are counted only",
         "dn: cn=a\nJPEGPHOTO:: //8=\nx;Binary:: //8=\nsn: b",
         {"cn=a|sn=b"}},
        {"names of entries as values", "dn: cn=a\nManager: CN = B , DC=C", {"cn=a|Manager=cn=b,dc=c"}},
        {"a colon and a # in a value", "dn: cn=a\nsn: #b:c", {"cn=a|sn=#b:c"}},
        {"the longest line",
         "dn: cn=a\nsn: " + std::string(c_limit - 4, 'x') + "\nsn: b",
         {"cn=a|sn=" + std::string(c_limit - 4, 'x') + "|sn=b"}},
        {"a comment of any length", "dn: cn=a\n#" + std::string(1000, 'x') + "\nsn: b", {"cn=a|sn=b"}},
    };
    for (const auto &row : rows)
        for (const std::size_t piece : {1U, 7U, 100000U}) {
            SCOPED_TRACE(row.why + ", in pieces of "s + std::to_string(piece));
            const Loaded loaded = load(row.text, piece);
            EXPECT_EQ(row.entries, loaded.entries);
            EXPECT_EQ(Lines(), loaded.problems);
            EXPECT_EQ(row.entries.size(), loaded.totals.entries);
        }
}

// Each text stands between two good entries; lines are counted from its own first.
TEST(Dirload, ReportsEachFaultAtItsPlaceAndLosesNothingElse) {
    const std::string before = "version: 1\ndn: cn=before\nsn: b\n\n";
    const std::string behind = "\n\ndn: cn=behind\nsn: b\n";
    const struct {
        const char *why;
        std::string text;
        Lines problems;
        Lines entries;
    } rows[] = {
        {"a second version", "version: 1\n", {"1:1 MISSING_DN"}, {}},
        {"no DN", "cn: a\nsn: b", {"1:1 MISSING_DN"}, {}},
        {"two records in one",
         "dn: cn=a\nsn: b\nDN: cn=c\nsn: d",
         {"3:1 MISSING_SEPARATOR"},
         {"cn=a|sn=b", "cn=c|sn=d"}},
        {"a bad DN in the middle of a record, whose values are not those of the first",
         "dn: cn=a\nsn: b\ndn:: *\nsn: d",
         {"3:1 MISSING_SEPARATOR", "3:6 BAD_BASE64"},
         {"cn=a|sn=b"}},
        {"a continuation of nothing", " x\n y\ndn: cn=a", {"1:1 STRAY_CONTINUATION"}, {"cn=a"}},
        {"no colon", "dn: cn=a\nnone\nsn: b", {"2:5 MISSING_COLON"}, {"cn=a|sn=b"}},
        {"no colon, folded", "dn: cn=a\nno\n ne\nsn: b", {"3:4 MISSING_COLON"}, {"cn=a|sn=b"}},
        {"no name", "dn: cn=a\n: x\nsn: b", {"2:1 BAD_ATTRIBUTE"}, {"cn=a|sn=b"}},
        {"a name that can't be", "dn: cn=a\nb_d: x\nsn: b", {"2:2 BAD_ATTRIBUTE"}, {"cn=a|sn=b"}},
        {"empty options",
         "dn: cn=a\nsn;: x\nsn;;b: y\nsn;.: z\nsn: b",
         {"2:4 BAD_ATTRIBUTE", "3:4 BAD_ATTRIBUTE", "4:4 BAD_ATTRIBUTE"},
         {"cn=a|sn=b"}},
        {"a value at a URL", "dn: cn=a\nphoto:< file:///x\nsn: b", {"2:7 URL_VALUE"}, {"cn=a|sn=b"}},
        {"no base64 digit", "dn: cn=a\nsn:: YW*j\nsn: b", {"2:8 BAD_BASE64"}, {"cn=a|sn=b"}},
        {"no base64 digit behind a fold", "dn: cn=a\nsn:: YW\n J*\nsn: b", {"3:3 BAD_BASE64"}, {"cn=a|sn=b"}},
        {"base64 cut off",
         "dn: cn=a\nsn:: YWJjZ\nsn:: YWJj=\nsn: b",
         {"2:11 BAD_BASE64", "3:11 BAD_BASE64"},
         {"cn=a|sn=b"}},
        {"padding alone, too much, too early",
         "dn: cn=a\nsn:: ====\nsn:: Y===\nsn:: YQ==YQ==\nsn: b",
         {"2:6 BAD_BASE64", "3:7 BAD_BASE64", "4:8 BAD_BASE64"},
         {"cn=a|sn=b"}},
        {"a DN in bad base64", "dn:: *\nsn: b", {"1:6 BAD_BASE64"}, {}},
        {"NUL and CR",
         "dn: cn=a\nsn: a\0b\nsn: a\rb\nsn: b"s,
         {"2:6 UNSAFE_BYTE", "3:6 UNSAFE_BYTE"},
         {"cn=a|sn=b"}},
        {"a line above the limit",
         "dn: cn=a\nsn: " + std::string(c_limit - 3, 'x') + "\nsn: b",
         {"2:101 LINE_TOO_LONG"},
         {"cn=a|sn=b"}},
        {"above the limit by folds",
         "dn: cn=a\nsn: " + std::string(c_limit - 4, 'x') + "\n x\n \nsn: b",
         {"4:2 LINE_TOO_LONG"},
         {"cn=a|sn=b"}},
        {"a DN above the limit", "dn: " + std::string(1000, 'x') + "\nsn: b", {"1:101 LINE_TOO_LONG"}, {}},
        {"a change", "dn: cn=a\nsn: b\nchangetype: modify\nadd: sn\nsn: x\n-\n", {"3:1 CHANGE_RECORD"}, {}},
        {"UTF-8 cut off, overlong, a surrogate",
         "dn: cn=a\nsn: b\xC3\nsn: \xC1\x81\nsn: \xED\xA0\x80\nsn: b",
         {"2:6 BAD_UTF8", "3:5 BAD_UTF8", "4:5 BAD_UTF8"},
         {"cn=a|sn=b"}},
        {"bad UTF-8 in the second group of base64",
         "dn: cn=a\nsn:: YWJj\n gGFi\nsn: b",
         {"3:2 BAD_UTF8"},
         {"cn=a|sn=b"}},
        {"bad UTF-8 in a DN", "dn: cn=\xFF\nsn: b", {"1:8 BAD_UTF8"}, {}},
        {"names without a type, an =, an end",
         "dn: =x\n\ndn: x\n\ndn: cn=a,\n\ndn: cn=a\\\n\ndn: cn=a,b\\\n",
         {"1:5 BAD_DN", "3:5 BAD_DN", "5:5 BAD_DN", "7:5 BAD_DN", "9:5 BAD_DN"},
         {}},
        {"a name as a value",
         "dn: cn=a\nowner: x\nowner: cn=\\FF\nsn: b",
         {"2:8 BAD_DN", "3:8 BAD_DN"},
         {"cn=a|sn=b"}},
        {"what the plug-in refuses",
         "dn: cn=a\nchecked: good\nCHECKED: bad\nsn: b",
         {"3:10 BAD_VALUE"},
         {"cn=a|checked=good|sn=b"}},
    };
    for (const auto &row : rows)
        for (const std::size_t piece : {1U, 7U, 100000U}) {
            SCOPED_TRACE(row.why + ", in pieces of "s + std::to_string(piece));
            Lines problems = row.problems;
            for (std::string &problem : problems)
                problem = std::to_string(std::stoi(problem) + 4) + problem.substr(problem.find(':'));
            Lines entries = row.entries;
            entries.insert(entries.begin(), "cn=before|sn=b");
            entries.emplace_back("cn=behind|sn=b");
            const Loaded loaded = load(before + row.text + behind, piece);
            EXPECT_EQ(problems, loaded.problems);
            EXPECT_EQ(entries, loaded.entries);
        }
    EXPECT_EQ((Lines{"1:10 BAD_VERSION"}), load("version: 2\n" + before.substr(11), 7).problems);
}

TEST(Dirload, GivesNamesOneForm) {
    const struct {
        const char *why;
        const char *dn;
        const char *normal;
    } rows[] = {
        {"blanks and capitals", " CN = Anna  Ä , DC=x ", "cn=anna  ä,dc=x"},
        {"two values in a part", "cn=a + uid=1;dc=x", "cn=a+uid=1,dc=x"},
        {"escapes it needs", R"(cn=a\,b\+c\=d\;e\#f)", R"(cn=a\,b\+c\=d\;e\#f)"},
        {"escapes it does not need", R"(cn=\a\"\<)", R"(cn=a"<)"},
        {"a backslash", R"(cn=a\\)", R"(cn=a\\)"},
        {"hexadecimal digits", R"(cn=Lu\C4\8Di\c4\87\2C\5C)", R"(cn=lučić\,\\)"},
        {"an escape that only begins like digits", R"(cn=\a,dc=\b)", "cn=a,dc=b"},
        {"an escaped blank at the end", R"(cn=a\ ,dc=x)", "cn=a,dc=x"},
        {"a separator in digits", R"(cn=a\2Cdc=b)", R"(cn=a\,dc\=b)"},
        {"the hexadecimal form of a value", "1.2=#04AB", "1.2=#04ab"},
        {"an = that needs no escape", "cn=a=b", R"(cn=a\=b)"},
    };
    DnCache cache(2);
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        const std::string normal = utf8(normalDn(row.dn));
        EXPECT_EQ(row.normal, normal);
        EXPECT_EQ(normal, utf8(normalDn(normal)));
        EXPECT_EQ(normal, utf8(cache.normalOfEntry(row.dn)));
        EXPECT_EQ(normal, utf8(cache.normal(row.dn)));
    }
    EXPECT_EQ(0U, DnCache(1).hits());
}

TEST(Dirload, KnowsTheLatestNames) {
    const std::string text = "dn: cn=1,dc=a\n\ndn: cn=2,dc=a\nowner: dc=a\nowner: dc=b\nowner: x\n";
    const Loaded loaded = load(text, 100000);
    EXPECT_EQ(2U, loaded.totals.cacheHits);
    EXPECT_EQ(2U, loaded.totals.cacheMisses);
}

// Memory --------------------------------------------------------------------------------------------------

const std::string s_mixed =
    "dn: cn=1,dc=a\nsn: \xC3\xA4\ndescription: " + std::string(60, 'x') + "\n " + std::string(600, 'y') +
    "\nowner: cn=\\C3\\A4\nowner: open\\\nsn:: *\nchecked: bad\n\ndn: cn=2,dc=a\nsn: \xFF\n\ncn: x\n";

TEST(DirloadWithoutMemory, EachAllocationFails) {
    const Totals expected = load(s_mixed, 100000).totals;
    tovtest::failEachAllocation<TovError, std::bad_alloc>(
        [] { return tovtest::liveAllocations(); },
        [&](long) {
            const Totals totals = load(s_mixed, 100000).totals;
            EXPECT_EQ(expected, totals);
        },
        [](long before) { EXPECT_EQ(before, tovtest::liveAllocations()); });
}

// The same loader goes on after a failure.
TEST(DirloadWithoutMemory, AnyAllocationFails) {
    std::mt19937_64 random = tovtest::generator();
    Loaded sink;
    Loader loader(sink, c_plugin);
    std::string text;
    for (int i = 0; i < 20; ++i)
        text += s_mixed + "\n";
    int failures = 0;
    for (int round = 0; round < 300; ++round) {
        const std::uint64_t before = loader.totals().entries;
        Text source(text, 1000);
        bool raised = false;
        try {
            const tovtest::FailingAllocation failing(1 + static_cast<long>(tovtest::below(random, 8000)),
                                                     tovtest::below(random, 2) == 0);
            loader.load(source, "file");
        } catch (const TovError &) {
            raised = true;
        } catch (const std::bad_alloc &) {
            raised = true;
        }
        failures += raised;
        EXPECT_TRUE(raised || loader.totals().entries == before + 40);
    }
    EXPECT_GT(failures, 0);
}

// The program ---------------------------------------------------------------------------------------------

struct Result {
    int exitCode;
    std::string output;
    std::string errors;
};

class DirloadProgram : public testing::Test {
protected:
    static void SetUpTestSuite() {
        std::string pattern = testing::TempDir() + "dirloadXXXXXX";
        ASSERT_TRUE(mkdtemp(pattern.data()));
        s_folder = pattern;
    }
    static void TearDownTestSuite() { std::filesystem::remove_all(s_folder); }

    static std::string readAll(const char *name) {
        std::ifstream file(s_folder / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    // A command of the shell, in the test's folder.
    static Result run(const std::string &command) {
        const std::string line = "cd '" + s_folder.string() + "' && { " + command + "; } >out 2>err";
        const int status = std::system(line.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readAll("out"), readAll("err")};
    }

    // Makes a file, and gives what must be found in it.
    static json generate(const std::string &arguments, const std::string &name) {
        const Result result = run("\"$LDIFGEN\" " + arguments + " >" + name);
        EXPECT_EQ(0, result.exitCode);
        return json::parse(result.errors);
    }

    static void write(const char *name, std::string_view text) { std::ofstream(s_folder / name) << text; }

    static std::filesystem::path s_folder;
};

std::filesystem::path DirloadProgram::s_folder;

void expectFound(const json &expected, const json &found) {
    for (const char *key : {"entries", "attributes", "errors"})
        EXPECT_EQ(expected[key], found[key]);
    EXPECT_EQ(expected["names"], found["cacheHits"].get<int>() + found["cacheMisses"].get<int>());
}

TEST_F(DirloadProgram, FindsAllThatWasGenerated) {
    for (const char *faults : {"0", "30"}) {
        SCOPED_TRACE(faults);
        const std::string options = "--entries 3000 --seed "s + std::to_string(tovtest::seed() % 1000);
        const json expected = generate(options + " --faults " + faults, "some.ldif");
        const Result fromFile = run("\"$DIRLOAD\" --json --plugin \"$DIRLOAD_PLUGIN\" some.ldif");
        EXPECT_EQ(0, fromFile.exitCode);
        expectFound(expected, json::parse(fromFile.output));
        const Result fromPipe = run("sed 's/$/\\r/' some.ldif | \"$DIRLOAD\" --json -");
        expectFound(expected, json::parse(fromPipe.output));
    }
}

TEST_F(DirloadProgram, DividesFilesAmongThreads) {
    json expected = {{"entries", 0}, {"attributes", 0}, {"names", 0}, {"errors", json::object()}};
    std::string names;
    for (int i = 0; i < 11; ++i) {
        names += " " + std::to_string(i) + ".ldif";
        const json one =
            generate("--entries 500 --faults 10 --seed " + std::to_string(i), std::to_string(i) + ".ldif");
        for (const char *key : {"entries", "attributes", "names"})
            expected[key] = expected[key].get<int>() + one[key].get<int>();
        for (const auto &[name, count] : one["errors"].items())
            expected["errors"][name] = expected["errors"].value(name, 0) + count.get<int>();
    }
    const Result result = run("\"$DIRLOAD\" --json --threads 8 --plugin \"$DIRLOAD_PLUGIN\"" + names);
    EXPECT_EQ(0, result.exitCode);
    expectFound(expected, json::parse(result.output));
}

TEST_F(DirloadProgram, ReportsAnErrorWithItsCauses) {
    write("bad.ldif", "dn: cn=a\ntelephoneNumber: 12\x1B\nmail: a@B.C\nmobile: (+49) 30-123/456\nmail: x\n");
    const Result result = run("\"$DIRLOAD\" --plugin \"$DIRLOAD_PLUGIN\" bad.ldif");
    EXPECT_EQ(0, result.exitCode);
    EXPECT_EQ(result.output,
              "entries      1\nattributes   2\ncache hits   0\ncache misses 0\nerrors       2\n"
              "  BAD_VALUE 2\n");
    const std::string first =
        "BAD_VALUE  Pos(0) ErrorType(ERROR),\nbad.ldif:2:18: the plug-in refuses the value\n"
        "because of DIRLOAD_DETAILS  Pos(0) ErrorType(ERROR),\ntelephoneNumber of file:///bad.ldif/cn=a\n"
        "           0 1 2 3  4 5 6 7   8 9 A B  C D E F    0123456789ABCDEF\n"
        "          ------------------------------------    ----------------\n"
        "00000000: 31321B                                  12.              \n"
        "because of BAD_VALUE  Pos(0) ErrorType(ERROR),\n"
        "A telephone number begins with + and the code of the country.\n";
    EXPECT_EQ(first, result.errors.substr(0, first.size()));
    EXPECT_NE(result.errors.npos, result.errors.find("bad.ldif:5:7: the plug-in refuses the value"));
}

TEST_F(DirloadProgram, ShowsNothingThatSteersATerminal) {
    write("bad.ldif", "dn: cn=\xC2\x9Bm\xC3\xA4\na\0b\x9B: c\n"s);
    const std::string errors = run("\"$DIRLOAD\" bad.ldif").errors;
    EXPECT_NE(errors.npos, errors.find("\na of file:///bad.ldif/cn=?m\xC3\xA4\n")) << errors;
    EXPECT_NE(errors.npos, errors.find("00000000: 00629B3A 2063")) << "a NUL in a name ends no report";
}

TEST_F(DirloadProgram, StopsAtTheFirstErrorIfItIsStrict) {
    write("bad.ldif", "dn: cn=a\nsn: b\n\ndn: cn=b\nbad\nbad\n\ndn: cn=c\n");
    const Result result = run("\"$DIRLOAD\" --strict --json bad.ldif bad.ldif");
    EXPECT_EQ(1, result.exitCode);
    EXPECT_EQ(json::parse(result.output)["entries"], 1);
    EXPECT_EQ(json::parse(result.output)["errors"], json({{"MISSING_COLON", 1}}));
    EXPECT_NE(result.errors.npos, result.errors.find("bad.ldif:5:4"));
    EXPECT_EQ(0, run("printf 'dn: cn=a' | \"$DIRLOAD\" --strict -").exitCode);
}

TEST_F(DirloadProgram, TellsByItsExitCodeWhatWentWrong) {
    write("good.ldif", "dn: cn=a\n");
    write("bad.ldif", " x\n");
    const struct {
        const char *why;
        const char *arguments;
        int exitCode;
        const char *told; // in the output, errors included
    } rows[] = {
        {"no file", "", 2, "no file is named"},
        {"unknown option", "--wrong good.ldif", 2, "--wrong: unknown option"},
        {"unknown letter", "-jx good.ldif", 2, "-x: unknown option"},
        {"no argument", "good.ldif --plugin", 2, "--plugin: an argument is missing"},
        {"no number", "--threads 2x good.ldif", 2, "1 to 256"},
        {"no thread", "--threads 0 good.ldif", 2, "1 to 256"},
        {"bad levels", "--trace x good.ldif", 2, "malformed"},
        {"a file is missing, the others are read", "missing good.ldif --json", 3, "{\"entries\": 1,"},
        {"a folder", ". good.ldif --json", 3, "{\"entries\": 1,"},
        {"a plug-in is missing", "--plugin ./missing.so good.ldif", 4, "missing.so"},
        {"a library that is no plug-in", "--plugin libc.so.6 good.ldif", 4, "dirloadAttributes"},
        {"a full disk", "good.ldif >/dev/full", 5, "standard output: No space"},
        {"nobody hears of the errors", "bad.ldif 2>/dev/full", 5, "STRAY_CONTINUATION 1"},
        {"help", "--help", 0, "Exit codes:"},
        {"traces itself", "--trace 'Loader::*=state' good.ldif", 0, "State - dn(cn=a)"},
        {"traces calls", "--trace 'Loader::load=flow' good.ldif", 0, "Args - name(good.ldif)"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        const Result result = run("\"$DIRLOAD\" "s + row.arguments);
        EXPECT_EQ(row.exitCode, result.exitCode);
        EXPECT_NE(std::string::npos, (result.output + result.errors).find(row.told))
            << result.output << result.errors;
    }
}

#if !defined(TOV_ADDRESS_SANITIZER) && !defined(TOV_THREAD_SANITIZER)
TEST_F(DirloadProgram, NeedsNoMoreMemoryForMoreEntries) {
    const auto peakAfter = [](const char *entries) {
        const std::string source = "\"$LDIFGEN\" --faults 1 --entries "s + entries;
        EXPECT_EQ(0, run(source + " | \"$DIRLOAD\" -").exitCode);
        rusage usage = {};
        getrusage(RUSAGE_CHILDREN, &usage);
        return usage.ru_maxrss;
    };
    const long few = peakAfter("3000");
    EXPECT_LT(peakAfter("30000"), few + 500);
}
#endif

} // namespace
