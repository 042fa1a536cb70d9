// CZyIPAddrBlacklist: reports, grace, expiry on a clock the test moves,
// iteration with a cursor that survives removals, copies, and file loading.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "ZyNetwork/ZyIPAddrBlacklist.h"
#include "ZyUtils/ZyTime.h"
#include "support/TestEnv.h"

namespace
{
CZyIPAddr Addr(const char* text, int port = 0)
{
    CZyIPAddr address(text);
    if (port)
        address.SetPortNumber(port);
    return address;
}

using zytest::Text;

struct ClockedBlacklist
{
    int32_t now = 1700000000;
    CZyIPAddrBlacklist list;
    ClockedBlacklist() { list.SetTimeSource([this] { return now; }); }
    // The texts of the entries, in iteration order.
    std::vector<std::string> Entries(CZyIPAddrBlacklist* other = nullptr)
    {
        CZyIPAddrBlacklist& l = other ? *other : list;
        std::vector<std::string> out;
        CZyIPAddr a;
        for (CZyError e = l.GetFirstBlacklistEntry(a, 0, 0, 0, 0); !e.IsError();
             e = l.GetNextBlacklistEntry(a, 0, 0, 0, 0))
            out.push_back(Text(a));
        return out;
    }
};
}  // namespace

TEST(Blacklist, DefaultsGraceAndPortlessIdentity)
{
    CZyIPAddrBlacklist list;
    CZyString reason("stale");
    unsigned int attempts = 99;
    EXPECT_FALSE(list.IsAddressBlacklisted(Addr("10.0.0.1"), &reason, &attempts));
    EXPECT_TRUE(reason.IsEmpty() && attempts == 0);

    // Defaults: the first report blacklists, for ever; the first reason stays.
    list.AddAddressToBlacklist(Addr("10.0.0.1", 80), CZyString("port scan"));
    list.AddAddressToBlacklist(Addr("10.0.0.1", 81), CZyString("other"));  // another port: the same entry
    EXPECT_TRUE(list.IsAddressBlacklisted(Addr("10.0.0.1"), &reason, &attempts));
    EXPECT_EQ(reason.str(), "port scan");
    EXPECT_EQ(attempts, 1u);
    long lastTime = 0, secondsLeft = 0;
    CZyIPAddr out;
    ASSERT_FALSE(list.GetFirstBlacklistEntry(out, nullptr, nullptr, &lastTime, &secondsLeft).IsError());
    EXPECT_NEAR(lastTime, static_cast<long>(ZyTime32()), 60);  // the default clock is the system's
    EXPECT_EQ(secondsLeft, -1);

    // Grace 3: known but not yet blacklisted after 2 reports (outputs are
    // filled anyway), blacklisted after 3, and capped at 3 after 5.
    list.SetGraceAttempts(3);
    for (int i = 1; i <= 5; ++i)
    {
        list.AddAddressToBlacklist(Addr("192.0.2.5"), CZyString("r"));
        bool listed = list.IsAddressBlacklisted(Addr("192.0.2.5"), &reason, &attempts);
        EXPECT_EQ(listed, i >= 3) << i;
        EXPECT_EQ(attempts, static_cast<unsigned int>(i < 3 ? i : 3)) << i;
        EXPECT_EQ(reason.str(), "r");
    }
    EXPECT_FALSE(list.IsAddressBlacklisted(Addr("::ffff:192.0.2.5"), nullptr, nullptr));  // another family
}

