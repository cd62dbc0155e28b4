// ldifgen: writes LDIF of any size, always the same for the same options, and tells on standard error as
// JSON what a reader must find in it.
#include <tovutil/random.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <string_view>

#include <getopt.h>

namespace {

constexpr const char c_usage[] = "Usage: ldifgen [--entries N] [--seed N] [--faults PERCENT]\n";

struct Settings {
    std::uint64_t entries = 1000;
    std::uint32_t seed = 1;
    double faults = 0; // per hundred entries
};

// A fault is a line of its own in an entry, or a record between two.
struct Fault {
    const char *name;
    std::string_view text;
    bool isRecord = false;
};

constexpr Fault c_faults[] = {
    {"MISSING_DN", "cn: nobody\ncn: lost with the record\n\n", true},
    {"BAD_DN", "dn: nobody\ncn: lost with the record\n\n", true},
    {"CHANGE_RECORD", "dn: cn=x\nchangetype: modify\nadd: cn\ncn: y\n-\n\n", true},
    {"STRAY_CONTINUATION", " of nothing\n", true},
    {"MISSING_COLON", "no colon\n"},
    {"BAD_ATTRIBUTE", "bad_name: x\n"},
    {"URL_VALUE", "jpegPhoto:< file:///photo.jpg\n"},
    {"BAD_BASE64", "description:: YWJj*A==\n"},
    {"BAD_UTF8", "description: \xC3(\n"},
    {"BAD_UTF8", "description:: wyg=\n"},
    {"BAD_DN", "seeAlso: cn=open\\\n"},
    {"UNSAFE_BYTE", {"cn: a\0b\n", 8}},
};

constexpr const char *c_givenNames[] = {"Anna",        "Bjørn", "Čeněk",   "Dmitrij Дмитрий",
                                        "Eleni Ελένη", "Fatma", "Günther", "Haruto 陽翔",
                                        "Inés",        "James"};
constexpr const char *c_surnames[] = {"Smith, Jr.", "Müller",       "Nováková", "O'Brien+Sons", "Øster=gaard",
                                      "山田",       "Papadopoulos", "Иванова",  "Garcia; Ruiz", "#Lee"};

constexpr const char *c_departments[] = {"Research, Basic", "Sales", "Küche", "R+D", "Entwicklung €"};

std::string base64(std::string_view bytes) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        std::uint32_t group = 0;
        for (std::size_t k = i; k < i + 3; ++k)
            group = group << 8 | (k < bytes.size() ? static_cast<unsigned char>(bytes[k]) : 0);
        for (unsigned shift : {18U, 12U, 6U, 0U})
            text += digits[group >> shift & 63];
    }
    for (std::size_t missing = (3 - bytes.size() % 3) % 3; missing > 0; --missing)
        text[text.size() - missing] = '=';
    return text;
}

// Both forms of an escape: hexadecimal digits for "+", the character for all others.
std::string escaped(std::string_view value) {
    std::string text;
    for (const char byte : value) {
        if (std::string_view("#,;=").find(byte) != std::string_view::npos)
            text += '\\';
        byte == '+' ? text += "\\2B" : text += byte;
    }
    return text;
}

// What a reader takes for the value as it stands there, but for bytes beyond ASCII.
bool mayStandPlain(std::string_view value) {
    return value.empty() ||
           (std::string_view(" :<").find(value[0]) == std::string_view::npos &&
            std::none_of(value.begin(), value.end(), [](char byte) { return byte >= 0 && byte < ' '; }));
}

bool isAscii(std::string_view value) {
    return std::all_of(value.begin(), value.end(), [](char byte) { return byte >= 0; });
}

void put(std::string_view text) { std::fwrite(text.data(), 1, text.size(), stdout); }

class Generator {
public:
    explicit Generator(const Settings &settings) : m_settings(settings) { m_random.seed(settings.seed); }

    void run();

    /// What a reader must find, as JSON.
    std::string expected() const;

private:
    std::uint32_t below(std::uint32_t limit) { return m_random.next() % limit; }
    template <std::size_t size>
    std::string oneOf(const char *const (&texts)[size]) {
        return texts[below(size)];
    }

    void entry(std::uint64_t number);
    void putFault(const Fault &fault);
    void putValue(const char *attribute, std::string_view value);
    void putFolded(std::string_view line);
    std::string department();
    std::string story();

