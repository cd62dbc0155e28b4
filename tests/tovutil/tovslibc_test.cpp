#include <support/failalloc.h>
#include <support/traced.h>

#include <tovutil/tovpath.h>
#include <tovutil/tovslibc.h>
#include <tovutil/tovutil.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <dlfcn.h>

extern "C" {
void *__real_dlopen(const char *name, int flags);
void *__wrap_dlopen(const char *name, int flags);
int __real_dlclose(void *handle);
int __wrap_dlclose(void *handle);
}

namespace {

using Lines = std::vector<std::string>;

// What the dynamic loader was asked for, one entry a call: "FLAGS NAME".
Lines s_opened;
std::vector<void *> s_closed;

} // namespace

void *__wrap_dlopen(const char *name, int flags) {
    s_opened.push_back(std::to_string(flags) + " " + name);
    return __real_dlopen(name, flags);
}

int __wrap_dlclose(void *handle) {
    s_closed.push_back(handle);
    return __real_dlclose(handle);
}

namespace {

const char *const s_plugin = TOV_PLUGIN;           // the path of a library
const char *const s_secondPlugin = TOV_PLUGIN_TWO; // and of another one

class TovSharedLibTest : public testing::Test {
protected:
    void SetUp() override {
        s_opened.clear();
        s_closed.clear();
    }
};

// The handle of a library that is in the process, else null; asks without loading it.
void *handleOf(const char *path) {
    void *handle = __real_dlopen(path, RTLD_LAZY | RTLD_NOLOAD);
    if (handle)
        __real_dlclose(handle);
    return handle;
}

bool isLoaded(const char *path) { return handleOf(path) != nullptr; }

int answer(const TovSharedLib &library) {
    const auto function = reinterpret_cast<int (*)()>(library.getFuncAddress("tovslibcPluginAnswer"));
    return function ? function() : 0;
}

// The error that a call raises, in its parts.
struct Raised {
    std::uint32_t code;
    std::uint32_t position;
    std::string text;
    std::string function;
};

template <class Call>
Raised raisedBy(Call call) {
    try {
        call();
    } catch (const TovErrorFull &error) {
        const std::string location = error.getLocation();
        const std::string module = " in module (tovslibc)";
        EXPECT_NE(std::string::npos, location.find(module)) << location;
        EXPECT_EQ(TovError::Error, error.getErrorType());
        EXPECT_EQ(0, std::strncmp("TOVRC_SHLIB_ERROR ", error.getErrorMessage(), 18));
        return {error.getReturnCode(), error.getPosition(), error.getErrString().c_str(),
                location.substr(6, location.find(')') - 6)};
    }
    return {};
}

TEST_F(TovSharedLibTest, LoadsAndUnloads) {
    {
        TovSharedLib library(s_plugin, false, false);
        EXPECT_EQ(Lines{"257 " + std::string(s_plugin)}, s_opened);
        EXPECT_EQ(1, answer(library));
        EXPECT_EQ(nullptr, library.getFuncAddress(nullptr));
        library.unload();
        EXPECT_FALSE(isLoaded(s_plugin));
        EXPECT_EQ(nullptr, library.getFuncAddress("tovslibcPluginAnswer"));
        library.unload();
        EXPECT_EQ(1U, s_closed.size());
    }
    EXPECT_EQ(1U, s_closed.size()) << "the destructor finds nothing to close";
    { const TovSharedLib library(s_plugin, false, false); }
    EXPECT_EQ(2U, s_closed.size());
    EXPECT_FALSE(isLoaded(s_plugin));
}

TEST_F(TovSharedLibTest, DecoratesTheLastComponent) {
    const struct {
        const char *name;
        const char *want;
    } rows[] = {
        {"no-such", "libno-such.so"},
        {"/no-such/x/foo", "/no-such/x/libfoo.so"},
        {"x\\no-such", "x\\libno-such.so"},
        {"/no-such/x/", "/no-such/x/lib.so"},
        {"", "lib.so"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        s_opened.clear();
        EXPECT_THROW(TovSharedLib(row.name, true, false), TovErrorFull);
        EXPECT_EQ(Lines{std::string("257 ") + row.want}, s_opened);
        s_opened.clear();
        if (*row.name) {
            EXPECT_THROW(TovSharedLib(row.name, false, false), TovErrorFull);
            EXPECT_EQ(Lines{std::string("257 ") + row.name}, s_opened);
        }
    }
    const TovString path = TovOsPath::pathName(s_plugin) + "tovslibc_plugin";
    const TovSharedLib library(path.c_str(), true, false);
    EXPECT_EQ(1, answer(library));
}

TEST_F(TovSharedLibTest, KeepsTheLibraryWhenToldSo) {
    {
        TovSharedLib library(s_plugin, false, true);
        library.unload();
        EXPECT_EQ(1U, s_closed.size()) << "an explicit unload closes all the same";
        library.load(s_plugin);
    }
    EXPECT_EQ(1U, s_closed.size());
    ASSERT_TRUE(isLoaded(s_plugin));
    __real_dlclose(handleOf(s_plugin)); // which the object has forgotten
    EXPECT_FALSE(isLoaded(s_plugin));
}

TEST_F(TovSharedLibTest, ForgetsTheFormerHandle) {
    {
        TovSharedLib library(s_plugin, false, false);
        library.load(s_secondPlugin);
        EXPECT_EQ(2, answer(library));
        EXPECT_TRUE(isLoaded(s_plugin));
    }
    EXPECT_EQ(1U, s_closed.size()) << "only the new handle";
    EXPECT_FALSE(isLoaded(s_secondPlugin));
    ASSERT_TRUE(isLoaded(s_plugin));
    __real_dlclose(handleOf(s_plugin));
    EXPECT_FALSE(isLoaded(s_plugin));
}

TEST_F(TovSharedLibTest, HoldsNothingAfterAFailedLoad) {
    TovSharedLib library(s_plugin, false, false);
    EXPECT_THROW(library.load(nullptr), TovErrorFull);
    EXPECT_EQ(1, answer(library)) << "a null name is refused before the handle is touched";
    EXPECT_THROW(library.load("/no-such"), TovErrorFull);
    EXPECT_EQ(nullptr, library.getFuncAddress("tovslibcPluginAnswer"));
    library.unload();
    EXPECT_TRUE(s_closed.empty());
    EXPECT_TRUE(isLoaded(s_plugin)) << "the former library stays in the process";
    library.load(s_plugin);
    EXPECT_EQ(1, answer(library));
    __real_dlclose(handleOf(s_plugin));
}

TEST_F(TovSharedLibTest, RaisesWithTheLoadersText) {
    const TovSharedLib library(s_plugin, false, false);
    const std::string invalid = "Invalid argument",
                      open = "Can't load the dynamic library \"/no-such/lib.so\". ";
    const struct {
        std::function<void()> call, loader; // the loader, asked for the same, tells the rest of the text
        std::string text;
        std::uint32_t position;
        const char *function;
    } rows[] = {
        {[] { TovSharedLib(nullptr, false, false); }, [] {}, invalid, 0, "TovSharedLib::load"},
        {[] { TovSharedLib(nullptr, true, false); }, [] {}, invalid, 0, "TovSharedLib::load"},
        {[] { TovSharedLib("/no-such/lib.so", false, false); },
         [] { __real_dlopen("/no-such/lib.so", RTLD_LAZY); }, open, 0, "TovSharedLib::load"},
        {[&] { library.getFuncAddress("noSuchFunction"); },
         [] { dlsym(handleOf(s_plugin), "noSuchFunction"); }, "", 1, "TovSharedLib::getFuncAddress"},
    };
    for (const auto &row : rows) {
        const Raised raised = raisedBy(row.call);
        dlerror();
        row.loader();
        const char *told = dlerror();
        EXPECT_EQ(21030U, raised.code);
        EXPECT_EQ(row.text + (told ? told : ""), raised.text);
        EXPECT_EQ(row.position, raised.position);
        EXPECT_EQ(row.function, raised.function);
    }
    EXPECT_EQ(2U, s_opened.size()) << "nobody is asked for a null name";
}

TEST_F(TovSharedLibTest, TracesItsCalls) {
    const tovtest::TraceRecorder recorder("TovSharedLib::*=all");
    {
        const TovSharedLib library(s_plugin, false, false);
        library.getFuncAddress(nullptr);
        EXPECT_THROW(library.getFuncAddress("x"), TovErrorFull);
    }
    Lines lines = recorder.lines();
    EXPECT_TRUE(lines[1].starts_with("TovSharedLib::load: Args - libName(/"));
    // The path of the plug-in is not ours to know, nor how many pieces it takes.
    std::erase_if(lines, [](const std::string &line) { return line.starts_with("TovSharedLib::load: "); });
    EXPECT_EQ((Lines{"> TovSharedLib::load", "< TovSharedLib::load", "> TovSharedLib::getFuncAddress",
                     "TovSharedLib::getFuncAddress: Args - funcName(NULL) ", "< TovSharedLib::getFuncAddress",
                     "> TovSharedLib::getFuncAddress", "TovSharedLib::getFuncAddress: Args - funcName(x) ",
                     "> TovSharedLib::unload", "TovSharedLib::unload: Args - ", "< TovSharedLib::unload"}),
              lines);
}

TEST_F(TovSharedLibTest, ClosesAlsoWhenTheTraceFindsNoMemory) {
    hvdTraceSetSink([](void *, const HvdTraceEvent &) {}, nullptr);
    hvdTraceSetLevels("TovSharedLib::unload=all");
    auto library = std::make_unique<TovSharedLib>(s_plugin, false, false);
    {
        const tovtest::FailingAllocation failing(1, true);
        library.reset();
        EXPECT_TRUE(failing.fired());
    }
    hvdTraceSetLevels("");
    hvdTraceSetSink(nullptr, nullptr);
    EXPECT_EQ(1U, s_closed.size());
    EXPECT_FALSE(isLoaded(s_plugin));
}

} // namespace