TEST(Blacklist, ExpiryForgivesOneReportPerWholePeriod)
{
    ClockedBlacklist c;
    c.list.SetExpirationTime(10);
    c.list.AddAddressToBlacklist(Addr("10.1.1.1"));
    c.list.AddAddressToBlacklist(Addr("10.1.1.2"));
    c.now += 10;  // exactly one period ago still counts
    EXPECT_TRUE(c.list.IsAddressBlacklisted(Addr("10.1.1.1"), nullptr, nullptr));
    c.now += 15;  // 25 s: removed, not just answered false
    unsigned int attempts = 7;
    EXPECT_FALSE(c.list.IsAddressBlacklisted(Addr("10.1.1.1"), nullptr, &attempts));
    EXPECT_EQ(attempts, 0u);
    EXPECT_EQ(c.Entries(), std::vector<std::string>{"10.1.1.2"});

    // Grace 2: one forgiven period brings the address back under the
    // threshold and moves its time by a whole period.
    ClockedBlacklist g;
    g.list.SetExpirationTime(10);
    g.list.SetGraceAttempts(2);
    const int32_t reported = g.now;
    g.list.AddAddressToBlacklist(Addr("10.2.2.2"));
    g.list.AddAddressToBlacklist(Addr("10.2.2.2"));
    g.now += 13;
    EXPECT_FALSE(g.list.IsAddressBlacklisted(Addr("10.2.2.2"), nullptr, &attempts));
    EXPECT_EQ(attempts, 1u);
    CZyIPAddr out;
    long lastTime = 0, secondsLeft = 0;
    ASSERT_FALSE(g.list.GetFirstBlacklistEntry(out, nullptr, nullptr, &lastTime, &secondsLeft).IsError());
    EXPECT_EQ(lastTime, static_cast<long>(reported + 10));
    EXPECT_EQ(secondsLeft, 7);
    g.now += 100;  // iteration never expires anything; secondsLeft stops at 0
    ASSERT_FALSE(g.list.GetFirstBlacklistEntry(out, nullptr, &attempts, nullptr, &secondsLeft).IsError());
    EXPECT_EQ(secondsLeft, 0);
    EXPECT_EQ(attempts, 1u);
    g.now = reported - 1000;  // a clock set back under a huge period: capped alike on every platform
    g.list.SetExpirationTime(INT32_MAX);
    ASSERT_FALSE(g.list.GetFirstBlacklistEntry(out, nullptr, nullptr, nullptr, &secondsLeft).IsError());
    EXPECT_EQ(secondsLeft, static_cast<long>(INT32_MAX));

    // A huge gap with a one-second period is worked out at once.
    g.list.SetExpirationTime(1);
    g.now = 2000000000;
    EXPECT_FALSE(g.list.IsAddressBlacklisted(Addr("10.2.2.2"), nullptr, nullptr));
    EXPECT_TRUE(c.Entries(&g.list).empty());
}

TEST(Blacklist, IterationCursorAndCopies)
{
    ClockedBlacklist c;
    CZyIPAddr out;
    long secondsLeft = 42;
    CZyError err = c.list.GetFirstBlacklistEntry(out, nullptr, nullptr, nullptr, &secondsLeft);
    EXPECT_TRUE(err.Is(259));
    EXPECT_EQ(err.GetErrorKind(), EErrorKind::Win32);
    EXPECT_EQ(err.GetErrorMessage(), "End of blacklist reached");
    ASSERT_EQ(err.GetItems().size(), 2u);
    EXPECT_STREQ(err.GetItems()[0]->Location().Function(), "CZyIPAddrBlacklist::GetNextBlacklistEntry");
    EXPECT_STREQ(err.GetItems()[1]->Location().Function(), "CZyIPAddrBlacklist::GetFirstBlacklistEntry");

    c.list.SetExpirationTime(10);
    c.list.AddAddressToBlacklist(Addr("10.0.0.1"));
    c.now += 20;
    c.list.AddAddressToBlacklist(Addr("10.0.0.2"), CZyString("b"));
    c.list.AddAddressToBlacklist(Addr("10.0.0.3"));
    c.now += 1;
    // The cursor rests on .2; expiring .1 leaves it be, removing .2 moves it on.
    ASSERT_FALSE(c.list.GetFirstBlacklistEntry(out, nullptr, nullptr, nullptr, nullptr).IsError());
    EXPECT_FALSE(c.list.IsAddressBlacklisted(Addr("10.0.0.1"), nullptr, nullptr));
    CZyIPAddrBlacklist copy(c.list);
    c.now += 30;
    EXPECT_FALSE(c.list.IsAddressBlacklisted(Addr("10.0.0.2"), nullptr, nullptr));
    CZyString reason;
    ASSERT_FALSE(c.list.GetNextBlacklistEntry(out, &reason, nullptr, nullptr, &secondsLeft).IsError());
    EXPECT_EQ(Text(out), "10.0.0.3");
    EXPECT_TRUE(reason.IsEmpty());
    EXPECT_EQ(secondsLeft, 0);
    EXPECT_TRUE(c.list.GetNextBlacklistEntry(out, nullptr, nullptr, nullptr, nullptr).Is(259));

    // The copy has its own entries and its cursor at its own end; it shares
    // the settings and the clock.
    EXPECT_TRUE(copy.GetNextBlacklistEntry(out, nullptr, nullptr, nullptr, nullptr).Is(259));
    EXPECT_EQ(c.Entries(&copy), (std::vector<std::string>{"10.0.0.2", "10.0.0.3"}));
    CZyIPAddrBlacklist assigned;
    assigned = copy;
    EXPECT_FALSE(assigned.IsAddressBlacklisted(Addr("10.0.0.2"), &reason, nullptr));  // expired by the shared clock
    EXPECT_EQ(c.Entries(&copy).size(), 2u);
}

