// The WinINet client's network-free pieces: base URLs, path encoding, the
// upload form and the reading of directory listings.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ZyNetwork/Internal/ZyHTTPText.h"
#include "support/UploadLayout.h"

namespace
{
TEST(ZyHttpText, UploadFormMatchesTheLayoutInBothModes)
{
    const std::string bytes("a\0b\r\nc--\r\n\xff", 11);
    for (bool jsp : {false, true})
    {
        SCOPED_TRACE(jsp ? "six parts" : "four parts");
        zy::http::UploadFields fields;
        fields.jsp = jsp;
        fields.clientId = "CC 7";
        fields.user = "u";
        fields.password = "p:w";
        fields.fileName = "my log.txt";
        zy::http::UploadForm form = zy::http::BuildUploadForm(fields);
        const std::string body = form.head + bytes + form.tail;
        EXPECT_EQ(zytest::ExpectedUploadBody(jsp, "CC 7", "u", "p:w", "my log.txt", bytes), body);
    }
}

TEST(ZyHttpText, BasicAuthorizationEncodesUserColonPassword)
{
    EXPECT_EQ("Basic dXNlcjpwQHNzOndvcmQ=", zy::http::BasicAuthorization("user", "p@ss:word"));
}

TEST(ZyHttpText, BaseUrlsAreTakenApart)
{
    zy::http::UrlParts parts;
    ASSERT_TRUE(zy::http::ParseBaseUrl("HTTPS://Host.example:8443/a/b?x=1#frag", parts));
    EXPECT_TRUE(parts.secure && parts.host == "Host.example" && parts.port == 8443);
    EXPECT_TRUE(parts.path == "/a/b" && parts.query == "?x=1") << parts.path << parts.query;
    EXPECT_EQ("https://Host.example:8443", zy::http::Origin(parts));

    ASSERT_TRUE(zy::http::ParseBaseUrl("hTtP://h#x/y", parts));
    EXPECT_TRUE(!parts.secure && parts.host == "h" && parts.port == 0 && parts.path == "/");

    ASSERT_TRUE(zy::http::ParseBaseUrl("h:80?q/z", parts));  // no scheme: http
    EXPECT_EQ("/", parts.path);
    EXPECT_EQ("?q/z", parts.query);
    EXPECT_EQ("http://h", zy::http::Origin(parts));

    ASSERT_TRUE(zy::http::ParseBaseUrl("http://[::1]:8080/logs", parts));
    EXPECT_EQ("::1", parts.host);
    EXPECT_EQ("http://[::1]:8080", zy::http::Origin(parts));

    for (const char* bad : {"ftp://h/", "http://", "http://:80/", "http://h:0/", "http://h:65536/", "http://h:8a/",
                            "http://h/a b", "http://[::1/", "http://[::1]x/", ""})
        EXPECT_FALSE(zy::http::ParseBaseUrl(bad, parts)) << bad;
}

TEST(ZyHttpText, PathsAreEncodedForRequestsAndDecodedBack)
{
    const std::string plain = "dir one/50% \"x\"#?\xc3\xa9\\y";
    const std::string encoded = zy::http::EncodePath(plain);
    EXPECT_EQ("dir%20one/50%25%20%22x%22%23%3F%C3%A9/y", encoded);
    EXPECT_EQ("dir one/50% \"x\"#?\xc3\xa9/y", zy::http::DecodePath(encoded));
    // Broken escapes stay as written: ListingText.CivilDatesAndUrlPieces.
}

TEST(ZyHttpText, LinksEndAtTheirQuoteAndNeverPastThePage)
{
    EXPECT_EQ((std::vector<std::string>{"a.txt", "", "Sub/"}),
              zy::http::ExtractLinks("<a href=\"a.txt\">x</a><A HREF=\"\"><a hReF=\"Sub/\">"));
    // A link whose closing quote is missing ends the scan.
    EXPECT_EQ((std::vector<std::string>{"ok"}), zy::http::ExtractLinks("<a href=\"ok\"><a href=\"cut-off"));
    EXPECT_TRUE(zy::http::ExtractLinks("<a href=\"").empty());
}

TEST(ZyHttpText, ListingLinksLeadOnlyDownward)
{
    const std::string origin = "http://127.0.0.1:8080";
    const std::string dir = "/top/sub/";
    struct Case { const char* link; zy::http::ListingLink::Kind kind; const char* name; };
    const Case cases[] = {
        {"a.txt", zy::http::ListingLink::kFile, "a.txt"},
        {"d/", zy::http::ListingLink::kDirectory, "d/"},
        {"d/e/f.bin?x", zy::http::ListingLink::kFile, "d/e/f.bin"},
        {"a%20b.txt", zy::http::ListingLink::kFile, "a b.txt"},
        {"a&amp;b&#39;c&#x22;", zy::http::ListingLink::kFile, "a&b'c\""},
        {"/top/sub/x.bin", zy::http::ListingLink::kFile, "x.bin"},
        {"HTTP://127.0.0.1:8080/top/sub/z/", zy::http::ListingLink::kDirectory, "z/"},
        {"//127.0.0.1:8080/top/sub/w", zy::http::ListingLink::kFile, "w"},
    };
    for (const Case& c : cases)
    {
        zy::http::ListingLink link = zy::http::ClassifyListingLink(c.link, origin, dir);
        EXPECT_EQ(c.kind, link.kind) << c.link;
        EXPECT_EQ(c.name, link.name) << c.link;
    }
    // Up, the page itself, elsewhere: never followed.
    for (const char* ignored : {"", "./", "../", "?C=N;O=D", "#top", "/top/sub/", "/top/sub", "/top/", "d/../../x",
                                "d//x", "%2e%2e/", "a%2Fb", "a%00b", "mailto:x@y", "http://other/top/sub/y",
                                "https://127.0.0.1:8080/top/sub/y", "http://127.0.0.1:8080"})
        EXPECT_EQ(zy::http::ListingLink::kIgnore, zy::http::ClassifyListingLink(ignored, origin, dir).kind) << ignored;
}
}  // namespace
