// Any bytes as the parts of directory URLs and as DNs, held against what the contract says of the results.
#include <tovutil/toverrfl.h>
#include <tovutil/tovldapu.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

void check(bool holds) {
    if (!holds)
        std::abort();
}

TovString upToNul(const TovString &text) { return text.c_str(); }

// The context of a URL, searched for from behind.
TovString slowContext(const TovString &url) {
    const TovString front = url.substr(0, url.find('='));
    if (front == url || front.find('/') == front.npos)
        return TovString();
    const TovString dn = url.substr(front.rfind('/') + 1);
    return dn.substr(0, dn.find(';'));
}

void tryUrls(const TovString &ldif, const TovString &host, const TovString &port, const TovString &ctx) {
    const TovString url = TovLdapUtil::makeUrl(ldif, host, port, ctx);
    const TovString defaultUrl = TovLdapUtil::getDefaultUrl();
    const bool plain = ldif.empty() && host.empty() && port.empty();
    if (plain && ctx.empty())
        check(url == defaultUrl);
    else if (!ctx.empty())
        check(url.ends_with("/" + upToNul(ctx)));
    else if (!slowContext(defaultUrl).empty())
        check(url.ends_with("/" + upToNul(slowContext(defaultUrl))));
    if (!ldif.empty())
        check(url.starts_with(LDIF_PFX + ldif));
    else if (!plain)
        check(url.starts_with(LDAP_PFX + host + ":" + (port.empty() ? "389" : port.c_str())));
    for (const TovString &any : {url, ldif, ctx, defaultUrl})
        check(TovLdapUtil::extractContextDn(any) == slowContext(any));
}

std::size_t countOf(const TovUString &text, TovUChar unit) {
    std::size_t count = 0;
    for (const TovUChar each : text)
        count += each == unit;
    return count;
}

// Whether the text ends inside an escape.
bool endsEscaping(const TovUString &dn) {
    std::size_t backslashes = 0;
    while (backslashes < dn.size() && dn[dn.size() - 1 - backslashes] == u'\\')
        ++backslashes;
    return backslashes % 2 != 0;
}

void tryNames(const TovUString &dn) {
    const TovUString escaped = TovLdapUtil::dnEscape(dn);
    std::size_t special = 0;
    for (const TovUChar unit : {u'#', u'+', u',', u';', u'='})
        special += countOf(dn, unit);
    check(escaped.size() == dn.size() + special);
    if (countOf(dn, u'\\') == 0)
        check(TovLdapUtil::dnUnEscape(escaped) == dn);
    try {
        const TovUString plain = TovLdapUtil::dnUnEscape(dn);
        check(!endsEscaping(dn) && plain.size() <= dn.size() && 2 * plain.size() >= dn.size());
    } catch (const TovErrorFull &error) {
        check(endsEscaping(dn) && error.getReturnCode() == TOVRC_INTERNAL_ERROR);
    }
}

} // namespace

// Five texts, each with a byte in front of it that counts its bytes; the last one is what is left.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::string_view rest(reinterpret_cast<const char *>(data), size);
    std::array<TovString, 4> parts;
    for (TovString &part : parts) {
        if (rest.empty())
            break;
        const auto length = static_cast<unsigned char>(rest[0]);
        part.assign(rest.substr(1, length));
        rest.remove_prefix(1 + part.size());
    }
    const TovString directory(rest);
    if (size % 2 != 0)
        ::setenv("QMDDIR", directory.c_str(), 1);
    else
        ::unsetenv("QMDDIR");
    tryUrls(parts[0], parts[1], parts[2], parts[3]);
    TovUString dn(size / 2, u'\0');
    std::memcpy(dn.data(), data, size / 2 * 2);
    tryNames(dn);
    TovUString narrow;
    for (std::size_t i = 0; i < size; ++i)
        narrow += static_cast<TovUChar>(data[i]);
    tryNames(narrow);
    return 0;
}
