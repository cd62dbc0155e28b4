#include <support/random.h>
#include <support/traced.h>

#include <tovutil/tovldapu.h>
#include <tovutil/tovutil.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

const char *const c_default = "ldap://127.0.0.1:389";

// QMDDIR for a scope; null means that it is not set.
class DirectoryUrl {
public:
    explicit DirectoryUrl(const char *url) { set(url); }
    ~DirectoryUrl() { set(nullptr); }
    DirectoryUrl(const DirectoryUrl &) = delete;
    DirectoryUrl &operator=(const DirectoryUrl &) = delete;

private:
    static void set(const char *url) {
        if (url)
            ::setenv("QMDDIR", url, 1);
        else
            ::unsetenv("QMDDIR");
    }
};

TEST(tovGetQMDDIR, TellsWhetherTheVariableIsSet) {
    const struct {
        const char *value;
        bool want;
        TovString wantUrl;
    } rows[] = {{nullptr, false, c_default}, {"", true, ""}, {"no url at all", true, "no url at all"}};
    for (const auto &row : rows) {
        const DirectoryUrl directory(row.value);
        TovString dir = "before";
        EXPECT_EQ(row.want, tovGetQMDDIR(dir));
        EXPECT_EQ(row.value ? row.value : "before", dir);
        EXPECT_EQ(row.wantUrl, TovLdapUtil::getDefaultUrl());
        EXPECT_EQ(row.wantUrl, TovLdapUtil::makeUrl("", "", "", ""));
    }
    const DirectoryUrl first("first");
    EXPECT_EQ("first", TovLdapUtil::getDefaultUrl());
    const DirectoryUrl second("second");
    EXPECT_EQ("second", TovLdapUtil::getDefaultUrl()) << "read on every call";
}

TEST(TovLdapUtil, HasItsPrefixes) {
    EXPECT_STREQ("ldap://", LDAP_PFX);
    EXPECT_STREQ("file:///", LDIF_PFX);
}

