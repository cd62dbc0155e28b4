#include <support/traced.h>

#include <tovutil/tovpath.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using Lines = std::vector<std::string>;

Lines traced(const char *levels, const char *path) {
    const tovtest::TraceRecorder recorder(levels);
    TovOsPath::isFile(path);
    return recorder.lines();
}

TEST(TovOsPath, SplitsBehindTheLastSeparator) {
    const struct {
        TovString path, baseName, pathName;
    } rows[] = {
        {"", "", ""},
        {"abc", "abc", ""},
        {"a/b/c", "c", "a/b/"},
        {"a/b/", "", "a/b/"},
        {"/", "", "/"},
        {"/abc", "abc", "/"},
        {"a\\b", "b", "a\\"},
        {"a/b\\c", "c", "a/b\\"},
        {"a\\b/c", "c", "a\\b/"},
        {"a//.", ".", "a//"},
        {{"a/b\0c", 5}, {"b\0c", 3}, "a/"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.path);
        EXPECT_EQ(row.baseName, TovOsPath::baseName(row.path));
        EXPECT_EQ(row.pathName, TovOsPath::pathName(row.path));
    }
}

// The current directory is a new folder with one of each file type.
class TovOsPathFiles : public testing::Test {
protected:
    void SetUp() override {
        m_former = ::open(".", O_RDONLY);
        ASSERT_NE(nullptr, ::mkdtemp(m_folder.data()));
        ASSERT_EQ(0, ::chdir(m_folder.c_str()));
        const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, "socket");
        ASSERT_EQ(0, ::bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address));
        ::close(fd);
        ::close(::open("file", O_CREAT | O_WRONLY, 0600));
        ASSERT_EQ(0, ::mkfifo("fifo", 0600));
        ASSERT_EQ(0, ::symlink("file", "link"));
    }
    void TearDown() override {
        for (const char *name : {"file", "fifo", "link", "socket"})
            ::unlink(name);
        EXPECT_EQ(0, ::fchdir(m_former));
        EXPECT_EQ(0, ::rmdir(m_folder.c_str()));
        ::close(m_former);
    }

private:
    std::string m_folder = testing::TempDir() + "tovpathXXXXXX";
    int m_former = -1;
};

TEST_F(TovOsPathFiles, TestsOneBitOfTheFileType) {
    const struct {
        const char *path;
        bool want;
    } rows[] = {
        {"file", true}, {"link", true},     {"socket", true},  {"fifo", false},      {".", false},
        {"", false},    {"missing", false}, {"file/x", false}, {"/dev/null", false},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.path);
        EXPECT_EQ(row.want, TovOsPath::isFile(row.path));
    }
}

TEST_F(TovOsPathFiles, TracesItsThreeWays) {
    const std::string notADirectory =
        std::string("!!! Error - err(20) strerror(err)(") + std::strerror(ENOTDIR) + ") ";
    const struct {
        const char *path;
        Lines middle;
        const char *result;
        Lines atErrorLevel;
    } rows[] = {
        {"file", {"Detail - st.st_mode(33152) "}, "1", {}},
        {".", {"Detail - st.st_mode(16832) "}, "0", {}},
        {"missing", {"Flow - err(2) "}, "0", {}},
        {"file/x", {"Flow - err(20) ", notADirectory}, "0", {"TovOsPath::isFile: " + notADirectory}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.path);
        Lines want = {"> TovOsPath::isFile",
                      std::string("TovOsPath::isFile: Args - path(") + row.path + ") "};
        for (const std::string &line : row.middle)
            want.push_back("TovOsPath::isFile: " + line);
        want.push_back(std::string("TovOsPath::isFile: Return - ") + row.result);
        want.push_back("< TovOsPath::isFile");
        EXPECT_EQ(want, traced("*=all", row.path));
        EXPECT_EQ(row.atErrorLevel, traced("*=error", row.path));
    }
}

TEST(TovOsPath, TracesTheSplitters) {
    const tovtest::TraceRecorder recorder("TovOsPath::*=flow");
    TovOsPath::baseName("a/b");
    TovOsPath::pathName("a/b");
    EXPECT_EQ((Lines{"> TovOsPath::baseName", "TovOsPath::baseName: Args - path(a/b) ",
                     "TovOsPath::baseName: Return - b", "< TovOsPath::baseName", "> TovOsPath::pathName",
                     "TovOsPath::pathName: Args - path(a/b) ", "TovOsPath::pathName: Return - a/",
                     "< TovOsPath::pathName"}),
              recorder.lines());
}

} // namespace
