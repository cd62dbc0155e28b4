// Runs tovconv as its users do. What must come out is told by the system's own iconv.
#include <support/random.h>
#include <tovdom/tovnls/tovnls.h>
#include <tovutil/tovutil.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <iconv.h>
#include <poll.h>
#include <pty.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace std::string_literals;
using Words = std::vector<std::string>;

constexpr std::size_t c_piece = 65536; // what the program reads at a time

std::string repeated(std::string_view text, std::size_t times) {
    std::string result;
    for (std::size_t i = 0; i < times; ++i)
        result += text;
    return result;
}

std::string readFile(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string readAll(int descriptor) {
    std::string text;
    char buffer[65536];
    for (ssize_t count; (count = read(descriptor, buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<std::size_t>(count));
    close(descriptor);
    return text;
}

void writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = write(descriptor, text.data(), text.size());
        if (count <= 0)
            return; // the program may end before it has read all
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

std::string iconvOf(const char *from, const char *to, std::string text) {
    auto *converter = iconv_open(to, from);
    EXPECT_NE(reinterpret_cast<std::intptr_t>(converter), -1) << from << " to " << to;
    std::string result(text.size() * 4 + 64, '\0');
    char *source = text.data();
    char *target = result.data();
    std::size_t sourceLeft = text.size();
    std::size_t targetLeft = result.size();
    EXPECT_EQ(0U, iconv(converter, &source, &sourceLeft, &target, &targetLeft)) << from << " to " << to;
    iconv(converter, nullptr, nullptr, &target, &targetLeft);
    iconv_close(converter);
    result.resize(result.size() - targetLeft);
    return result;
}

struct Result {
    int exitCode = -1; // minus the signal, where one ended the program
    std::string output;
    std::string errors;
    long peakKilobytes = 0;
};

// One run of the program, with pipes at its three streams.
class Program {
public:
    explicit Program(
        Words arguments, const std::function<void()> &inChild = [] {});
    ~Program() {
        if (m_input >= 0)
            close(m_input);
    }
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;

    int input() const { return m_input; }
    pid_t process() const { return m_process; }

    Result finish(std::string_view text = {}); // gives it `text`, and waits for its end

private:
    pid_t m_process;
    int m_input;
    int m_output;
    int m_errors;
};

Program::Program(Words arguments, const std::function<void()> &inChild) {
    const char *path = std::getenv("TOVCONV");
    arguments.insert(arguments.begin(), path ? path : "TOVCONV is not set");
    std::vector<char *> words;
    for (std::string &word : arguments)
        words.push_back(word.data());
    words.push_back(nullptr);
    int in[2];
    int out[2];
    int err[2];
    for (int *ends : {in, out, err})
        if (pipe2(ends, O_CLOEXEC) != 0)
            throw std::runtime_error("pipe2");
    m_process = fork();
    if (m_process == 0) {
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        std::signal(SIGPIPE, SIG_DFL);
        inChild();
        execv(words[0], words.data());
        _exit(127);
    }
    for (const int end : {in[0], out[1], err[1]})
        close(end);
    m_input = in[1];
    m_output = out[0];
    m_errors = err[0];
}

Result Program::finish(std::string_view text) {
    Result result;
    std::thread writer([&] {
        writeAll(m_input, text);
        close(std::exchange(m_input, -1));
    });
    std::thread errors([&] { result.errors = readAll(m_errors); });
    result.output = readAll(m_output);
    writer.join();
    errors.join();
    int status = 0;
    rusage usage = {};
    wait4(m_process, &status, 0, &usage);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    result.peakKilobytes = usage.ru_maxrss;
    return result;
}

Result run(Words arguments, std::string_view input = {}) {
    return Program(std::move(arguments)).finish(input);
}

// Long texts are told by their sizes.
void expectOutput(std::string_view want, const Result &result) {
    EXPECT_EQ(result.errors, "");
    EXPECT_TRUE(result.output == want) << result.output.size() << " bytes, not " << want.size();
}

class Tovconv : public testing::Test {
protected:
    void SetUp() override {
        std::signal(SIGPIPE, SIG_IGN);
        std::string pattern = (fs::temp_directory_path() / "tovconv.XXXXXX").string();
        m_folder = mkdtemp(pattern.data());
    }
    void TearDown() override { fs::remove_all(m_folder); }

    std::string path(const std::string &name) const { return m_folder / name; }
    std::string file(const std::string &name, std::string_view text) const {
        std::ofstream(path(name), std::ios::binary) << text;
        return path(name);
    }
    Words names() const {
        Words found;
        for (const auto &entry : fs::directory_iterator(m_folder))
            found.push_back(entry.path().filename());
        return found;
    }

    fs::path m_folder;
};

// Texts across the ends of pieces -------------------------------------------------------------------

struct Sample {
    const char *page;
    const char *iconvName;
    const char *characters; // one after the other, without a place where a cut is easy
};

const Sample s_samples[] = {
    {"UTF-8", "UTF-8", "aß語😀"},
    {"UTF-16LE", "UTF-16LE", "aß語😀😀"},
    {"UTF-16BE", "UTF-16BE", "aß語😀😀"},
    {"UTF-32LE", "UTF-32LE", "aß語😀"},
    {"windows-1252", "CP1252", "aß€Ÿ"},
    {"Shift_JIS", "SHIFT_JIS", "aｱ漢字ソ表"}, // trail bytes 5C, like a backslash
    {"EUC-JP", "EUC-JP", "aｱ漢字"},
    {"GB18030", "GB18030", "a汉ß😀字"}, // of one, two and four bytes
    {"ibm-37", "IBM037", "aßé{"},
    {"ibm-939", "IBM939", "漢字"},          // a run of two-byte characters without an end
    {"ibm-939", "IBM939", "漢字かaカナbc"}, // many short runs
    {"ibm-930", "IBM930", "漢A字かAB"},
    {"ISO-2022-JP", "ISO-2022-JP", "a漢字かb"},
};

// Some bytes of plain letters before the text put every byte of a character next to the end of a piece.
TEST_F(Tovconv, CutsNoCharacterWhereverAPieceEnds) {
    for (const Sample &sample : s_samples) {
        for (std::size_t shift = 0; shift < 8; ++shift) {
            SCOPED_TRACE(testing::Message()
                         << sample.page << " " << sample.characters << " behind " << shift);
            const std::string text =
                repeated("A", shift) + repeated(sample.characters, 2 * c_piece / strlen(sample.characters));
            const std::string bytes = iconvOf("UTF-8", sample.iconvName, text);
            expectOutput(bytes, run({"-f", "UTF-8", "-t", sample.page, file("text", text)}));
            expectOutput(text, run({"-f", sample.page, "-t", "UTF-8", file("bytes", bytes)}));
        }
    }
}

// Each byte comes alone, so that every place is the end of what was read.
TEST_F(Tovconv, TakesBytesThatComeOneByOne) {
    for (const Sample &sample : s_samples) {
        SCOPED_TRACE(sample.page);
        const std::string text = repeated(sample.characters, 4);
        Program program({"-f", sample.page, "-t", "UTF-8"});
        for (const char byte : iconvOf("UTF-8", sample.iconvName, text)) {
            writeAll(program.input(), {&byte, 1});
            std::this_thread::sleep_for(1ms);
        }
        expectOutput(text, program.finish());
    }
}

TEST_F(Tovconv, GivesWholeLinesOnBeforeTheInputEnds) {
    for (const char *page : {"UTF-8", "windows-1252", "Shift_JIS"}) {
        SCOPED_TRACE(page);
        int out[2];
        ASSERT_EQ(0, pipe2(out, O_CLOEXEC));
        Program program({"-f", page, "-t", "UTF-16LE"}, [&] { dup2(out[1], STDOUT_FILENO); });
        close(out[1]);
        writeAll(program.input(), "line\n");
        pollfd ready = {out[0], POLLIN, 0};
        EXPECT_EQ(1, poll(&ready, 1, 10000));
        program.finish();
        EXPECT_EQ(readAll(out[0]), iconvOf("UTF-8", "UTF-16LE", "line\n"));
    }
}

// Characters of all scripts that `page` can hold, as UTF-16 units.
std::u16string charactersOf(const TovNls &page) {
    std::u16string found;
    for (const char16_t unit : u"aZ09éßžąяжαωאשعبกहअकあアｱ漢字語国한국你好€"s) {
        auto bytes = page.fromUnicode(&unit, 1);
        bytes.own();
        if (bytes.length <= 0)
            continue;
        auto units = page.toUnicode(bytes.buffer, bytes.length);
        units.own();
        if (units.view() == std::u16string_view(&unit, 1))
            found += unit;
    }
    return found;
}

std::string bytesOf(const std::u16string &units) {
    return {reinterpret_cast<const char *>(units.data()), 2 * units.size()};
}

std::u16string randomText(std::u16string_view characters, std::size_t length, std::mt19937_64 &random) {
    std::uniform_int_distribution<std::size_t> which(0, characters.size() - 1);
    std::u16string text(length, u'\0');
    std::generate(text.begin(), text.end(), [&] { return characters[which(random)]; });
    return text;
}

// A code page whose text carries a state that tovconv does not know of would go wrong at the first cut.
TEST_F(Tovconv, BringsATextThroughEveryCodePageAndBack) {
    auto random = tovtest::generator(1);
    std::istringstream list(run({"-l"}).output);
    int pages = 0;
    for (std::string id, name; list >> id >> name; ++pages) {
        const TovNls page(tovToUnicode(name.c_str(), 0xFFFFFFFFU, true).c_str());
        if (page.getMaxByteLen() == 1 && pages % 16 != 0)
            continue; // one byte a character, one page like another
        SCOPED_TRACE(testing::Message() << id << " " << name);
        const std::string text = bytesOf(randomText(charactersOf(page), 80000, random));
        expectOutput("", run({"-f", "UTF-16", "-t", name, file("text", text), "-o", path("bytes")}));
        expectOutput(text, run({"-f", name, "-t", "UTF-16", path("bytes")}));
    }
    EXPECT_GT(pages, 200);
}

// Two characters that are one in the code page stay together, also where a piece ends between them.
TEST_F(Tovconv, KeepsAMarkWithItsBase) {
    for (std::size_t shift = 0; shift < 6; ++shift) {
        SCOPED_TRACE(shift);
        const std::string text = repeated("A", shift) + repeated("か\u309A", 30000);
        const std::string bytes = repeated("\xC1", shift) + "\x0E" + repeated("\xEC\xB5", 30000) + "\x0F";
        expectOutput(bytes, run({"-f", "UTF-8", "-t", "ibm-1390"}, text));
        expectOutput(text, run({"-f", "ibm-1390", "-t", "UTF-8"}, bytes));
    }
}

TEST_F(Tovconv, ConvertsSeveralFilesOneBehindTheOther) {
    const std::string first = file("first", "ä");
    const std::string second = file("second", "ö\n");
    EXPECT_EQ(run({"-f", "UTF-8", "-t", "ISO-8859-1", first, "-", second}, "-").output, "\xE4-\xF6\n");
    EXPECT_EQ(run({"-f", "UTF-8", "-t", "UTF-16,version=2", first, second}).output,
              "\xFE\xFF\0\xE4\0\xF6\0\n"s);
    EXPECT_EQ(run({"-f", "UTF-8", "-t", "UTF-8", file("empty", "")}).output, "");
}

// What can't be converted ---------------------------------------------------------------------------

struct Fault {
    const char *why;
    const char *from;
    const char *to;
    std::string good; // before it, in the code page FROM
    std::string bad;
    const char *report; // what is told behind the place
};

TEST_F(Tovconv, TellsTheByteAndTheLineOfAFault) {
    static const Fault faults[] = {
        {"a following byte is missing", "UTF-8", "UTF-16", "ab\nß", "\xC3(", "0xC3 0x28"},
        {"an overlong form", "UTF-8", "UTF-16", "ab\nß", "\xC0\x80", "0xC0"},
        {"a surrogate", "UTF-8", "UTF-16", "ab\nß", "\xED\xA0\x80", "0xED 0xA0"},
        {"above the last character", "UTF-8", "UTF-16", "ab\nß", "\xF4\x90\x80\x80", "0xF4 0x90"},
        {"cut off by the end", "UTF-8", "UTF-16", "ab\nß", "\xE3\x81", "0xE3 0x81"},
        {"an unpaired low surrogate", "UTF-16LE", "UTF-8", "a\0b\0\n\0\xDF\0"s, "\0\xDC"s, "0x00 0xDC"},
        {"an unpaired high surrogate", "UTF-16BE", "UTF-8", "\0a\0b\0\n\0\xDF"s, "\xD8\0\0a"s, "0xD8 0x00"},
        {"a pair that is cut off by the end", "UTF-16BE", "UTF-8", "\0a\0b\0\n\0\xDF"s, "\xD8\0"s,
         "0xD8 0x00"},
        {"an odd byte at the end", "UTF-16LE", "UTF-8", "a\0b\0\n\0\xDF\0"s, "a", "0x61"},
        {"a byte without a character", "windows-1253", "UTF-8", "ab\n\xE1", "\xD2", "0xD2"},
        {"no trail byte", "Shift_JIS", "UTF-8", "ab\n\x83\x5C", "\x83 ", "0x83 0x20"},
        {"cut off by the end", "Shift_JIS", "UTF-8", "ab\n\x83\x5C", "\x83", "0x83"},
        {"four bytes cut off by the end", "GB18030", "UTF-8", "ab\n\x81\x30\x81\x30", "\x81\x30\x81",
         "0x81 0x30 0x81"},
        {"half a two-byte character", "ibm-939", "UTF-8", "\x81\x82\x25\x0E\x45\x62", "\x45\x0F",
         "0x45 0x0F"},
        {"an escape sequence that nobody knows", "ISO-2022-JP", "UTF-8", "ab\n\x1B$BF|", "\x1B$Z",
         "0x1B 0x24"},
        {"cut off by the end", "ISO-2022-JP", "UTF-8", "ab\n\x1B$BF|", "F", "0x46"},
        {"no character of the target", "UTF-8", "ISO-8859-1", "ab\nß", "€", "U+20AC"},
        {"a pair of surrogates", "UTF-8", "ISO-8859-1", "ab\nß", "😀", "U+1F600"},
        {"from two bytes", "Shift_JIS", "ISO-8859-1", "ab\nx", "\x83\x76", "U+30D7"},
        {"from a run of two-byte characters", "ibm-939", "KOI8-R", "\x81\x82\x25\x0E\x41\xC0", "\x45\x62",
         "U+65E5"},
        {"into a code page of escape sequences", "UTF-16LE", "ISO-2022-JP", "a\0b\0\n\0\x42\x30"s, "\xAC\x20",
         "U+20AC"},
    };
    for (const Fault &fault : faults) {
        SCOPED_TRACE(testing::Message() << fault.from << " to " << fault.to << ": " << fault.why);
        const Result result = run({"-f", fault.from, "-t", fault.to}, fault.good + fault.bad);
        EXPECT_EQ(1, result.exitCode);
        const std::string place = "tovconv: standard input: byte " + std::to_string(fault.good.size()) +
                                  ", line 2, column 2: can't convert " + fault.report;
        EXPECT_EQ(result.errors.substr(0, place.size()), place) << result.errors;
        EXPECT_EQ(result.output, run({"-f", fault.from, "-t", fault.to}, fault.good).output)
            << "what comes before";
    }
}

TEST_F(Tovconv, TellsThePlaceInLaterPieces) {
    static const struct {
        const char *from;
        const char *to;
        std::string line;
        std::string bad;
    } rows[] = {
        {"UTF-8", "UTF-16", "línea\n", "\xFF"},
        {"UTF-8", "windows-1252", "línea\n", "語"},
        {"UTF-16LE", "windows-1252", "l\0\n\0"s, "\x9E\x8A"},
        {"windows-1252", "ISO-8859-1", "l\xEDnea\n", "\x80"},
        {"Shift_JIS", "UTF-8", "\x83\x5C\x95\x5C\n", "\xFF"},
        {"Shift_JIS", "ISO-2022-KR", "\x83\x5C\n", "\xA6"},
        {"GB18030", "windows-1252", "a\n", "\x81\x30\x81\x32"},
        {"ibm-939", "ISO-8859-1", "\x81\x25", "\x0E\x45\x62\x0F"},
        {"ISO-2022-JP", "UTF-8", "\x1B$BF|\x1B(B\n", "\xFF"},
    };
    for (const auto &row : rows) {
        for (const std::size_t lines : {9361U, 40000U}) {
            SCOPED_TRACE(testing::Message() << row.from << " to " << row.to << " behind " << lines);
            const std::string good = repeated(row.line, lines);
            std::string text = good;
            text.append(row.bad).append(good);
            const Result result = run({"-f", row.from, "-t", row.to, file("text", text)});
            EXPECT_EQ(1, result.exitCode);
            const std::size_t skipped = row.bad.front() == '\x0E' ? 1 : 0; // the character, not its shift
            const std::string place = "tovconv: " + path("text") + ": byte " +
                                      std::to_string(good.size() + skipped) + ", line " +
                                      std::to_string(lines + 1) + ", column 1: ";
            EXPECT_EQ(result.errors.substr(0, place.size()), place);
        }
    }
}

TEST_F(Tovconv, ShowsTheComposedError) {
    const Result bytes = run({"-f", "UTF-8", "-t", "UTF-16"}, "\xFF\n");
    EXPECT_NE(bytes.errors.find("\nTOVRC_INVALID_MBCHAR TOVCONV(ILLEGAL_BYTES) Pos(1) ErrorType(ERROR),\n"
                                "0xFF is no character of UTF-8\nFrom (badBytes), Line("),
              std::string::npos)
        << bytes.errors;
    const Result unit = run({"-f", "UTF-8", "-t", "US-ASCII"}, "ß");
    EXPECT_NE(unit.errors.find("\nTOVRC_INVALID_WCHAR TOVCONV(NO_SUCH_CHARACTER) Pos(1) ErrorType(ERROR),\n"
                               "US-ASCII has no U+00DF\n"),
              std::string::npos);
}

TEST_F(Tovconv, RefusesAnIndivisibleTextAboveItsLimit) {
    const std::string text = repeated("0123456789abcde\n", (16 << 20) / 16);
    for (const Words &pages : {Words{"ISO-2022-JP", "UTF-8"}, Words{"UTF-8", "ISO-2022-JP"}}) {
        EXPECT_TRUE(run({"-f", pages[0], "-t", pages[1]}, text).output == text);
        const Result result = run({"-f", pages[0], "-t", pages[1]}, text + "\n");
        EXPECT_EQ(8, result.exitCode);
        EXPECT_EQ(result.errors, "tovconv: standard input: text in ISO-2022-JP can only be converted as a "
                                 "whole, and up to 16 MiB\n");
    }
}

// Inputs and outputs --------------------------------------------------------------------------------

TEST_F(Tovconv, TellsFailuresApart) {
    const std::string text = file("text", "text\n");
    const struct {
        const char *why;
        Words arguments;
        int exitCode;
        const char *report;
    } rows[] = {
        {"an unknown code page",
         {"-f", "no-such-page", text},
         3,
         "NLS: Invalid code page specified. (no-such-page)"},
        {"a name above the limit",
         {"-t", std::string(33, 'x'), text},
         3,
         "NLS: Invalid code page specified. (xxx"},
        {"a name that is text in part only", {"-f", "latin1\xFF\xFE junk", text}, 3, "latin1"},
        {"a missing file", {path("missing")}, 4, "missing: No such file or directory"},
        {"a folder", {m_folder}, 4, "Is a directory"},
        {"a full disk", {text, "-o", "/dev/full"}, 5, "/dev/full: No space left on device"},
        {"a folder that is missing", {text, "-o", path("no/out")}, 7, "no/out: No such file or directory"},
        {"an unknown option", {"--wrong"}, 2, "unknown option --wrong; try --help"},
        {"a missing argument", {text, "-f"}, 2, "an argument is missing behind -f; try --help"},
        {"trace levels", {"--trace", "no levels", text}, 2, "--trace: the levels are malformed"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        const Result result = run(row.arguments);
        EXPECT_EQ(row.exitCode, result.exitCode);
        EXPECT_NE(result.errors.find(row.report), std::string::npos) << result.errors;
        EXPECT_EQ(result.output, "");
    }
}

TEST_F(Tovconv, TellsAFullDiskAndAClosedPipeAtStandardOutput) {
    const Result full =
        Program({}, [] { dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO); }).finish("text\n");
    EXPECT_EQ(5, full.exitCode);
    EXPECT_EQ(full.errors, "tovconv: standard output: No space left on device\n");

    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    close(ends[0]);
    const Result closed = Program({}, [&] { dup2(ends[1], STDOUT_FILENO); }).finish("text\n");
    close(ends[1]);
    EXPECT_EQ(6, closed.exitCode);
    EXPECT_EQ(closed.errors, "tovconv: standard output: Broken pipe\n");
}

TEST_F(Tovconv, NeverTakesAFileForAClosedStandardStream) {
    const std::string text = file("text", "text\n");
    const Result result = Program({text}, [] { close(STDOUT_FILENO); }).finish();
    EXPECT_EQ(7, result.exitCode);
    EXPECT_EQ(readFile(text), "text\n");
}

TEST_F(Tovconv, ReplacesTheOutputOnlyWhenAllIsDone) {
    file("out", "old");
    chmod(path("out").c_str(), 0640);
    const Result failed =
        run({"-f", "UTF-8", "-t", "UTF-16", "-o", path("out")}, repeated("good\n", 50000) + "\xFF");
    EXPECT_EQ(1, failed.exitCode);
    EXPECT_EQ(readFile(path("out")), "old");
    EXPECT_EQ(names(), Words{"out"});

    EXPECT_EQ(0, run({"-f", "UTF-8", "-t", "UTF-8", "-o", path("out")}, "new").exitCode);
    EXPECT_EQ(readFile(path("out")), "new");
    EXPECT_EQ(fs::status(path("out")).permissions(), fs::perms(0640)) << "the mode stays";
    EXPECT_EQ(names(), Words{"out"});
}

TEST_F(Tovconv, FollowsLinksToTheOutput) {
    fs::create_directory(path("folder"));
    fs::create_symlink("folder/second", path("first"));
    fs::create_symlink("missing", path("folder/second"));
    for (const char *text : {"new", "newer"}) { // into a missing file, and into the one that is there then
        EXPECT_EQ(0, run({"-o", path("first")}, text).exitCode);
        EXPECT_TRUE(fs::is_symlink(path("first")));
        EXPECT_TRUE(fs::is_symlink(path("folder/second")));
        EXPECT_EQ(readFile(path("folder/missing")), text);
    }
    fs::create_symlink("loop", path("loop"));
    EXPECT_EQ(7, run({"-o", path("loop")}, "new").exitCode);
    EXPECT_TRUE(fs::is_symlink(path("loop")));
}

TEST_F(Tovconv, KeepsOwnerAndGroupOfTheOutput) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can give files away";
    file("out", "old");
    ASSERT_EQ(0, chown(path("out").c_str(), 12345, 23456));
    chmod(path("out").c_str(), 0640);
    EXPECT_EQ(0, run({"-o", path("out")}, "new").exitCode);
    struct stat status = {};
    ASSERT_EQ(0, stat(path("out").c_str(), &status));
    EXPECT_EQ(12345U, status.st_uid);
    EXPECT_EQ(23456U, status.st_gid);
    EXPECT_EQ(0640U, status.st_mode & 07777U);
}

TEST_F(Tovconv, TellsAFileAboveTheLimitForItsSize) {
    const rlimit limit = {1000, 1000};
    const auto limited = [&] { setrlimit(RLIMIT_FSIZE, &limit); };
    const Result result = Program({"-o", path("out")}, limited).finish(repeated("text\n", 1000));
    EXPECT_EQ(7, result.exitCode);
    EXPECT_EQ(result.errors, "tovconv: " + path("out") + ": File too large\n");
    EXPECT_EQ(names(), Words{});
}

TEST_F(Tovconv, LeavesNothingBehindWhenASignalEndsIt) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGXCPU}) {
        file("out", "old");
        const rlimit noCore = {};
        Program program({"-f", "UTF-8", "-t", "UTF-8", "-o", path("out")},
                        [&] { setrlimit(RLIMIT_CORE, &noCore); });
        writeAll(program.input(), "begun\n");
        for (int tries = 0; names().size() < 2 && tries < 10000; ++tries)
            std::this_thread::sleep_for(1ms);
        EXPECT_EQ(2U, names().size());
        kill(program.process(), signal);
        EXPECT_EQ(-signal, program.finish().exitCode);
        EXPECT_EQ(names(), Words{"out"});
        EXPECT_EQ(readFile(path("out")), "old");
    }
}

