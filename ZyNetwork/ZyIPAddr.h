// CZyIPAddr: one IPv4, IPv6 or Unix-domain address with its port, and the
// static operations that resolve names, list interfaces, work with CIDR
// blocks and probe the protocol stacks.
#pragma once

#include <atomic>
#include <string>
#include <utility>
#include <vector>

#include "ZyNetwork/ZySockAddr.h"
#include "ZyUtils/ZyError.h"
#include "ZyUtils/ZyString.h"

// One address (IPv4, IPv6 or a Unix-domain path) with its port, plus the
// static name, interface, CIDR and stack-probe operations.
class ZYNET_API CZyIPAddr
{
public:
    enum IP_FAMILY
    {
        IP_FAMILY_UNSPEC = ZYNET_AF_UNSPEC,
        IP_FAMILY_UNIX = ZYNET_AF_UNIX,
        IP_FAMILY_IPV4 = ZYNET_AF_INET,
        IP_FAMILY_IPV6 = ZYNET_AF_INET6
    };

    // What GetAllInterfaces is asked to collect.
    struct GetAllInterfacesArgs_t
    {
        bool wantAddresses;
        bool wantHostNames;
    };
    // What GetAllInterfaces collected.
    struct GetAllInterfacesRet_t
    {
        std::vector<std::string> addressTexts;
        std::vector<CZyIPAddr> interfaces;
        std::vector<std::string> hostNames;
    };

    CZyIPAddr();
    CZyIPAddr(const CZyIPAddr& other);
    CZyIPAddr(const ZYNET_SockAddr& record);
    CZyIPAddr(const sockaddr_in& record);
    CZyIPAddr(const sockaddr_in6& record);
    CZyIPAddr(const char* text);

    CZyIPAddr& operator=(const CZyIPAddr& other);
    CZyIPAddr& operator=(const ZYNET_SockAddr& record);
    CZyIPAddr& operator=(const sockaddr_in& record);
    CZyIPAddr& operator=(const sockaddr_in6& record);
    CZyIPAddr& operator=(const char* text);

    void Clear();
    void SetAddressFamily(IP_FAMILY family);
    IP_FAMILY GetAddressFamily() const;
    const char* GetAddressFamilyString() const;

    sockaddr_in GetIPv4SockAddr() const;
    sockaddr_in6 GetIPv6SockAddr() const;
    ZYNET_SockAddr GetSockAddr() const;
    std::string GetUnixSockAddr() const;
    // Direct access to the record, for the flat functions.
    const ZYNET_SockAddr* SockAddrPtr() const { return &m_addr; }
    ZYNET_SockAddr* SockAddrPtr() { return &m_addr; }

    int GetPortNumber() const;
    CZyError SetPortNumber(int port);

    bool operator==(const CZyIPAddr& other) const;
    bool operator!=(const CZyIPAddr& other) const { return !(*this == other); }

    CZyError SetAddressString(const char* text);
    CZyError GetAddressString(CZyString& text) const;
    CZyError GetHostName(CZyString& name) const;

    static CZyError GetLocalHost(CZyString& name);
    static CZyError GetLocalHost(CZyIPAddr& address, IP_FAMILY family);
    static CZyError GetByName(const char* name, CZyIPAddr& out, IP_FAMILY family);
    static CZyError GetAllByName(const char* name, std::vector<CZyIPAddr>& list, IP_FAMILY family);

    static IP_FAMILY GetPreferredFamily();
    static void SetPreferredFamily(IP_FAMILY family);
    static const char* GetPreferredFamilyString();

    // CIDR and subnet helpers (IPv4).
    CZyError SetSubnetMaskFromCIDRPrefix(int prefix);
    static CZyError ConvertCIDRPrefixToSubnetMaskString(int prefix, CZyString& mask);
    static CZyError CheckIfIpv4AddressIsWithinCidrBlock(const std::string& address, const std::string& block,
                                                        bool& within);

    // Interface and hardware address lists.
    static CZyError GetIFList(std::vector<std::pair<CZyIPAddr, CZyIPAddr>>& list, IP_FAMILY family);
    static CZyError GetIFList(std::vector<CZyIPAddr>& list, IP_FAMILY family);
    static CZyError GetMACList(std::vector<std::string>& list, IP_FAMILY family);
    static CZyError GetAllInterfaces(GetAllInterfacesArgs_t& args, GetAllInterfacesRet_t& ret,
                                     const IP_FAMILY& family);

    // Address and stack probes.
    static CZyError IsAddrBindable(const CZyIPAddr& address, bool& bindable);
    static CZyError IsIPv4StackPresent(bool& present);
    static CZyError IsIPv6StackPresent(bool& present);
    static CZyError IsUnixStackPresent(bool& present);

private:
    // Builds a zeroed address without touching the sentinel. Constant
    // initialisation of m_DummyIp relies on this being constexpr: the
    // sentinel must be valid before any other static object is constructed.
    enum class NoSentinel
    {
        Tag
    };
    constexpr explicit CZyIPAddr(NoSentinel) : m_addr{} {}

    // Resolves the sentinel into m_DummyIp once; retried by each default
    // construction until it succeeds.
    static void ArmCollisionSentinel();
    // True when the sentinel is armed and `candidate` is the collision
    // address.
    static bool IsCollision(const CZyIPAddr& candidate);

    ZYNET_SockAddr m_addr;

    // The resolver's answer for the name-collision sentinel 127.0.53.53.
    // m_DummyIp is written only while m_DummyIpInit is false (under a lock)
    // and read only after it became true.
    static CZyIPAddr m_DummyIp;
    static std::atomic<bool> m_DummyIpInit;
};
