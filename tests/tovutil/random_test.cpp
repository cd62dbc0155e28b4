#include <support/traced.h>

#include <tovutil/random.h>
#include <tovutil/tovutil.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace {

using Numbers = std::vector<std::uint32_t>;

// What `draw` gives in a new process: the stream begins anew there, because this one never uses it.
Numbers inNewProcess(const std::function<Numbers()> &draw) {
    int ends[2];
    if (::pipe(ends) != 0)
        return {};
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(ends[0]);
        for (const std::uint32_t number : draw())
            if (::write(ends[1], &number, sizeof number) != sizeof number)
                ::_exit(1);
        ::_exit(0);
    }
    ::close(ends[1]);
    Numbers numbers;
    for (std::uint32_t number; ::read(ends[0], &number, sizeof number) == sizeof number;)
        numbers.push_back(number);
    ::close(ends[0]);
    int status = 1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
    return numbers;
}

Numbers drawn(std::size_t count, std::uint32_t limit) {
    Numbers numbers;
    while (numbers.size() < count)
        numbers.push_back(__long_random(limit));
    return numbers;
}

TEST(TovRandomStream, IsTheSameInEveryProcess) {
    const struct {
        std::uint32_t limit;
        Numbers want;
    } rows[] = {
        {100, {43, 2, 51, 86, 27, 40}},
        {0xFFFFFFFF, {0x293A7723, 0xC848B86A, 0xDD183873}},
        {0x7FFFFFFF, {691697443, 1212725355, 1561868404, 2080534686, 1350720880, 912694393}},
        {1, {0, 0, 0}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.limit);
        EXPECT_EQ(row.want, inNewProcess([&] { return drawn(row.want.size(), row.limit); }));
    }
    EXPECT_EQ((Numbers{691697443, 1212725355, 1561868404, 2080534686, 1350720880, 912694393}),
              inNewProcess([] {
                  Numbers numbers;
                  while (numbers.size() < 6)
                      numbers.push_back(static_cast<std::uint32_t>(lrand48()));
                  return numbers;
              }));
}

TEST(TovRandomStream, IsOneForAllFunctionsAndLimits) {
    EXPECT_EQ((Numbers{43, 0, 1561868404, 86}), inNewProcess([] {
                  Numbers numbers = drawn(1, 100);
                  numbers.push_back(__long_random(1));
                  numbers.push_back(static_cast<std::uint32_t>(lrand48()));
                  numbers.push_back(__long_random(100));
                  return numbers;
              }));
}

TEST(TovRandomStream, GoesOnAfterARelease) {
    EXPECT_EQ((Numbers{43, 2, 51, 86}), inNewProcess([] {
                  TovRandom_release();
                  Numbers numbers = drawn(2, 100);
                  TovRandom_release();
                  TovRandom_release();
                  EXPECT_EQ(nullptr, TovRandom::ms_pool.m_data);
                  for (const std::uint32_t number : drawn(2, 100))
                      numbers.push_back(number);
                  return numbers;
              }));
}

TEST(TovRandomStream, GivesEachNumberToOneThread) {
    constexpr std::size_t threadCount = 4, share = 5000;
    Numbers parallel = inNewProcess([] {
        std::vector<Numbers> shares(threadCount);
        std::vector<std::thread> threads;
        for (Numbers &numbers : shares)
            threads.emplace_back([&numbers] { numbers = drawn(share, 0xFFFFFFFF); });
        for (std::thread &thread : threads)
            thread.join();
        Numbers all;
        for (const Numbers &numbers : shares)
            all.insert(all.end(), numbers.begin(), numbers.end());
        return all;
    });
    Numbers sequential = inNewProcess([] { return drawn(threadCount * share, 0xFFFFFFFF); });
    std::sort(parallel.begin(), parallel.end());
    std::sort(sequential.begin(), sequential.end());
    EXPECT_EQ(sequential, parallel);
}

TEST(TovRandomGenerator, StepsAsTheRecurrenceSays) {
    for (const std::uint32_t start : {161803398U, 0U, 1U, 0xFFFFFFFFU}) {
        __random_generator generator;
        generator.seed(start);
        Numbers numbers;
        for (int i = 0; i < 300; ++i)
            numbers.push_back(generator.next());
        for (std::size_t i = 55; i < numbers.size(); ++i)
            ASSERT_EQ(numbers[i - 55] - numbers[i - 24], numbers[i]) << start << ", number " << i;
        generator.seed(start);
        EXPECT_EQ(numbers[0], generator.next()) << "seeding begins anew";
    }
}

} // namespace