TEST_F(Tovconv, MayWriteToItsInput) {
    const std::string text = repeated("größer\n", 40000);
    file("text", text);
    EXPECT_EQ(0, run({"-f", "UTF-8", "-t", "UTF-16BE", path("text"), "-o", path("text")}).exitCode);
    EXPECT_TRUE(readFile(path("text")) == iconvOf("UTF-8", "UTF-16BE", text));
}

TEST_F(Tovconv, RefusesToAppendToItsInput) {
    const std::string text = file("text", "text\n");
    const Result result =
        Program({text}, [&] { dup2(open(text.c_str(), O_WRONLY | O_APPEND), STDOUT_FILENO); }).finish();
    EXPECT_EQ(7, result.exitCode);
    EXPECT_EQ(readFile(text), "text\n");
}

// The rest of the command line ----------------------------------------------------------------------

TEST_F(Tovconv, ListsCodePagesWithTheirIds) {
    const std::string list = run({"-l"}).output;
    for (const char *line :
         {"\n57352\tUTF-8\n", "\n-2\tUTF-16LE\n", "\n-1\tUTF-16BE\n", "\n923\tISO-8859-15\n"})
        EXPECT_NE(list.find(line), std::string::npos) << line;
}

TEST_F(Tovconv, TakesTheProcessCodePageByDefault) {
    const auto inLatin = [] { setenv("LC_ALL", "de_DE.ISO-8859-1", 1); };
    EXPECT_EQ(Program({"-t", "UTF-8"}, inLatin).finish("\xE4").output, "ä");
    EXPECT_EQ(Program({"-f", "UTF-8"}, inLatin).finish("ä").output, "\xE4");
}

