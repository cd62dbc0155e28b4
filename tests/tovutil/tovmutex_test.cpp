#include <tovutil/tovutil.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <mutex>
#include <thread>

// The platform's attribute calls, made to fail on demand (see the linker's --wrap).
extern "C" {
int __real_pthread_mutexattr_init(pthread_mutexattr_t *attributes);
int __real_pthread_mutexattr_settype(pthread_mutexattr_t *attributes, int kind);
int __wrap_pthread_mutexattr_init(pthread_mutexattr_t *attributes);
int __wrap_pthread_mutexattr_settype(pthread_mutexattr_t *attributes, int kind);
}

namespace {
enum class Fails { Nothing, Init, SetType } s_fails = Fails::Nothing;
}

int __wrap_pthread_mutexattr_init(pthread_mutexattr_t *attributes) {
    return s_fails == Fails::Init ? ENOMEM : __real_pthread_mutexattr_init(attributes);
}

int __wrap_pthread_mutexattr_settype(pthread_mutexattr_t *attributes, int kind) {
    return s_fails == Fails::SetType ? EINVAL : __real_pthread_mutexattr_settype(attributes, kind);
}

namespace {

std::string failure(Fails what) {
    s_fails = what;
    try {
        tovutil_recursiveAttrInitFunc();
    } catch (const TovErrorFull &error) {
        s_fails = Fails::Nothing;
        return std::string(error.getErrorMessage()) + "\n" + error.getLocation();
    }
    s_fails = Fails::Nothing;
    return {};
}

// First in this file: the attribute is made once a process.
TEST(TovMutex, RaisesAnInternalErrorWhenTheAttributeCantBeMade) {
    ASSERT_EQ(nullptr, s_recursiveAttr);
    const std::string init = failure(Fails::Init);
    EXPECT_NE(init.npos, init.find("TOVRC_INTERNAL_ERROR  Pos(1) ErrorType(ERROR),\n"
                                   "Internal error: pthread_mutexattr_init(&s_recursiveAttrData) == 0"));
    EXPECT_NE(init.npos, init.find("From (), Line(595) in module (tovutil) Build("));
    const std::string type = failure(Fails::SetType);
    EXPECT_NE(type.npos,
              type.find("pthread_mutexattr_settype( &s_recursiveAttrData, PTHREAD_MUTEX_RECURSIVE ) == 0"));
    EXPECT_NE(type.npos, type.find("Line(598)"));
    EXPECT_EQ(nullptr, s_recursiveAttr);
}

TEST(TovMutex, SharesOneAttributeAmongRecursiveMutexes) {
    TovMutex first(TovMutex::Recursive);
    pthread_mutexattr_t *attribute = s_recursiveAttr;
    ASSERT_NE(nullptr, attribute);
    TovMutex second(TovMutex::Recursive);
    EXPECT_EQ(attribute, s_recursiveAttr);

    second.lock();
    ASSERT_TRUE(second.try_lock()) << "its owner may lock it again";
    auto lockedElsewhere = [&] {
        bool got = false;
        std::thread([&] {
            if ((got = second.try_lock()))
                second.unlock();
        }).join();
        return !got;
    };
    second.unlock();
    EXPECT_TRUE(lockedElsewhere()) << "two locks need two unlocks";
    second.unlock();
    EXPECT_FALSE(lockedElsewhere());

    // A caller's own attribute serves, too.
    pthread_mutexattr_t plain;
    pthread_mutexattr_init(&plain);
    s_recursiveAttr = &plain;
    TovMutex third(TovMutex::Recursive);
    third.lock();
    EXPECT_FALSE(third.try_lock());
    third.unlock();
    s_recursiveAttr = attribute;
    pthread_mutexattr_destroy(&plain);
}

TEST(TovMutex, ExcludesOtherThreads) {
    TovMutex mutex;
    long count = 0;
    auto add = [&] {
        for (int i = 0; i < 20000; ++i) {
            const std::lock_guard<TovMutex> lock(mutex);
            ++count;
        }
    };
    std::thread other(add);
    add();
    other.join();
    EXPECT_EQ(40000, count);
}

} // namespace