    Settings m_settings;
    __random_generator m_random{};
    std::uint64_t m_attributes = 0;
    std::uint64_t m_names = 0; // those that a cache may know: parents of entries, and values
    std::map<std::string, std::uint64_t> m_faults;
};

void Generator::run() {
    std::fputs("version: 1\n\n", stdout);
    for (std::uint64_t i = 0; i < m_settings.entries; ++i)
        entry(i);
}

void Generator::entry(std::uint64_t number) {
    const std::string given = oneOf(c_givenNames);
    const std::string surname = oneOf(c_surnames);
    const bool hasFault = below(1000000) < m_settings.faults * 10000;
    const Fault &wrong = c_faults[below(std::size(c_faults))];
    if (hasFault && wrong.isRecord)
        putFault(wrong);
    ++m_names;
    putValue("dn",
             "cn=" + escaped(given + " " + surname) + "+uid=" + std::to_string(number) + "," + department());
    putValue("objectClass", "inetOrgPerson");
    putValue("cn", given + " " + surname);
    putValue("sn", surname);
    putValue("givenName;lang-x-own", given);
    putValue("uid", std::to_string(number));
    putValue("mail", "u" + std::to_string(number) + "@Example.COM");
    putValue("telephoneNumber", "+49 (30) " + std::to_string(100000 + below(900000)));
    if (hasFault && !wrong.isRecord)
        putFault(wrong);
    if (below(3) == 0)
        putValue("description", story());
    if (below(2) == 0) {
        ++m_names;
        putValue("manager", "uid = " + std::to_string(below(500)) + ", " + department());
    }
    if (below(20) == 0)
        putValue("jpegPhoto", std::string(200 + below(400), '\xFF'));
    put("\n");
}

void Generator::putFault(const Fault &fault) {
    ++m_faults[fault.name];
    put(fault.text);
}

void Generator::putValue(const char *attribute, std::string_view value) {
    if (std::strcmp(attribute, "dn") != 0)
        ++m_attributes;
    const bool plain = mayStandPlain(value) && (isAscii(value) || below(2) == 0);
    putFolded(plain ? attribute + (": " + std::string(value)) : attribute + (":: " + base64(value)));
}

// A fold may come anywhere, even inside a character.
void Generator::putFolded(std::string_view line) {
    constexpr std::size_t width = 76;
    for (std::size_t begin = 0; begin < line.size(); begin += width) {
        put(begin == 0 ? "" : " ");
        put(line.substr(begin, width));
        put("\n");
    }
}

std::string Generator::department() {
    return "ou=" + escaped(oneOf(c_departments)) + " " + std::to_string(below(50)) + ",dc=example,dc=com";
}

std::string Generator::story() {
    std::string text;
    for (std::uint32_t i = 0, count = 3 + below(12); i < count; ++i)
        text += oneOf(c_givenNames) + " met " + oneOf(c_surnames) + ". ";
    return text;
}

std::string Generator::expected() const {
    std::string errors;
    for (const auto &[name, count] : m_faults)
        errors += (errors.empty() ? "\"" : ", \"") + name + "\": " + std::to_string(count);
    return R"({"entries": )" + std::to_string(m_settings.entries) + R"(, "attributes": )" +
           std::to_string(m_attributes) + R"(, "names": )" + std::to_string(m_names) + R"(, "errors": {)" +
           errors + "}}\n";
}

constexpr option c_options[] = {
    {"entries", required_argument, nullptr, 'n'},
    {"seed", required_argument, nullptr, 's'},
    {"faults", required_argument, nullptr, 'f'},
    {nullptr, 0, nullptr, 0},
};

} // namespace

int main(int argc, char **argv) {
    Settings settings;
    for (int key; (key = getopt_long(argc, argv, "", c_options, nullptr)) != -1;) {
        if (key == 'n')
            settings.entries = std::strtoull(optarg, nullptr, 10);
        else if (key == 's')
            settings.seed = static_cast<std::uint32_t>(std::strtoul(optarg, nullptr, 10));
        else if (key == 'f')
            settings.faults = std::strtod(optarg, nullptr);
        else
            return std::fputs(c_usage, stderr), 2;
    }
    Generator generator(settings);
    generator.run();
    std::fputs(generator.expected().c_str(), stderr);
    return std::fflush(stdout) == 0 && !std::ferror(stdout) ? 0 : 1;
}
