// Random operations on a pool of strings of all kinds, each beside a standard string that has to stay equal:
// what is done to one string, and what fails, must never show in another one, in a literal or in a caller's
// buffer.
#include <support/failalloc.h>
#include <support/random.h>
#include <tovutil/toverrfl.h>
#include <tovutil/tovfheap.h>
#include <tovutil/tovutstr.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <ostream>
#include <string>
#include <utility>

namespace {

using tovtest::below;
using Model = std::u16string;

#if defined(TOV_THREAD_SANITIZER) || defined(TOV_ADDRESS_SANITIZER)
constexpr int c_steps = 50000;
#else
constexpr int c_steps = 300000;
#endif
constexpr unsigned c_longest = 400;

constexpr std::u16string_view c_literals[] = {u"",      u" ",        u"a literal", u"  padded\t\n",
                                              u"12345", u"*****x***"};

class Pool {
public:
    Pool() : m_random(tovtest::generator()) {
        for (std::size_t i = 0; i < m_fixed.size(); ++i)
            m_fixed[i].initStatic("a text for ever", static_cast<unsigned>(i * 5));
        for (auto &buffer : m_buffers) {
            buffer = std::make_unique<char16_t[]>(20);
            std::u16string_view(u"a caller's buffer..\0", 20).copy(buffer.get(), 20);
        }
    }

    void step() {
        m_one = below(m_random, m_entries.size());
        m_two = below(m_random, m_entries.size());
        (this->*s_operations[below(m_random, std::size(s_operations))])();
        if (one().string.length() > c_longest)
            renew(one());
    }

    void check() const {
        for (const Entry &entry : m_entries)
            ASSERT_EQ(entry.string, entry.model);
        for (const auto &buffer : m_buffers)
            ASSERT_EQ(std::u16string_view(buffer.get(), 20),
                      std::u16string_view(u"a caller's buffer..\0", 20));
        for (const TovUniString &fixed : m_fixed)
            ASSERT_EQ(fixed, std::u16string_view(u"a text for ever").substr(0, fixed.length()));
    }

private:
    struct Entry {
        TovUniString string;
        Model model;
    };

    Entry &one() { return m_entries[m_one]; }
    Entry &two() { return m_entries[m_two]; }
    unsigned number(std::size_t limit) { return static_cast<unsigned>(below(m_random, limit)); }
    char16_t unit() { return std::u16string_view(u" *a1")[number(4)]; }
    TovFastHeap *anyHeap() { return number(2) != 0 ? m_heaps[number(2)].get() : nullptr; }
    static void renew(Entry &entry) {
        entry.string = TovUniString();
        entry.model.clear();
    }
    // Whether a call on strings got through; now and then one of its allocations fails.
    template <class Call>
    bool gotThrough(Call call) {
        const long failAt = number(3) == 0 ? 1 + number(2) : 1000;
        try {
            const tovtest::FailingAllocation failing(failAt);
            call();
            return true;
        } catch (const std::bad_alloc &) {
        } catch (const TovError &error) {
            EXPECT_EQ(TOVRC_OUT_OF_MEMORY, error.getReturnCode());
        }
        return false;
    }

    // The string that `make` gives takes the first place, with its model.
    template <class Make>
    void become(Make make, Model model) {
        if (gotThrough([&] { one().string = make(); }))
            one().model = std::move(model);
    }
    // `edit` changes the first string as `editModel` does its model.
    template <class Edit, class EditModel>
    void change(Edit edit, EditModel editModel) {
        if (gotThrough([&] { edit(one().string); }))
            editModel(one().model);
    }
    template <class Call>
    void keep(Call call) {
        gotThrough([&] { call(one().string); });
    }

    void copy() {
        if (gotThrough([&] { one().string = two().string; }))
            one().model = two().model;
    }
    void move() {
        TovUniString string = std::move(two().string);
        Model model = std::exchange(two().model, Model());
        become([&] { return std::move(string); }, model);
    }
    void swapTwo() {
        swap(one().string, two().string);
        one().model.swap(two().model);
    }
    void toHeap() {
        const auto &heap = number(3) != 0 ? m_heaps[number(2)] : TovFastHeap::getEmptyRef();
        become([&] { return TovUniString(heap, two().string); }, two().model);
    }
    void part() {
        const unsigned position = number(two().string.length() + 2), count = number(60);
        become([&] { return two().string.substr(position, count); },
               position > two().model.size() ? Model() : two().model.substr(position, count));
    }
    void ownPart() {
        const unsigned position = number(one().string.length() + 1);
        become([&] { return one().string.substr(position); }, one().model.substr(position));
    }
    void viewLiteral() {
        const auto text = c_literals[number(std::size(c_literals))];
        const bool terminated = number(2) != 0;
        become(
            [&] {
                return TovUniString::fromStatic(text.data(), static_cast<unsigned>(text.size()), terminated);
            },
            Model(text));
    }
    void viewFixed() {
        const TovUniString &fixed = m_fixed[number(m_fixed.size())];
        become([&] { return TovUniString(fixed); }, Model(fixed.view()));
    }
    void viewBuffer() {
        const auto &buffer = m_buffers[number(2)];
        const int flags = static_cast<int>(number(4));
        const unsigned length = (flags & TovUniString::NullTerminated) != 0 ? 19U : number(20);
        become([&] { return TovUniString::fromLocal(buffer.get(), length, flags); },
               Model(buffer.get(), length));
    }
    void makeHeap() {
        const Model text(number(100), unit());
        TovFastHeap *heap = anyHeap();
        become([&] { return TovUniString::fromHeap(text.c_str(), TovUniString::npos, heap); }, text);
    }
    void makeBytes() {
        TovFastHeap *heap = anyHeap();
        become([&] { return TovUniString::fromBytes("bytes", 5, heap); }, u"bytes");
    }
    void endHeap() { m_heaps[number(2)] = TovFastHeap::create(0); }

