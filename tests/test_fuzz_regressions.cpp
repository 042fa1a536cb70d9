// Inputs that fuzzing found to misbehave, kept so that the fault stays fixed.
#include <gtest/gtest.h>

#include <string>

#include "ZyNetwork/Internal/ZyHTTPText.h"

// A bracketed host took any bytes, so a base URL parsed into a host that
// its own origin text no longer parsed back to.
TEST(FuzzRegressions, BracketedHostMustBeAnIPv6Literal)
{
    zy::http::UrlParts parts;
    EXPECT_FALSE(zy::http::ParseBaseUrl(std::string("[(/%1b/%0c\xc1\x90\x8c\xb7\x90\xa4\xc5\xc5" "0]/%4ex#fr"), parts));
    EXPECT_FALSE(zy::http::ParseBaseUrl("http://[::1/x]/", parts));
    ASSERT_TRUE(zy::http::ParseBaseUrl("https://[fe80::1%eth0]:8443/logs/", parts));
    EXPECT_EQ(parts.host, "fe80::1%eth0");
    zy::http::UrlParts again;
    ASSERT_TRUE(zy::http::ParseBaseUrl(zy::http::Origin(parts), again));
    EXPECT_EQ(again.host, parts.host);
    EXPECT_EQ(again.port, 8443);
}
