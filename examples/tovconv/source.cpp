#include "source.h"

#include "search.h"
#include "utf8.h"

#include <algorithm>
#include <array>
#include <vector>

namespace {

bool isHigh(TovUChar unit) { return (unit & 0xFC00) == 0xD800; }
bool isLow(TovUChar unit) { return (unit & 0xFC00) == 0xDC00; }

// The units before the first surrogate without its partner.
std::size_t pairedUnits(std::u16string_view units) {
    std::size_t i = 0;
    while (i < units.size()) {
        const bool pair = isHigh(units[i]) && i + 1 < units.size() && isLow(units[i + 1]);
        if ((units[i] & 0xF800) == 0xD800 && !pair)
            break;
        i += pair ? 2 : 1;
    }
    return i;
}

class Utf8Source : public Source {
public:
    explicit Utf8Source(const Page &page) : m_page(page) {}

    Taken take(Stretch stretch, bool) const override {
        const std::size_t length = wellFormedUtf8(stretch.bytes);
        return {length, m_page.toUnits(stretch.bytes.substr(0, length))};
    }
    std::size_t bytesBefore(Stretch stretch, std::size_t index) const override {
        return utf8BytesOfUnits(stretch.bytes, index);
    }
    Bad badBytes(Stretch stretch) const override { return {0, illFormedUtf8(stretch.bytes)}; }
    std::string_view shiftAfter(Stretch) const override { return {}; }

private:
    const Page &m_page;
};

class Utf16Source : public Source {
public:
    explicit Utf16Source(const Page &page) : m_page(page) {}

    Taken take(Stretch stretch, bool) const override {
        Taken taken{0, m_page.toUnits(stretch.bytes)};
        taken.units.cut(pairedUnits(taken.units.view()));
        taken.bytes = 2 * taken.units.size();
        return taken;
    }
    std::size_t bytesBefore(Stretch, std::size_t index) const override { return 2 * index; }
    Bad badBytes(Stretch stretch) const override {
        return {0, std::min<std::size_t>(2, stretch.bytes.size())};
    }
    std::string_view shiftAfter(Stretch) const override { return {}; }

private:
    const Page &m_page;
};

// A code page of the closed library.
class ClosedSource : public Source {
public:
    explicit ClosedSource(const Page &page);

    Taken take(Stretch stretch, bool last) const override;
    std::size_t bytesBefore(Stretch stretch, std::size_t index) const override;
    Bad badBytes(Stretch stretch) const override;
    std::string_view shiftAfter(Stretch stretch) const override;

private:
    std::vector<std::size_t> likelyCuts(std::string_view bytes) const;
    Taken takeUpToBad(Stretch stretch) const;
    Converted<TovUChar> toUnits(Stretch stretch) const;
    std::size_t shortest(Stretch stretch, std::size_t unitCount) const;
    std::size_t shiftBytes(std::string_view bytes) const;

    const Page &m_page;
    std::array<std::string, 2> m_breaks; // line feed and blank
};

ClosedSource::ClosedSource(const Page &page)
    : m_page(page), m_breaks{std::string(page.fromUnits(u"\n").view()),
                             std::string(page.fromUnits(u" ").view())} {}

// Ends of stretches that may well be ends of characters, too: after a line feed, after a blank, at the end,
// and just before it, where the last character is cut off.
std::vector<std::size_t> ClosedSource::likelyCuts(std::string_view bytes) const {
    std::vector<std::size_t> cuts;
    for (const std::string &text : m_breaks)
        if (const std::size_t at = text.empty() ? bytes.npos : bytes.rfind(text); at != bytes.npos)
            cuts.push_back(at + text.size());
    for (std::size_t cutOff = 0; cutOff < std::min(bytes.size(), c_longestCharacter); ++cutOff)
        cuts.push_back(bytes.size() - cutOff);
    return cuts;
}

Taken ClosedSource::take(Stretch stretch, bool last) const {
    const auto cuts = last ? std::vector{stretch.bytes.size()} : likelyCuts(stretch.bytes);
    for (const std::size_t cut : cuts) {
        auto units = m_page.allToUnits(stretch.shift, stretch.bytes.substr(0, cut));
        if (units && pairedUnits(units->view()) == units->size())
            return {cut, std::move(*units)};
    }
    return takeUpToBad(stretch);
}

Taken ClosedSource::takeUpToBad(Stretch stretch) const {
    Taken taken{0, toUnits(stretch)};
    taken.units.cut(pairedUnits(taken.units.view()));
    taken.bytes = shortest(stretch, taken.units.size());
    return taken;
}

Converted<TovUChar> ClosedSource::toUnits(Stretch stretch) const {
    std::string text(stretch.shift);
    return m_page.toUnits(text += stretch.bytes);
}

// The bytes of the shortest start that gives so many units: a start never gives more than a longer one.
// Mostly it ends close to the end.
std::size_t ClosedSource::shortest(Stretch stretch, std::size_t unitCount) const {
    const auto isEnough = [&](std::size_t bytes) {
        return toUnits({stretch.shift, stretch.bytes.substr(0, bytes)}).size() >= unitCount;
    };
    const std::size_t length = stretch.bytes.size();
    const std::size_t nearEnd = length - std::min(length, 2 * c_longestCharacter);
    return isEnough(nearEnd) ? firstReached(0, nearEnd, isEnough) : firstReached(nearEnd, length, isEnough);
}

std::size_t ClosedSource::shiftBytes(std::string_view bytes) const {
    return m_page.hasShifts() ? std::min(bytes.size(), bytes.find_first_not_of("\x0E\x0F")) : 0;
}

std::size_t ClosedSource::bytesBefore(Stretch stretch, std::size_t index) const {
    const std::size_t before = shortest(stretch, index);
    return before + shiftBytes(stretch.bytes.substr(before));
}

Bad ClosedSource::badBytes(Stretch stretch) const {
    constexpr std::size_t mostShown = 4;
    const std::size_t skipped = shiftBytes(stretch.bytes);
    const std::size_t character = m_page.hasShifts() ? 2 : std::min(m_page.longestCharacter(), mostShown);
    return {skipped, std::min(stretch.bytes.size() - skipped, character)};
}

std::string_view ClosedSource::shiftAfter(Stretch stretch) const {
    if (!m_page.hasShifts())
        return {};
    const std::size_t at = stretch.bytes.find_last_of("\x0E\x0F");
    if (at == stretch.bytes.npos)
        return stretch.shift;
    return stretch.bytes[at] == '\x0E' ? "\x0E" : "";
}

} // namespace

std::unique_ptr<Source> Source::of(const Page &page) {
    switch (page.form()) {
    case Page::Form::Utf8:
        return std::make_unique<Utf8Source>(page);
    case Page::Form::Utf16:
        return std::make_unique<Utf16Source>(page);
    default:
        return std::make_unique<ClosedSource>(page);
    }
}
