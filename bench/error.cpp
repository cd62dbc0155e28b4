// Errors: made and dropped, thrown and caught; and what a copy of the handle costs.
#include "bench.h"

#include <tovutil/toverrfl.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <system_error>

#ifdef TOV_BENCH_ABSL
#include <absl/status/status.h>
#endif
#ifdef TOV_BENCH_BOOST
#include <boost/exception/all.hpp>
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>
#endif
#ifdef TOV_BENCH_QT
#include <QSharedPointer>
#endif

namespace tovbench {

namespace {

constexpr const char *c_message = "Unknown code page 37";
constexpr const char *c_location = "From (TovNls::TovNls), Line(204) in module (tovnls)";

// As the library's own raising sites make it.
TovErrorFull fullError() {
    return TovErrorFull(TOV_CODE(TOVRC_NLS_ERROR), TOV_CODE(TOVOP_REPOSITORY), 0, nullptr, 0, TovError::Error,
                        204, "TovNls::TovNls", "$Revision: 1.0.0 $", "tovdom/tovnls/tovnls", "Oct  6 2004",
                        TovString(c_message), nullptr);
}

[[noreturn, gnu::noinline]] void raiseFull() {
    const TovErrorFull error = fullError();
    error.logRaise();
}

[[noreturn, gnu::noinline]] void raiseCheck() {
    tovCheck("tovdom/tovnls/tovnls", 204, c_message, TOV_CODE(TOVRC_INTERNAL_ERROR));
}

// About 500 bytes of fields in the object itself, filled from short texts.
struct Fields : std::exception {
    Fields() {
        put(code, "TOVRC_NLS_ERROR");
        put(layer, "TOVOP_REPOSITORY");
        put(reason, "");
        put(from, "TovNls::TovNls");
        put(version, "$Revision: 1.0.0 $");
        put(file, "tovnls");
        put(build, "Oct  6 2004");
    }
    template <std::size_t size>
    static void put(char (&to)[size], const char *from) {
        const std::size_t length = std::min(std::strlen(from), size - 1);
        std::memcpy(to, from, length);
        to[length] = 0;
    }
    char code[48], layer[48], reason[48];
    std::uint32_t line = 204;
    char from[128], version[64], file[16], build[64];
    std::uint32_t numbers[5] = {21029, 101, 0, 1, 2};
};

// The same with three texts on the heap.
struct FieldsTexts : Fields {
    std::string text = c_message, shown = c_location, location = c_location;
};

struct Body {
    std::uint32_t numbers[4];
    std::string text, location;
};

#ifdef TOV_BENCH_BOOST
using Tag = boost::error_info<struct TagText, std::string>;
struct Tagged : virtual std::exception, virtual boost::exception {};

struct Atomic : Body, boost::intrusive_ref_counter<Atomic, boost::thread_safe_counter> {};
struct Plain : Body, boost::intrusive_ref_counter<Plain, boost::thread_unsafe_counter> {};
#endif

// Made and dropped ----------------------------------------------------------------------------------

template <class Make>
void made(const char *peer, Make make) {
    job(std::string("error/create/") + peer, [make] {
        auto error = make();
        benchmark::DoNotOptimize(error);
    });
}

void registerCreate() {
    job("error/create/limit:malloc-pair", [] {
        void *block = std::malloc(64);
        benchmark::DoNotOptimize(block);
        std::free(block);
    });
    made("tovutil", fullError);
    made("tovutil:TovError", [] {
        return TovError(TOVRC_NLS_ERROR, 0, TOVOP_REPOSITORY, 0, TovError::Error, c_location, c_message,
                        nullptr);
    });
    made("runtime_error", [] { return std::runtime_error(c_message); });
    made("fields500", [] { return Fields(); });
    made("fields500-texts", [] { return FieldsTexts(); });
#ifdef TOV_BENCH_ABSL
    made("absl-status", [] { return absl::InternalError(c_message); });
#endif
#ifdef TOV_BENCH_BOOST
    made("boost-tagged", [] {
        Tagged error;
        error << Tag(c_message);
        return error;
    });
#endif
}

// Thrown and caught ---------------------------------------------------------------------------------

volatile bool s_armed = true;

template <class Raise>
[[gnu::noinline]] int down(int depth, Raise raise) {
    // The destructor makes each frame one that has to be cleaned up.
    struct Frame {
        ~Frame() { benchmark::ClobberMemory(); }
    } frame;
    if (depth > 1)
        return down(depth - 1, raise) + 1;
    if (s_armed)
        raise();
    return 0;
}

// What was caught; 0 when nothing was.
template <class Raise>
int caught(int depth, Raise raise) {
    try {
        benchmark::DoNotOptimize(down(depth, raise));
    } catch (const TovError &error) {
        benchmark::DoNotOptimize(&error);
        return 1;
    } catch (const std::exception &error) {
        benchmark::DoNotOptimize(&error);
        return 2;
    } catch (int number) {
        benchmark::DoNotOptimize(number);
        return 3;
    }
    return 0;
}

template <class Raise>
void thrown(const char *peer, int what, Raise raise) {
    for (const int depth : {1, 10})
        preparedJob("error/throw/depth" + std::to_string(depth) + "/" + peer, [=](benchmark::State &state) {
            require(state, caught(depth, raise) == what);
            return [raise, depth] { caught(depth, raise); };
        });
}

// An int through as many more frames as lie between a raising site of the library and its throw.
void thrownDeeper() {
    for (const int depth : {1, 10})
        job("error/throw/depth" + std::to_string(depth) + "/model:int-3-frames-more",
            [depth] { caught(depth + 3, [] { throw 1; }); });
}

// What a handler pays that shows the message.
void thrownAndRead() {
    for (const int depth : {1, 10})
        job("error/throw/depth" + std::to_string(depth) + "/tovutil:read", [depth] {
            try {
                benchmark::DoNotOptimize(down(depth, raiseFull));
            } catch (const TovError &error) {
                benchmark::DoNotOptimize(error.getErrorMessage());
            }
        });
}

#ifdef TOV_BENCH_ABSL
[[gnu::noinline]] absl::Status status(int depth) {
    if (depth > 1)
        return status(depth - 1);
    return absl::InternalError(c_message);
}

void returnedStatus() {
    for (const int depth : {1, 10})
        job("error/throw/depth" + std::to_string(depth) + "/part:absl-status-returned", [depth] {
            const absl::Status result = status(depth);
            if (!result.ok())
                benchmark::DoNotOptimize(&result);
        });
}
#endif

void registerThrow() {
    thrown("limit:int", 3, [] { throw 1; });
    thrown("tovutil", 1, raiseFull);
    thrown("tovutil:tovCheck", 1, raiseCheck);
    thrown("tovutil:throw", 1, [] { throw fullError(); });
    thrownAndRead();
    thrownDeeper();
    thrown("runtime_error", 2, [] { throw std::runtime_error(c_message); });
    thrown("system_error", 2, [] { throw std::system_error(5, std::generic_category(), c_message); });
    thrown("fields500", 2, [] { throw Fields(); });
    thrown("fields500-texts", 2, [] { throw FieldsTexts(); });
#ifdef TOV_BENCH_BOOST
    thrown("boost-tagged", 2, [] { throw Tagged(Tagged() << Tag(c_message)); });
#endif
#ifdef TOV_BENCH_ABSL
    returnedStatus();
#endif
}

// Copied --------------------------------------------------------------------------------------------

template <class Handle>
void copied(const char *peer, Handle handle) {
    job(std::string("error/handle-copy/") + peer, [handle] {
        auto copy = handle;
        benchmark::DoNotOptimize(copy);
    });
}

void registerCopy() {
    const TovErrorFull full = fullError();
    copied("tovutil", full);
    copied("tovutil:TovError", TovError(full));
    copied("tovutil:static-body", TovError());
    copied("shared_ptr", std::make_shared<Body>());
    copied("exception_ptr", std::make_exception_ptr(std::runtime_error(c_message)));
    copied("runtime_error", std::runtime_error(c_message)); // shares its text
    copied("deep-copy", Body{{}, c_message, c_location});
#ifdef TOV_BENCH_BOOST
    copied("limit:plain-count", boost::intrusive_ptr<Plain>(new Plain));
    copied("intrusive-atomic", boost::intrusive_ptr<Atomic>(new Atomic));
#endif
#ifdef TOV_BENCH_QT
    copied("qt-shared", QSharedPointer<Body>::create());
#endif
#ifdef TOV_BENCH_ABSL
    copied("absl-status", absl::InternalError(c_message));
#endif
}

} // namespace

void registerTopic() {
    registerCreate();
    registerThrow();
    registerCopy();
}

} // namespace tovbench