TEST(TovLdapUtil, TakesTheContextBehindTheSlashBeforeTheFirstEquals) {
    const struct {
        const char *why;
        TovString url;
        TovString want;
    } rows[] = {
        {"no equals", "ldap://host:389/dc", ""},
        {"no slash before it", "cn=a/b", ""},
        {"nothing at all", "", ""},
        {"a DN", "ldap://host:389/dc=a,dc=b", "dc=a,dc=b"},
        {"a slash in a value", "ldap://host/cn=a/b,dc=c/d", "cn=a/b,dc=c/d"},
        {"an equals in a value", "ldap://host/cn=a=b", "cn=a=b"},
        {"only the nearest slash counts", "ldap://host/x/y/cn=a", "cn=a"},
        {"a semicolon ends it", "ldap://host/cn=a;binary;x=y", "cn=a"},
        {"a semicolon before the slash does not", "ldap:;//host/cn=a", "cn=a"},
        {"a semicolon before the equals", "ldap://host/;cn=a", ""},
        {"a semicolon in the attribute's name", "ldap://host/cn;lang-de=a", "cn"},
        {"the slash directly before the equals", "ldap://host/=a", "=a"},
        {"a NUL is a byte like any other", {"ldap://h/cn=a\0b", 15}, {"cn=a\0b", 6}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(row.want, TovLdapUtil::extractContextDn(row.url));
    }
}

TEST(TovLdapUtil, MakesUrls) {
    const char *const withDn = "ldap://server:1389/ou=old,dc=a/b;binary";
    const struct {
        const char *why;
        const char *directory;
        TovString ldif, host, port, ctx;
        TovString want;
    } rows[] = {
        {"only a context", nullptr, "", "", "", "dc=x", "ldap://127.0.0.1:389/dc=x"},
        {"a context in place of another one", withDn, "", "", "", "dc=x", "ldap://server:1389/dc=x"},
        {"the default as it is", withDn, "", "", "", "", withDn},
        {"an empty default", "", "", "", "", "dc=x", "/dc=x"},
        {"a default without a slash before the equals", "dc=a/b", "", "", "", "dc=x", "dc=a/b/dc=x"},
        {"a host", nullptr, "", "h", "", "", "ldap://h:389"},
        {"a host takes the default's context", withDn, "", "h", "", "", "ldap://h:389/ou=old,dc=a/b"},
        {"a host and a context", withDn, "", "h", "", "dc=x", "ldap://h:389/dc=x"},
        {"a port", nullptr, "", "", "99", "", "ldap://:99"},
        {"host, port and context", nullptr, "", "h", "99", "dc=x", "ldap://h:99/dc=x"},
        {"a file", nullptr, "f.ldif", "", "", "", "file:///f.ldif"},
        {"a file and a server", nullptr, "f.ldif", "h", "99", "dc=x", "file:///f.ldif/dc=x"},
        {"an absolute path", nullptr, "/d/f.ldif", "", "", "dc=x", "file:////d/f.ldif/dc=x"},
        {"a file takes the default's context", withDn, "f", "", "", "", "file:///f/ou=old,dc=a/b"},
        {"NULs in file and host stay", nullptr, {"f\0g", 3}, "", "", "", {"file:///f\0g", 11}},
        {"NULs in the host stay", nullptr, "", {"h\0i", 3}, "", "", {"ldap://h\0i:389", 14}},
        {"a NUL ends the port", nullptr, "", "h", {"99\0x", 4}, "", "ldap://h:99"},
        {"a NUL ends the context", nullptr, "", "h", "", {"dc=x\0y", 6}, "ldap://h:389/dc=x"},
        {"a NUL ends the context of the default",
         nullptr,
         "",
         "",
         "",
         {"dc=x\0y", 6},
         "ldap://127.0.0.1:389/dc=x"},
        {"a context that begins with a NUL", nullptr, "", "h", "", {"\0y", 2}, "ldap://h:389/"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        const DirectoryUrl directory(row.directory);
        EXPECT_EQ(row.want, TovLdapUtil::makeUrl(row.ldif, row.host, row.port, row.ctx));
    }
}

TEST(TovLdapUtil, EscapesFiveUnits) {
    const struct {
        TovUString plain, escaped;
    } rows[] = {
        {u"", u""},
        {u"plain", u"plain"},
        {u"#+,;=", u"\\#\\+\\,\\;\\="},
        {u" \"<>\\/ ", u" \"<>\\/ "},
        {u"a,b=c", u"a\\,b\\=c"},
        {u"\u2C23\uFF0C", u"\u2C23\uFF0C"}, // whose low or high bytes look like one of them
        {TovUString(u"a\0,", 3), TovUString(u"a\0\\,", 4)},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.escaped, TovLdapUtil::dnEscape(row.plain));
}

TEST(TovLdapUtil, RemovesBackslashes) {
    const struct {
        const char *why;
        TovUString escaped, want;
    } rows[] = {
        {"empty", u"", u""},
        {"escapes of its own", u"\\#\\+\\,\\;\\=", u"#+,;="},
        {"any unit", u"\\a\\ \\\"", u"a \""},
        {"a pair", u"\\\\", u"\\"},
        {"two pairs", u"\\\\\\\\", u"\\\\"},
        {"digits are no byte", u"\\2C", u"2C"},
        {"a 0 unit", TovUString(u"\\\0x", 3), TovUString(u"\0x", 2)},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(row.want, TovLdapUtil::dnUnEscape(row.escaped));
    }
}

TEST(TovLdapUtil, RefusesABackslashWithNothingBehindIt) {
    for (const TovUString dn : {u"\\", u"abc\\", u"\\\\\\", u"\\,\\"}) {
        try {
            TovLdapUtil::dnUnEscape(dn);
            ADD_FAILURE() << "not refused";
        } catch (const TovErrorFull &error) {
            EXPECT_EQ(21020U, error.getReturnCode());
            EXPECT_EQ("Internal error: ++pos < dn.length()", error.getErrString());
            EXPECT_NE(std::string::npos,
                      std::string(error.getLocation()).find("Line(179) in module (tovldapu)"));
        }
    }
}

TEST(TovLdapUtil, UnescapesWhatItEscaped) {
    auto random = tovtest::generator();
    for (int round = 0; round < 2000; ++round) {
        TovUString dn;
        for (auto length = random() % 20; length != 0; --length) // backslashes are not escaped
            dn += u"#+,;= a\u00FC\U0001F600"[random() % 10];
        ASSERT_EQ(dn, TovLdapUtil::dnUnEscape(TovLdapUtil::dnEscape(dn)));
    }
}

template <class Call>
Lines traced(const char *levels, Call call) {
    const tovtest::TraceRecorder recorder(levels);
    call();
    return recorder.lines();
}

TEST(TovLdapUtil, TracesItsCalls) {
    const DirectoryUrl directory("ldap://d/dc=a");
    EXPECT_EQ((Lines{"> TovLdapUtil::makeUrl", "TovLdapUtil::makeUrl: Args - ldif() host(h) port() ctx() ",
                     "TovLdapUtil::makeUrl: Flow - ctx() ", "TovLdapUtil::makeUrl: Flow - pCtx(dc=a) ",
                     "TovLdapUtil::makeUrl: Flow - url(ldap://h:389) ",
                     "TovLdapUtil::makeUrl: Return - ldap://h:389/dc=a", "< TovLdapUtil::makeUrl"}),
              traced("TovLdapUtil::makeUrl=all", [] { TovLdapUtil::makeUrl("", "h", "", ""); }));
    EXPECT_EQ((Lines{"> TovLdapUtil::makeUrl", "TovLdapUtil::makeUrl: Args - ldif() host() port() ctx(c) ",
                     "TovLdapUtil::makeUrl: Flow - ctx(c) ", "> TovLdapUtil::getDefaultUrl",
                     "TovLdapUtil::getDefaultUrl: Args - ",
                     "TovLdapUtil::getDefaultUrl: Return - ldap://d/dc=a", "< TovLdapUtil::getDefaultUrl",
                     "TovLdapUtil::makeUrl: Return - ldap://d/c", "< TovLdapUtil::makeUrl"}),
              traced("TovLdapUtil::*=all", [] { TovLdapUtil::makeUrl("", "", "", "c"); }));
    EXPECT_EQ(
        (Lines{"> TovLdapUtil::checkUrl", "TovLdapUtil::checkUrl: Args - url(x) ", "< TovLdapUtil::checkUrl",
               "> TovLdapUtil::extractContextDn", "TovLdapUtil::extractContextDn: Args - url(h/a=b) ",
               "TovLdapUtil::extractContextDn: Return - a=b", "< TovLdapUtil::extractContextDn"}),
        traced("TovLdapUtil::*=all", [] {
            TovLdapUtil::checkUrl("x");
            TovLdapUtil::extractContextDn("h/a=b");
        }));
    EXPECT_EQ((Lines{"> TovLdapUtil::dnEscape", "TovLdapUtil::dnEscape: Args - dn(a,) ",
                     "TovLdapUtil::dnEscape: Return - a\\,", "< TovLdapUtil::dnEscape",
                     "> TovLdapUtil::dnUnEscape", "TovLdapUtil::dnUnEscape: Args - dn(a\\,) ",
                     "TovLdapUtil::dnUnEscape: Return - a,", "< TovLdapUtil::dnUnEscape",
                     "> TovLdapUtil::dnUnEscape", "TovLdapUtil::dnUnEscape: Args - dn(\\) "}),
              traced("TovLdapUtil::*=all", [] {
                  TovLdapUtil::dnEscape(u"a,");
                  TovLdapUtil::dnUnEscape(u"a\\,");
                  EXPECT_THROW(TovLdapUtil::dnUnEscape(u"\\"), TovErrorFull);
              }));
}

TEST(tovGetQMDDIR, TracesTheVariable) {
    const struct {
        const char *value;
        Lines want;
    } rows[] = {
        {nullptr,
         {"> tovGetQMDDIR", "tovGetQMDDIR: Args - ", "tovGetQMDDIR: State - qmddir(NULL) ",
          "tovGetQMDDIR: Return - 0", "< tovGetQMDDIR"}},
        {"x",
         {"> tovGetQMDDIR", "tovGetQMDDIR: Args - ", "tovGetQMDDIR: State - qmddir(x) ",
          "tovGetQMDDIR: Return - 1", "< tovGetQMDDIR"}},
    };
    for (const auto &row : rows) {
        const DirectoryUrl directory(row.value);
        EXPECT_EQ(row.want, traced("tovGetQMDDIR=all", [] {
                      TovString dir;
                      tovGetQMDDIR(dir);
                  }));
    }
}

} // namespace
