/// Text work on the URL of a directory and on distinguished names. Nothing here opens a connection or a file.
///
/// A URL is a prefix, a location, a slash and a context DN, behind which a ";" and further text may follow.
/// The DN is known by one mark: it begins behind the last "/" in front of the first "=".
///
/// Units      URLs are bytes, DNs by themselves are code units.
/// Errors     None but those of the strings, unless an operation says otherwise.
/// Threads    Any thread. The environment is read without a lock on every call.
#pragma once

#include <tovutil/tovexport.h>
#include <tovutil/tovstring.h>

TOV_EXPORT extern const char *const LDAP_PFX; ///< "ldap://"
TOV_EXPORT extern const char *const LDIF_PFX; ///< "file:///"

/// Gives the environment variable QMDDIR, the URL of the directory, if it is set, also when it is empty.
/// False, and `dir` unchanged, if it is not.
TOV_EXPORT bool tovGetQMDDIR(TovString &dir);

class TOV_EXPORT TovLdapUtil {
public:
    TovLdapUtil() = delete;

    /// Builds a URL.
    ///
    /// With `ldif`: of that file; host and port do not count. Else with `host` or `port`: of that server,
    /// port 389 unless told otherwise. The context is `ctx`, or that of the default URL if it is empty.
    ///
    /// With none of the three: the default URL, in which `ctx`, if it is not empty, takes the place of the
    /// context and of all that follows it.
    ///
    /// `port` and the context count up to their first NUL.
    static TovString makeUrl(const TovString &ldif, const TovString &host, const TovString &port,
                             const TovString &ctx);

    /// The value of QMDDIR, as it is; the directory server on this host if the variable is not set.
    static TovString getDefaultUrl();

    /// Accepts every URL.
    static void checkUrl(const TovString &url);

    /// The context DN without the ";" and what follows; empty if the URL has none.
    static TovString extractContextDn(const TovString &url);

    /// Puts a backslash in front of each of # + , ; = and of nothing else.
    static TovUString dnEscape(const TovUString &dn);

    /// Removes each backslash and keeps the unit behind it, whatever that is: hexadecimal digits stay digits.
    ///
    /// Errors     TOVRC_INTERNAL_ERROR, when the last backslash has nothing behind it.
    static TovUString dnUnEscape(const TovUString &dn);
};
