// URLs of directories, and the escapes of DNs.
#include <tovutil/tovldapu.h>

#include <tovutil/tovtrcfn.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <utility>

TOV_TRACE_FILE("tovutil/tovldapu");

const char *const LDAP_PFX = "ldap://";
const char *const LDIF_PFX = "file:///";

namespace {

constexpr const char *c_defaultUrl = "ldap://127.0.0.1:389";
constexpr const char *c_defaultPort = "389";

// The slash in front of the context DN; npos if the URL has no DN.
std::size_t contextSlash(const TovString &url) {
    const std::size_t equals = url.find('=');
    return equals == url.npos ? url.npos : url.rfind('/', equals);
}

TovString defaultUrlWith(const TovString &ctx) {
    TovString url = TovLdapUtil::getDefaultUrl();
    if (ctx.empty())
        return url;
    const std::size_t slash = contextSlash(url);
    if (slash != url.npos)
        url.erase(slash);
    const char *context = ctx.c_str(); // up to its first NUL
    return url + "/" + context;
}

TovString serverUrl(const TovString &host, const TovString &port) {
    return LDAP_PFX + host + ":" + (port.empty() ? c_defaultPort : port.c_str());
}

bool isEscaped(TovUChar unit) {
    return std::u16string_view(u"#+,;=").find(unit) != std::u16string_view::npos;
}

} // namespace

bool tovGetQMDDIR(TovString &dir) {
    TOV_TRACE_ENTER("tovGetQMDDIR");
    const char *qmddir = std::getenv("QMDDIR");
    TOV_TRACE_STATE(TOV_VALUE(qmddir));
    if (qmddir)
        dir = qmddir;
    return TOV_TRACE_RESULT(qmddir != nullptr);
}

TovString TovLdapUtil::makeUrl(const TovString &ldif, const TovString &host, const TovString &port,
                               const TovString &ctx) {
    TOV_TRACE_ENTER("TovLdapUtil::makeUrl", TOV_VALUE(ldif)
                                                << TOV_VALUE(host) << TOV_VALUE(port) << TOV_VALUE(ctx));
    if (ldif.empty() && host.empty() && port.empty()) {
        TOV_TRACE_FLOW(TOV_VALUE(ctx));
        return TOV_TRACE_RESULT(defaultUrlWith(ctx));
    }
    TOV_TRACE_FLOW(TOV_VALUE(ctx));
    const TovString context = ctx.empty() ? extractContextDn(getDefaultUrl()) : ctx;
    const char *pCtx = context.c_str();
    TOV_TRACE_FLOW(TOV_VALUE(pCtx));
    TovString url = ldif.empty() ? serverUrl(host, port) : LDIF_PFX + ldif;
    TOV_TRACE_FLOW(TOV_VALUE(url));
    if (!context.empty())
        url.append("/").append(pCtx);
    return TOV_TRACE_RESULT(std::move(url));
}

TovString TovLdapUtil::getDefaultUrl() {
    TOV_TRACE_ENTER("TovLdapUtil::getDefaultUrl");
    TovString url;
    if (!tovGetQMDDIR(url))
        url = c_defaultUrl;
    return TOV_TRACE_RESULT(std::move(url));
}

void TovLdapUtil::checkUrl(const TovString &url) {
    TOV_TRACE_ENTER("TovLdapUtil::checkUrl", TOV_VALUE(url));
    TOV_TRACE_LEAVE();
}

TovString TovLdapUtil::extractContextDn(const TovString &url) {
    TOV_TRACE_ENTER("TovLdapUtil::extractContextDn", TOV_VALUE(url));
    const std::size_t slash = contextSlash(url);
    if (slash == url.npos)
        return TOV_TRACE_RESULT(TovString());
    TovString dn = url.substr(slash + 1);
    dn.erase(std::min(dn.find(';'), dn.size()));
    return TOV_TRACE_RESULT(std::move(dn));
}

TovUString TovLdapUtil::dnEscape(const TovUString &dn) {
    TOV_TRACE_ENTER("TovLdapUtil::dnEscape", TOV_VALUE(dn));
    TovUString escaped;
    escaped.reserve(dn.size());
    for (auto from = dn.begin(); from != dn.end();) {
        const auto special = std::find_if(from, dn.end(), isEscaped);
        escaped.append(from, special);
        from = special;
        if (from != dn.end())
            escaped.append({u'\\', *from++});
    }
    return TOV_TRACE_RESULT(std::move(escaped));
}

TovUString TovLdapUtil::dnUnEscape(const TovUString &dn) {
    TOV_TRACE_ENTER("TovLdapUtil::dnUnEscape", TOV_VALUE(dn));
    TovUString plain;
    plain.reserve(dn.size());
    for (std::size_t pos = 0; pos < dn.length();) {
        const std::size_t backslash = std::min(dn.find(u'\\', pos), dn.length());
        plain.append(dn, pos, backslash - pos);
        pos = backslash;
        if (pos == dn.length())
            break;
        if (!(++pos < dn.length()))
            tovCheck("tovutil/tovldapu", 179, "Internal error: ++pos < dn.length()",
                     TOV_CODE(TOVRC_INTERNAL_ERROR));
        plain += dn[pos++];
    }
    return TOV_TRACE_RESULT(std::move(plain));
}