    void appendUnit() {
        const char16_t c = unit();
        for (unsigned n = number(15); n > 0; --n)
            change([&](TovUniString &s) { s.append(c); }, [&](Model &m) { m += c; });
    }
    void appendCount() {
        const unsigned count = number(20);
        const char16_t c = unit();
        change([&](TovUniString &s) { s.append(count, c); }, [&](Model &m) { m.append(count, c); });
    }
    void appendText() {
        const unsigned position = number(two().string.length() + 1);
        const Model text = two().model.substr(position);
        change([&](TovUniString &s) { s.append(two().string.view().substr(position)); },
               [&](Model &m) { m += text; });
    }
    void insertUnits() {
        const unsigned position = number(one().string.length() + 3), count = number(20);
        const char16_t c = unit();
        change([&](TovUniString &s) { s.insert(position, count, c); },
               [&](Model &m) { m.insert(std::min<std::size_t>(position, m.size()), count, c); });
    }
    void appendNumber() {
        const auto value = static_cast<std::int32_t>(static_cast<std::uint32_t>(m_random()));
        const unsigned width = number(14);
        const std::string digits = std::to_string(std::abs(std::int64_t{value}));
        const std::size_t sign = value < 0;
        change([&](TovUniString &s) { s.appendInt32(value, width); },
               [&](Model &m) {
                   m.append(sign, u'-');
                   m.append(width > digits.size() + sign ? width - digits.size() - sign : 0, u'0');
                   m.append(digits.begin(), digits.end());
               });
    }
    void write() {
        if (one().string.empty())
            return;
        const unsigned position = number(one().string.length());
        change([&](TovUniString &s) { s.writable()[position] = u'#'; },
               [&](Model &m) { m[position] = u'#'; });
    }
    void resize() {
        const unsigned former = one().string.length(), length = number(former + 20);
        change([&](TovUniString &s) { s.resize(length); }, [&](Model &m) { m.resize(length, u'+'); });
        if (one().string.length() <= former)
            return;
        // New units have no particular value, and the buffer they lie in may be shared.
        TovUChar *text = one().string.writable();
        std::fill(text + former, text + length, u'+');
    }
    void eraseAll() {
        change([](TovUniString &s) { s.erase(); }, [](Model &m) { m.clear(); });
    }

    void terminate() {
        keep([](TovUniString &s) { EXPECT_EQ(0, s.c_str()[s.length()]); });
    }
    void reserve() {
        const unsigned capacity = number(200);
        keep([&](TovUniString &s) { s.reserve(capacity); });
    }
    void unshare() {
        keep([](TovUniString &s) { s.unshare(); });
    }
    void copyOnWrite() {
        keep([](TovUniString &s) { s.copyOnWrite(); });
    }
    void setCopyOnShare() {
        const bool on = number(2) != 0;
        keep([&](TovUniString &s) { s.setCopyOnShare(on); });
    }

    static Model cut(const Model &text, const char16_t *units) {
        const std::size_t first = text.find_first_not_of(units);
        return first == Model::npos ? Model() : text.substr(first, text.find_last_not_of(units) - first + 1);
    }
    void trimSpaces() {
        become([&] { return two().string.trimSpaces(); }, cut(two().model, u" "));
    }
    void trimWs() {
        become([&] { return two().string.trimWs(); }, cut(two().model, u" \t\n\r"));
    }
    void strip() {
        const auto justify = static_cast<TovUniString::Justify>(number(4));
        Model model = two().model;
        if (justify == TovUniString::JustifyCenter || justify == TovUniString::JustifyRight)
            model.erase(0, std::min(model.find_first_not_of(u'*'), model.size()));
        if (justify == TovUniString::JustifyCenter || justify == TovUniString::JustifyLeft)
            model.erase(model.find_last_not_of(u'*') + 1);
        become([&] { return two().string.stripPads(justify, u'*'); }, model);
    }

    static constexpr void (Pool::*s_operations[])() = {
        &Pool::copy,        &Pool::move,         &Pool::swapTwo,    &Pool::toHeap,      &Pool::part,
        &Pool::ownPart,     &Pool::viewLiteral,  &Pool::viewFixed,  &Pool::viewBuffer,  &Pool::makeHeap,
        &Pool::makeBytes,   &Pool::endHeap,      &Pool::appendUnit, &Pool::appendCount, &Pool::appendText,
        &Pool::insertUnits, &Pool::appendNumber, &Pool::write,      &Pool::resize,      &Pool::eraseAll,
        &Pool::terminate,   &Pool::reserve,      &Pool::unshare,    &Pool::copyOnWrite, &Pool::setCopyOnShare,
        &Pool::trimSpaces,  &Pool::trimWs,       &Pool::strip};

    std::mt19937_64 m_random;
    std::array<TovUtRef<TovFastHeap>, 2> m_heaps = {TovFastHeap::create(0), TovFastHeap::create(500)};
    std::array<std::unique_ptr<char16_t[]>, 2> m_buffers;
    std::array<TovUniString, 3> m_fixed;
    std::array<Entry, 12> m_entries;
    std::size_t m_one = 0, m_two = 0;
};

TEST(StringModel, NoStringChangesThroughAnother) {
    Pool pool;
    for (int step = 0; step < c_steps; ++step) {
        SCOPED_TRACE(step);
        pool.step();
        pool.check();
        if (HasFatalFailure())
            return;
    }
}

} // namespace