namespace
{
struct TempFile
{
    std::string path = "zyblacklist-" + std::to_string(FXProcess::getProcessId()) + ".txt";
    ~TempFile() { std::remove(path.c_str()); }
};
}  // namespace

TEST(Blacklist, LoadsFileAndReportsMissingOne)
{
    TempFile file;
    CZyIPAddrBlacklist list;
    CZyError err = list.LoadBlacklistFromFile(file.path.c_str());
    EXPECT_EQ(err.GetErrorCode(), 2);  // no such file, on both platforms
    EXPECT_EQ(err.GetErrorKind(), EErrorKind::Win32);
    EXPECT_EQ(err.GetErrorMessage(), "Failed to open file, FileName=" + file.path);
    EXPECT_STREQ(err.GetItems()[0]->Location().Function(), "CZyIPAddrBlacklist::LoadBlacklistFromFile");
    // The system's codes, numbered alike on both platforms: a missing
    // directory on the way, and a directory in place of the file.
    EXPECT_EQ(list.LoadBlacklistFromFile(("no-such-dir-" + file.path + "/x").c_str()).GetErrorCode(), 3);
    EXPECT_EQ(list.LoadBlacklistFromFile(".").GetErrorCode(), 5);

    CZyIPAddr armSentinel;  // arms the name-collision rule for 127.0.53.53
    std::ofstream(file.path, std::ios::binary)
        << "\n"                                  // empty
        << std::string(70, 'z') << "\n"          // cannot resolve: a label over 63 bytes, never sent
        << "127.0.53.53\n"                       // refused by the name-collision rule
        << "127.0.0.1\r\n"                       // CRLF
        << "\r\n"                                // empty once the line end is gone
        << std::string(1023, 'a') << "127.0.0.2\n"  // over 1023 bytes: the tail is a line of its own
        << "/tmp/zyblacklist.sock\n"             // a local socket path
        << "127.0.0.1";                          // repeated, no final line feed
    ClockedBlacklist c;
    c.list.SetGraceAttempts(3);
    ZYTEST_ASSERT_OK(c.list.LoadBlacklistFromFile(file.path.c_str()));
    EXPECT_EQ(c.Entries(), (std::vector<std::string>{"127.0.0.1", "127.0.0.2", "/tmp/zyblacklist.sock"}));
    unsigned int attempts = 0;
    EXPECT_FALSE(c.list.IsAddressBlacklisted(Addr("127.0.0.1"), nullptr, &attempts));
    EXPECT_EQ(attempts, 2u);
}
