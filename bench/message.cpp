// A message from a format and three texts, into a fresh string.
#include "bench.h"

#include <tovutil/tovuterr.h>

#include <cstdio>
#include <sstream>
#include <utility>

#ifdef TOV_BENCH_ABSL
#include <absl/strings/str_cat.h>
#include <absl/strings/str_format.h>
#include <absl/strings/substitute.h>
#endif
#ifdef TOV_BENCH_BOOST
#include <boost/format.hpp>
#endif
#ifdef TOV_BENCH_FMT
#include <fmt/compile.h>
#endif
#ifdef TOV_BENCH_QT
#include <QString>
#endif

namespace tovbench {

namespace {

const std::string s_table = "TABLE_OF_ORDERS";
const std::string s_path = "/var/lib/application/data.bin";
const std::string s_reason = "42";
const std::string s_message =
    "Object TABLE_OF_ORDERS could not be read from /var/lib/application/data.bin, reason 42.";

template <class Make>
void add(const char *peer, Make make) {
    preparedJob(std::string("message/three-texts/") + peer, [make](benchmark::State &state) {
        require(state, std::string_view(make()) == s_message);
        return [make] {
            auto made = make();
            benchmark::DoNotOptimize(made);
        };
    });
}

class Text : public TovInsert {
public:
    explicit Text(const std::string &text) : m_text(text) {}
    void appendTo(TovString &text) const override { text += m_text; }

private:
    const std::string &m_text;
};

void addTovutil() {
    add("tovutil", [] {
        return TovInsert::subst("Object %s could not be read from %s, reason %s.", Text(s_table),
                                Text(s_path), Text(s_reason));
    });
    add("tovutil:numbered", [] {
        return TovInsert::subst("Object %(1)s could not be read from %(2)s, reason %(3)s.", Text(s_table),
                                Text(s_path), Text(s_reason));
    });
}

void addStandard() {
    add("snprintf", [] {
        char buffer[256];
        const int length =
            std::snprintf(buffer, sizeof buffer, "Object %s could not be read from %s, reason %s.",
                          s_table.c_str(), s_path.c_str(), s_reason.c_str());
        return std::string(buffer, static_cast<std::size_t>(length));
    });
    add("ostringstream", [] {
        std::ostringstream os;
        os << "Object " << s_table << " could not be read from " << s_path << ", reason " << s_reason << '.';
        return std::move(os).str();
    });
    add("part:string-append", [] { // no format
        std::string text = "Object ";
        text += s_table;
        text += " could not be read from ";
        text += s_path;
        text += ", reason ";
        text += s_reason;
        text += '.';
        return text;
    });
}

} // namespace

void registerTopic() {
    add("limit:copy", [] { return s_message; });
    addTovutil();
    addStandard();
#ifdef TOV_BENCH_ABSL
    add("absl-substitute", [] {
        return absl::Substitute("Object $0 could not be read from $1, reason $2.", s_table, s_path, s_reason);
    });
    add("absl-strformat", [] {
        return absl::StrFormat("Object %s could not be read from %s, reason %s.", s_table, s_path, s_reason);
    });
    add("part:absl-strcat", [] { // no format
        return absl::StrCat("Object ", s_table, " could not be read from ", s_path, ", reason ", s_reason,
                            ".");
    });
#endif
#ifdef TOV_BENCH_FMT
    add("fmt", [] {
        return fmt::format("Object {} could not be read from {}, reason {}.", s_table, s_path, s_reason);
    });
    add("part:fmt-compiled", [] { // the format is read by the compiler
        return fmt::format(FMT_COMPILE("Object {} could not be read from {}, reason {}."), s_table, s_path,
                           s_reason);
    });
#endif
#ifdef TOV_BENCH_BOOST
    add("boost", [] {
        return (boost::format("Object %s could not be read from %s, reason %s.") % s_table % s_path %
                s_reason)
            .str();
    });
#endif
#ifdef TOV_BENCH_QT
    preparedJob("message/three-texts/qt", [](benchmark::State &state) { // from and to UTF-16
        const auto make = [format = QString("Object %1 could not be read from %2, reason %3."),
                           table = QString::fromStdString(s_table), path = QString::fromStdString(s_path),
                           reason = QString::fromStdString(s_reason)] {
            return format.arg(table, path, reason);
        };
        require(state, make().toStdString() == s_message);
        return [make] {
            auto made = make();
            benchmark::DoNotOptimize(made);
        };
    });
#endif
}

} // namespace tovbench
