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
    // The platform's address-family numbers (IPv6 is 23 on every platform).
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
    // Copies a record, or converts an address text (numeric IPv4 or IPv6, or a
    // Unix-domain path); a text that does not convert leaves what the conversion
    // left. None of these report failure.
    // @{
    CZyIPAddr(const CZyIPAddr& other);
    CZyIPAddr(const ZYNET_SockAddr& record);
    CZyIPAddr(const sockaddr_in& record);
    CZyIPAddr(const sockaddr_in6& record);
    CZyIPAddr(const char* text);
    // @}

    // The same as the matching constructor.
    // @{
    CZyIPAddr& operator=(const CZyIPAddr& other);
    CZyIPAddr& operator=(const ZYNET_SockAddr& record);
    CZyIPAddr& operator=(const sockaddr_in& record);
    CZyIPAddr& operator=(const sockaddr_in6& record);
    CZyIPAddr& operator=(const char* text);
    // @}

    // Zeroes the address and sets the process-wide preferred family.
    void Clear();
    // Clears the address and sets `family`.
    void SetAddressFamily(IP_FAMILY family);
    // The stored family.
    IP_FAMILY GetAddressFamily() const;
    // The family's name: "IPv4", "IPv6", "UNIX", ...
    const char* GetAddressFamilyString() const;

    // Copies of the record as the platform's IPv4, IPv6 or the library's own
    // record; the family is not checked.
    // @{
    sockaddr_in GetIPv4SockAddr() const;
    sockaddr_in6 GetIPv6SockAddr() const;
    ZYNET_SockAddr GetSockAddr() const;
    // @}
    // The path of a Unix-domain address, "" for other families.
    std::string GetUnixSockAddr() const;
    // Direct access to the record, for the flat functions.
    const ZYNET_SockAddr* SockAddrPtr() const { return &m_addr; }
    // The same, writable.
    ZYNET_SockAddr* SockAddrPtr() { return &m_addr; }

    // The port in host order; 0 for families without ports.
    int GetPortNumber() const;
    // Sets the port (low 16 bits) of an IPv4 or IPv6 address; a Unix-domain address
    // ignores it; any other family is Win32 error 774 "Address family not set".
    CZyError SetPortNumber(int port);

    // Compares family and address bytes (or paths), not ports. Addresses of any
    // other family (UNSPEC included) are never equal, not even to themselves.
    // @{
    bool operator==(const CZyIPAddr& other) const;
    bool operator!=(const CZyIPAddr& other) const { return !(*this == other); }
    // @}

    // Parses a numeric address text (or a path); the conversion's code on failure.
    CZyError SetAddressString(const char* text);
    // The address as numeric text.
    CZyError GetAddressString(CZyString& text) const;
    // The name that a reverse look-up gives for the address.
    CZyError GetHostName(CZyString& name) const;

    // This machine's host name.
    static CZyError GetLocalHost(CZyString& name);
    // This machine's host name resolved with GetByName.
    static CZyError GetLocalHost(CZyIPAddr& address, IP_FAMILY family);
    // Resolves `name` to the first IPv4 or IPv6 address in resolver order, port 0
    // (`family` UNSPEC: the preferred family). A name with '/' or '\\' is a
    // Unix-domain path and is not resolved. A name that resolves to the
    // name-collision address 127.0.53.53 is refused with 11001 "DNS name collision
    // occured"; resolver failures give the resolver's code. No entry of a wanted
    // family leaves `out` unchanged and still succeeds.
    static CZyError GetByName(const char* name, CZyIPAddr& out, IP_FAMILY family);
    // The same, appending every IPv4 and IPv6 address (port 0) to `list`, which is
    // not emptied first.
    static CZyError GetAllByName(const char* name, std::vector<CZyIPAddr>& list, IP_FAMILY family);

    // The process-wide preferred family (used where a family is UNSPEC), and
    // its name.
    // @{
    static IP_FAMILY GetPreferredFamily();
    static void SetPreferredFamily(IP_FAMILY family);
    static const char* GetPreferredFamilyString();
    // @}

    // CIDR and subnet helpers (IPv4).
    // Makes this address the IPv4 mask with `prefix` leading one bits.
    CZyError SetSubnetMaskFromCIDRPrefix(int prefix);
    // The IPv4 mask of `prefix` bits as dotted text ("255.255.255.0" for 24).
    static CZyError ConvertCIDRPrefixToSubnetMaskString(int prefix, CZyString& mask);
    // Whether the IPv4 `address` text lies in `block` ("10.0.0.0/8"). A block
    // without "/" or a text that does not parse is Win32 error 87.
    static CZyError CheckIfIpv4AddressIsWithinCidrBlock(const std::string& address, const std::string& block,
                                                        bool& within);

    // Interface and hardware address lists.
    // This machine's unicast interface addresses of `family` (UNSPEC: all).
    // The second member is, for IPv4, the network address (host bits cleared);
    // for IPv6, an IPv4 record holding the address's fourth 16-bit group.
    // `list` is emptied first.
    static CZyError GetIFList(std::vector<std::pair<CZyIPAddr, CZyIPAddr>>& list, IP_FAMILY family);
    // The addresses alone, appended to `list`.
    static CZyError GetIFList(std::vector<CZyIPAddr>& list, IP_FAMILY family);
    // The hardware addresses of the adapters, as "00:1a:2b:3c:4d:5e".
    static CZyError GetMACList(std::vector<std::string>& list, IP_FAMILY family);
    // The non-loopback interfaces: their addresses, their texts (sorted) and, when
    // asked, their host names (lower case, sorted, without duplicates). Asking for
    // host names also sets wantAddresses; asking for neither is Win32 error 87.
    static CZyError GetAllInterfaces(GetAllInterfacesArgs_t& args, GetAllInterfacesRet_t& ret,
                                     const IP_FAMILY& family);

    // Address and stack probes.
    // Whether a stream socket can bind to `address`; an unsupported family gives
    // false without an error, other bind failures are returned.
    static CZyError IsAddrBindable(const CZyIPAddr& address, bool& bindable);
    // Whether the loopback address 127.0.0.1 (or ::1) can be bound.
    // @{
    static CZyError IsIPv4StackPresent(bool& present);
    static CZyError IsIPv6StackPresent(bool& present);
    // @}
    // Whether the system supports Unix-domain sockets; never fails.
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
