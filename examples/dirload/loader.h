/// Makes entries of LDIF text.
#pragma once

#include "dn.h"
#include "ldif.h"
#include "plugin.h"
#include "problem.h"
#include "text.h"

#include <tovutil/tovfheap.h>
#include <tovutil/tovutstr.h>

#include <array>
#include <map>
#include <optional>
#include <string>
#include <vector>

struct Attribute {
    TovUniString name; ///< as it stands in the file, without options
    TovUniString value;
};

/// An entry, whose texts lie on its heap: they die with it.
struct Entry {
    TovUtRef<TovFastHeap> heap;
    TovUString dn; ///< normalised
    std::vector<Attribute> attributes;
};

/// What a loader gives its user. May raise, which ends the loading.
class LoadSink {
public:
    virtual ~LoadSink() = default;
    virtual void entry(const Entry &entry) = 0;
    virtual void problem(const TovErrorFull &error) = 0;
};

struct Totals {
    std::uint64_t entries = 0;
    std::uint64_t attributes = 0; ///< values, binary ones among them
    std::uint64_t cacheHits = 0;
    std::uint64_t cacheMisses = 0;
    std::array<std::uint64_t, c_faults.size()> errors{};

    Totals &operator+=(const Totals &other);
    bool operator==(const Totals &) const = default;
};

/// One thread at a time. Loaders share nothing, but for the plug-in's table, which is constant.
class Loader {
public:
    /// `plugin` ends with a null name; null means none.
    Loader(LoadSink &sink, const DirloadAttribute *plugin);

    /// Loads all entries of a file. Values of known binary attributes, and with the option ";binary", are
    /// counted and not kept.
    ///
    /// Errors     Exhausted memory as TovError or std::bad_alloc; what source and sink raise.
    void load(ByteSource &source, const std::string &file,
              std::size_t longestLine = LdifReader::c_longestLine);

    /// Of all files so far. Holds, too, after an exception.
    Totals totals() const;

private:
    enum class Syntax { Text, Dn, Binary };
    struct Rule {
        Syntax syntax = Syntax::Text;
        const char *(*normalise)(TovUniString &value) = nullptr;
    };
    struct File {
        const std::string &name;
        LdifReader reader;
    };

    void take(File &file, const LdifItem &item);
    void takeFault(File &file, const LdifItem &item);
    void beginEntry(File &file, const LdifItem &item);
    void endEntry();
    void addValue(File &file, const LdifItem &item);
    bool isText(File &file, const LdifItem &item);
    bool followsRule(File &file, const LdifItem &item, const Rule &rule, TovUniString &value);
    Rule ruleOf(const LdifItem &item) const;
    void report(File &file, const LdifItem &item, Fault fault, std::size_t offset = 0,
                const TovError *reason = nullptr);
    void report(File &file, Problem problem);

    LoadSink &m_sink;
    std::map<std::string, Rule, NameLess> m_rules;
    DnCache m_dns;
    std::optional<Entry> m_entry;
    TovUString m_units; // of a value; kept for its memory
    Totals m_totals;
};