TEST_F(Tovconv, TracesTheLibraryOnRequest) {
    const Result result = run({"--trace", "TovNls::*=flow", "-f", "UTF-8", "-t", "ISO-8859-1"}, "ä");
    EXPECT_EQ(result.output, "\xE4");
    EXPECT_NE(result.errors.find("TovNls::TovNls"), std::string::npos) << result.errors;
}

// Standard error is a terminal; nobody takes the output for so long.
std::string shownOnATerminal(const std::string &file, std::chrono::milliseconds pause) {
    int controller = -1;
    int terminal = -1;
    EXPECT_EQ(0, openpty(&controller, &terminal, nullptr, nullptr, nullptr));
    Program program({"-f", "UTF-8", "-t", "UTF-16", file}, [&] { dup2(terminal, STDERR_FILENO); });
    close(terminal);
    std::this_thread::sleep_for(pause);
    EXPECT_EQ(0, program.finish(repeated("text\n", 100000)).exitCode);
    return readAll(controller);
}

TEST_F(Tovconv, ShowsProgressOnATerminalAfterASecond) {
    const std::string text = file("text", repeated("text\n", 100000));
    EXPECT_EQ(shownOnATerminal(text, 0ms), "");
    const std::string bar = shownOnATerminal(text, 1100ms);
    EXPECT_NE(bar.find("[###"), std::string::npos) << bar;
    EXPECT_NE(bar.find("%, "), std::string::npos) << bar;
    EXPECT_NE(shownOnATerminal("-", 1100ms).find(" MB, "), std::string::npos)
        << "of a pipe the end isn't known";
}

#ifdef NDEBUG // without a sanitizer, which has memory and time of its own
TEST_F(Tovconv, NeedsLittleMemoryForALongText) {
    const std::string part = repeated("Zeile für Zeile, 語 by 語\n", 40000);
    const int parts = static_cast<int>(200'000'000 / part.size());
    const auto start = std::chrono::steady_clock::now();
    Program program({"-f", "UTF-8", "-t", "UTF-16LE"},
                    [] { dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO); });
    for (int i = 0; i < parts; ++i)
        writeAll(program.input(), part);
    const Result result = program.finish();
    EXPECT_EQ(0, result.exitCode);
    EXPECT_LT(result.peakKilobytes, 24 << 10);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
}
#endif

} // namespace
