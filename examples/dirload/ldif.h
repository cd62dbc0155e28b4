/// Reads LDIF text (RFC 2849), content records only, at constant memory.
#pragma once

#include "fault.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Where bytes come from.
class ByteSource {
public:
    virtual ~ByteSource() = default;

    /// Gives at most `size` bytes, and 0 only at the end.
    virtual std::size_t read(char *buffer, std::size_t size) = 0;
};

/// Lines and columns count from 1, columns in bytes.
struct Place {
    std::uint64_t line = 1;
    std::uint64_t column = 1;
};

/// The views are valid until the next item is read.
struct LdifItem {
    enum class Kind { Dn, Value, RecordEnd, Fault };
    Kind kind = Kind::RecordEnd;
    std::string_view name;    ///< of the attribute, without its options
    std::string_view options; ///< from the first ";" on
    std::string_view bytes;   ///< the decoded value; of a fault, the line from there on
    Fault fault{};
    Place place; ///< of a fault
};

/// A fault costs its line and nothing else. Where it hides the DN, values without one follow; where it is a
/// ChangeRecord, the rest of the record is left out. A MissingSeparator stands for the end of a record.
class LdifReader {
public:
    static constexpr std::size_t c_longestLine = std::size_t{1} << 20;

    /// `longestLine` limits the bytes of a line with its continuations.
    explicit LdifReader(ByteSource &source, std::size_t longestLine = c_longestLine);

    /// Gives the next item; false behind the last.
    bool next(LdifItem &item);

    /// The place of a byte of the value that was read last; in base64, of the group that holds it.
    Place placeInValue(std::size_t offset) const;

private:
    struct Fold {
        std::size_t offset; // in m_text
        Place place;
    };

    bool fill();
    bool readLine();
    void takeLine(std::uint64_t column);
    void append(std::string_view bytes);

    bool examine(LdifItem &item);
    bool begin(LdifItem &item, std::string_view name);
    bool checkVersion(LdifItem &item);
    bool parseValue(LdifItem &item);
    bool fail(LdifItem &item, Fault fault, std::size_t offset) const;
    Place placeOf(std::size_t offset) const;

    ByteSource &m_source;
    std::size_t m_longestLine;
    std::vector<char> m_buffer;
    std::string_view m_unread; // of the buffer

    std::string m_text; // the line, unfolded
    std::vector<Fold> m_folds;
    std::uint64_t m_lineCount = 0;
    bool m_tooLong = false;

    std::string m_decoded;
    std::size_t m_valueAt = 0;
    bool m_base64 = false;

    bool m_atStart = true; // a version may come
    bool m_inRecord = false;
    bool m_skipping = false; // up to the end of the record
    bool m_again = false;    // the line is still to be examined
};
