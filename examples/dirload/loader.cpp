#include "loader.h"

#include "../tovconv/utf8.h"
#include "trace.h"

#include <tovutil/tovldapu.h>
#include <tovutil/tovutf8.h>

#include <algorithm>
#include <functional>

namespace {

constinit TRC1_UNIT s_unit = traceUnit("examples/dirload/loader");
constinit TRC1_SEQUENCE s_sequence = 1;

constexpr unsigned c_cachedDns = 1000;
constexpr std::size_t c_heapBlock = 4000; // most entries need one block
constexpr std::size_t c_usualAttributes = 16;

constexpr const char *c_dnAttributes[] = {"manager", "member",    "owner",       "roleOccupant",
                                          "seeAlso", "secretary", "uniqueMember"};
constexpr const char *c_binaryAttributes[] = {"audio", "cACertificate", "jpegPhoto", "photo",
                                              "userCertificate"};

TovUniString onHeap(const Entry &entry, const TovUString &text) {
    return TovUniString::fromHeap(text.data(), static_cast<unsigned>(text.size()), entry.heap.get());
}

} // namespace

Totals &Totals::operator+=(const Totals &other) {
    entries += other.entries;
    attributes += other.attributes;
    cacheHits += other.cacheHits;
    cacheMisses += other.cacheMisses;
    std::transform(errors.begin(), errors.end(), other.errors.begin(), errors.begin(), std::plus());
    return *this;
}

Loader::Loader(LoadSink &sink, const DirloadAttribute *plugin) : m_sink(sink), m_dns(c_cachedDns) {
    for (const char *name : c_dnAttributes)
        m_rules[name].syntax = Syntax::Dn;
    for (const char *name : c_binaryAttributes)
        m_rules[name].syntax = Syntax::Binary;
    for (; plugin && plugin->name; ++plugin)
        m_rules[plugin->name].normalise = plugin->normalise;
}

void Loader::load(ByteSource &source, const std::string &name, std::size_t longestLine) {
    static constinit TRC1_EPB s_record = traceRecord(s_unit, s_sequence, "Loader::load", __LINE__);
    TracedCall trace(s_record);
    if (trace.has(TRC1_FLOW))
        trace.text(__LINE__) << "Args - name(" << name.c_str() << ") " << std::flush;
    m_entry.reset(); // of a file that ended with an exception
    File file{name, LdifReader(source, longestLine)};
    for (LdifItem item; file.reader.next(item);)
        take(file, item);
    endEntry();
    if (trace.has(TRC1_STATE))
        trace.text(__LINE__) << "State - entries(" << m_totals.entries << ") " << std::flush;
}

Totals Loader::totals() const {
    Totals totals = m_totals;
    totals.cacheHits = m_dns.hits();
    totals.cacheMisses = m_dns.misses();
    return totals;
}

void Loader::take(File &file, const LdifItem &item) {
    switch (item.kind) {
    case LdifItem::Kind::Dn:
        return beginEntry(file, item);
    case LdifItem::Kind::Value:
        return addValue(file, item);
    case LdifItem::Kind::RecordEnd:
        return endEntry();
    case LdifItem::Kind::Fault:
        return takeFault(file, item);
    }
}

// A record of changes is no entry. A DN in the middle of a record ends its entry here, because the DN itself
// may be the next fault.
void Loader::takeFault(File &file, const LdifItem &item) {
    if (item.fault == Fault::ChangeRecord)
        m_entry.reset();
    report(file, {item.fault, item.place, item.bytes, item.name, {}});
    if (item.fault == Fault::MissingSeparator)
        endEntry();
}

void Loader::beginEntry(File &file, const LdifItem &item) {
    static constinit TRC1_EPB s_record = traceRecord(s_unit, s_sequence, "Loader::beginEntry", __LINE__);
    TracedCall trace(s_record);
    endEntry();
    if (!isText(file, item))
        return;
    try {
        TovUString dn = m_dns.normalOfEntry(item.bytes);
        m_entry = Entry{TovFastHeap::create(c_heapBlock), std::move(dn), {}};
        m_entry->attributes.reserve(c_usualAttributes);
    } catch (const TovErrorFull &reason) {
        return report(file, item, Fault::BadDn, 0, &reason);
    }
    if (trace.has(TRC1_STATE))
        trace.text(__LINE__) << "State - dn(" << tovToLdapString(m_entry->dn).c_str() << ") " << std::flush;
}

void Loader::endEntry() {
    if (!m_entry)
        return;
    ++m_totals.entries;
    m_sink.entry(*m_entry);
    m_entry.reset();
}

void Loader::addValue(File &file, const LdifItem &item) {
    if (!m_entry)
        return; // its DN was bad
    const Rule rule = ruleOf(item);
    if (rule.syntax != Syntax::Binary) {
        if (!isText(file, item))
            return;
        tovUtf8ToUtf16(item.bytes.data(), static_cast<std::uint32_t>(item.bytes.size()), m_units);
        TovUniString value = onHeap(*m_entry, m_units);
        if (!followsRule(file, item, rule, value))
            return;
        tovUtf8ToUtf16(item.name.data(), static_cast<std::uint32_t>(item.name.size()), m_units);
        m_entry->attributes.push_back({onHeap(*m_entry, m_units), std::move(value)});
    }
    ++m_totals.attributes;
}

bool Loader::isText(File &file, const LdifItem &item) {
    const std::size_t good = wellFormedUtf8(item.bytes);
    if (good == item.bytes.size())
        return true;
    report(file, item, Fault::BadUtf8, good);
    return false;
}

// Names get their normal form, and what a plug-in knows gets its own.
bool Loader::followsRule(File &file, const LdifItem &item, const Rule &rule, TovUniString &value) {
    if (rule.syntax == Syntax::Dn) {
        try {
            value = onHeap(*m_entry, m_dns.normal(item.bytes));
        } catch (const TovErrorFull &reason) {
            report(file, item, Fault::BadDn, 0, &reason);
            return false;
        }
    }
    if (const char *why = rule.normalise ? rule.normalise(value) : nullptr) {
        const TovErrorFull reason = reasonOf(Fault::BadValue, why);
        report(file, item, Fault::BadValue, 0, &reason);
        return false;
    }
    return true;
}

Loader::Rule Loader::ruleOf(const LdifItem &item) const {
    if (equalNames(item.options, ";binary"))
        return {Syntax::Binary};
    const auto rule = m_rules.find(item.name);
    return rule == m_rules.end() ? Rule() : rule->second;
}

void Loader::report(File &file, const LdifItem &item, Fault fault, std::size_t offset,
                    const TovError *reason) {
    report(file, {fault, file.reader.placeInValue(offset), item.bytes.substr(offset), item.name, {}, reason});
}

void Loader::report(File &file, Problem problem) {
    ++m_totals.errors[indexOf(problem.fault)];
    if (m_entry)
        problem.dn = m_entry->dn;
    m_sink.problem(errorOf(file.name, problem));
}
