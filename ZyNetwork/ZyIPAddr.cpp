// CZyIPAddr: value operations, text conversion, name resolution with the
// name-collision rule, CIDR helpers and the stack probes. The interface lists
// of the same class live in ZyNetwork/ZyIFList.cpp.
#include "ZyNetwork/ZyIPAddr.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "ZyNetwork/Internal/OsApi.h"
#include "ZyNetwork/Internal/ZySockAddrInternal.h"
#include "ZyNetwork/ZySocket.h"
#include "ZyUtils/Internal/ErrorCodes.h"

static const char kZyFile[] = "ZyNetwork/ZyIPAddr";

namespace
{
// Buffers of the text conversions.
const int kAddressTextLength = 108;
const int kHostNameLength = 1025;

// Capacity of the path field of a Unix-domain record, terminator included.
const size_t kUnixPathField = ZYNET_MAX_UNIX_PATH + 1;

const char kSentinelText[] = "127.0.53.53";

// One text conversion of an address (ZYNET_ip2str, ZYNET_ip2name) into a
// buffer of Length characters; the conversion's code is the error.
template <int Length>
CZyError ConvertToText(int (*convert)(const ZYNET_SockAddr*, char*, int), const ZYNET_SockAddr& addr,
                       const FXCodeLocation& location, CZyString& text)
{
    char buffer[Length];
    std::memset(buffer, 0, sizeof(buffer));
    int code = convert(&addr, buffer, Length);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(location, static_cast<uint32_t>(code));
    buffer[Length - 1] = '\0';
    text = buffer;
    return CZyError::Success();
}

// Serialises the first resolution of the sentinel. Constant-initialised, so
// it is usable during static initialisation of other translation units.
std::mutex g_sentinelLock;

uint16_t PortFromNetwork(uint16_t stored)
{
    const uint8_t* bytes = reinterpret_cast<const uint8_t*>(&stored);
    return static_cast<uint16_t>((bytes[0] << 8) | bytes[1]);
}

uint16_t PortToNetwork(uint16_t port)
{
    uint16_t stored = 0;
    uint8_t* bytes = reinterpret_cast<uint8_t*>(&stored);
    bytes[0] = static_cast<uint8_t>(port >> 8);
    bytes[1] = static_cast<uint8_t>(port & 0xFF);
    return stored;
}

// The IPv4 address word exactly as stored (network byte order).
uint32_t StoredIPv4Word(const ZYNET_SockAddr& record)
{
    uint32_t word = 0;
    std::memcpy(&word, record.in4.addr, sizeof(word));
    return word;
}

// The Unix-domain record for a path text, with the message of this class
// when the path does not fit.
CZyError MakeUnixRecord(const char* path, ZYNET_SockAddr& record, const char* function)
{
    if (zy::net::MakePathRecord(path, &record) != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC(function), ZYNET_ERR_PATH_TOO_LONG,
                                       "Unix socket path too long (%d bytes, at most %d)",
                                       static_cast<int>(std::strlen(path)), ZYNET_MAX_UNIX_PATH);
    return CZyError::Success();
}

// The shared look-up (ZyNetwork/ZySockAddr.cpp); its code is a Win32-kind
// error without message.
CZyError Resolve(const char* name, CZyIPAddr::IP_FAMILY family, std::vector<ZYNET_SockAddr>& records,
                 const char* function)
{
    int code = zy::net::LookUpName(name, static_cast<int>(family), &records);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC(function), static_cast<uint32_t>(code));
    return CZyError::Success();
}

// What GetByName and GetAllByName share: a null name is refused, a path text
// gives its Unix-domain record alone (`*isPath` set where asked; the resolver
// is not asked) and any other name is resolved.
CZyError LookUp(const char* name, CZyIPAddr::IP_FAMILY family, const char* function,
                std::vector<ZYNET_SockAddr>& records, bool* isPath = nullptr)
{
    if (isPath)
        *isPath = false;
    if (!name)
        return FXErrorUtil::ErrorWin32(ZY_LOC(function), zy::err::kInvalidParameter, "Null parameter passed");
    if (!zy::net::IsPathText(name))
        return Resolve(name, family, records, function);
    if (isPath)
        *isPath = true;
    records.assign(1, ZYNET_SockAddr());
    return MakeUnixRecord(name, records.front(), function);
}
}  // namespace

// Constant-initialised: no constructor runs for them at start-up, so a
// default construction in another file's static initialiser finds them ready.
CZyIPAddr CZyIPAddr::m_DummyIp(CZyIPAddr::NoSentinel::Tag);
std::atomic<bool> CZyIPAddr::m_DummyIpInit(false);

// ---- construction and assignment -----------------------------------------

CZyIPAddr::CZyIPAddr()
{
    Clear();
    if (!m_DummyIpInit.load(std::memory_order_acquire))
        ArmCollisionSentinel();
}

// A copy takes the whole record, so clearing it first would change nothing;
// skipping that keeps copies (the selector returns sets of them) cheap.
CZyIPAddr::CZyIPAddr(const CZyIPAddr& other) : m_addr(other.m_addr) {}

CZyIPAddr::CZyIPAddr(const ZYNET_SockAddr& record)
{
    Clear();
    m_addr = record;
}

CZyIPAddr::CZyIPAddr(const sockaddr_in& record)
{
    Clear();
    *this = record;
}

CZyIPAddr::CZyIPAddr(const sockaddr_in6& record)
{
    Clear();
    *this = record;
}

CZyIPAddr::CZyIPAddr(const char* text)
{
    Clear();
    *this = text;
}

CZyIPAddr& CZyIPAddr::operator=(const CZyIPAddr& other)
{
    m_addr = other.m_addr;
    return *this;
}

CZyIPAddr& CZyIPAddr::operator=(const ZYNET_SockAddr& record)
{
    m_addr = record;
    return *this;
}

// The platform records carry the platform's family numbers (AF_INET6 is 10
// on Linux); the stored family is always the portable one.
CZyIPAddr& CZyIPAddr::operator=(const sockaddr_in& record)
{
    static_assert(sizeof(sockaddr_in) == 16, "sockaddr_in is 16 bytes");
    std::memcpy(&m_addr, &record, sizeof(record));
    m_addr.family = static_cast<uint16_t>(zy::os::FamilyFromOs(record.sin_family));
    return *this;
}

CZyIPAddr& CZyIPAddr::operator=(const sockaddr_in6& record)
{
    static_assert(sizeof(sockaddr_in6) == 28, "sockaddr_in6 is 28 bytes");
    std::memcpy(&m_addr, &record, sizeof(record));
    m_addr.family = static_cast<uint16_t>(zy::os::FamilyFromOs(record.sin6_family));
    return *this;
}

// A text that does not convert leaves whatever the conversion left; callers
// that need to know use SetAddressString.
CZyIPAddr& CZyIPAddr::operator=(const char* text)
{
    ZYNET_str2ip(text, &m_addr);
    return *this;
}

void CZyIPAddr::Clear()
{
    std::memset(&m_addr, 0, sizeof(m_addr));
    m_addr.family = static_cast<uint16_t>(ZYNET_GetFamilyPreference());
}

void CZyIPAddr::SetAddressFamily(IP_FAMILY family)
{
    Clear();
    m_addr.family = static_cast<uint16_t>(family);
}

CZyIPAddr::IP_FAMILY CZyIPAddr::GetAddressFamily() const
{
    return static_cast<IP_FAMILY>(m_addr.family);
}

const char* CZyIPAddr::GetAddressFamilyString() const
{
    return ZYNET_family2str(m_addr.family);
}

// ---- views of the record -------------------------------------------------

sockaddr_in CZyIPAddr::GetIPv4SockAddr() const
{
    sockaddr_in record;
    std::memcpy(&record, &m_addr, sizeof(record));
    record.sin_family = static_cast<decltype(record.sin_family)>(zy::os::FamilyToOs(m_addr.family));
    return record;
}

sockaddr_in6 CZyIPAddr::GetIPv6SockAddr() const
{
    sockaddr_in6 record;
    std::memcpy(&record, &m_addr, sizeof(record));
    record.sin6_family = static_cast<decltype(record.sin6_family)>(zy::os::FamilyToOs(m_addr.family));
    return record;
}

ZYNET_SockAddr CZyIPAddr::GetSockAddr() const
{
    return m_addr;
}

std::string CZyIPAddr::GetUnixSockAddr() const
{
    if (m_addr.family != IP_FAMILY_UNIX)
        return std::string();
    // Bounded by the field: a record assigned from outside may lack its
    // terminator.
    size_t length = 0;
    while (length < kUnixPathField && m_addr.un.path[length] != '\0')
        ++length;
    return std::string(m_addr.un.path, length);
}

// ---- ports ---------------------------------------------------------------

int CZyIPAddr::GetPortNumber() const
{
    if (m_addr.family == IP_FAMILY_IPV4)
        return PortFromNetwork(m_addr.in4.port);
    if (m_addr.family == IP_FAMILY_IPV6)
        return PortFromNetwork(m_addr.in6.port);
    return 0;
}

CZyError CZyIPAddr::SetPortNumber(int port)
{
    uint16_t stored = PortToNetwork(static_cast<uint16_t>(port & 0xFFFF));
    switch (m_addr.family)
    {
    case IP_FAMILY_IPV4:
        m_addr.in4.port = stored;
        return CZyError::Success();
    case IP_FAMILY_IPV6:
        m_addr.in6.port = stored;
        return CZyError::Success();
    case IP_FAMILY_UNIX:
        // A path has no port; nothing to store.
        return CZyError::Success();
    default:
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyIPAddr::SetPortNumber"), zy::err::kStateError,
                                       "Address family not set");
    }
}

// ---- equality ------------------------------------------------------------

// Families must match; the address bytes decide. Ports, flow information and
// scope do not take part. An address without a usable family is unequal to
// everything, itself included.
bool CZyIPAddr::operator==(const CZyIPAddr& other) const
{
    if (m_addr.family != other.m_addr.family)
        return false;
    switch (m_addr.family)
    {
    case IP_FAMILY_UNIX:
        return std::strncmp(m_addr.un.path, other.m_addr.un.path, kUnixPathField) == 0;
    case IP_FAMILY_IPV4:
        return std::memcmp(m_addr.in4.addr, other.m_addr.in4.addr, sizeof(m_addr.in4.addr)) == 0;
    case IP_FAMILY_IPV6:
        return std::memcmp(m_addr.in6.addr, other.m_addr.in6.addr, sizeof(m_addr.in6.addr)) == 0;
    default:
        return false;
    }
}

// ---- text conversions ----------------------------------------------------

CZyError CZyIPAddr::SetAddressString(const char* text)
{
    // A null text is the conversion's own failure (10014), like any other.
    int code = ZYNET_str2ip(text, &m_addr);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyIPAddr::SetAddressString"), static_cast<uint32_t>(code));
    return CZyError::Success();
}

CZyError CZyIPAddr::GetAddressString(CZyString& text) const
{
    return ConvertToText<kAddressTextLength>(ZYNET_ip2str, m_addr, ZY_LOC("CZyIPAddr::GetAddressString"), text);
}

CZyError CZyIPAddr::GetHostName(CZyString& name) const
{
    return ConvertToText<kHostNameLength>(ZYNET_ip2name, m_addr, ZY_LOC("CZyIPAddr::GetHostName"), name);
}

CZyError CZyIPAddr::GetLocalHost(CZyString& name)
{
    char buffer[kHostNameLength];
    std::memset(buffer, 0, sizeof(buffer));
    int code = ZYNET_gethostname(buffer, kHostNameLength);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyIPAddr::GetLocalHost"), static_cast<uint32_t>(code));
    buffer[kHostNameLength - 1] = '\0';
    name = buffer;
    return CZyError::Success();
}

CZyError CZyIPAddr::GetLocalHost(CZyIPAddr& address, IP_FAMILY family)
{
    CZyString name;
    CZyError err = GetLocalHost(name);
    if (err.IsError())
        return err;
    err = GetByName(name.c_str(), address, family);
    if (err.IsError())
        return err.Push(ZY_LOC("CZyIPAddr::GetLocalHost"));
    return CZyError::Success();
}

// ---- resolution ----------------------------------------------------------

// The class applies the name-collision rule (zy::net::IsNameCollision, shared
// with the flat look-ups) once the resolver has answered the sentinel
// literal 127.0.53.53; the answer is kept in m_DummyIp. Until that look-up
// succeeds it is retried at each default construction; the caller's last
// socket error is left as it was, since a constructor should not disturb it.
void CZyIPAddr::ArmCollisionSentinel()
{
    std::lock_guard<std::mutex> hold(g_sentinelLock);
    if (m_DummyIpInit.load(std::memory_order_relaxed))
        return;
    int savedError = zy::os::LastError();
    CZyIPAddr resolved(NoSentinel::Tag);
    CZyError err = GetByName(kSentinelText, resolved, IP_FAMILY_IPV4);
    if (!err.IsError())
    {
        m_DummyIp = resolved;
        m_DummyIpInit.store(true, std::memory_order_release);
    }
    zy::os::SetLastError(savedError);
}

bool CZyIPAddr::IsCollision(const CZyIPAddr& candidate)
{
    return m_DummyIpInit.load(std::memory_order_acquire) && zy::net::IsNameCollision(candidate.m_addr);
}

CZyError CZyIPAddr::GetByName(const char* name, CZyIPAddr& out, IP_FAMILY family)
{
    static const char kFunction[] = "CZyIPAddr::GetByName";
    std::vector<ZYNET_SockAddr> records;
    CZyError err = LookUp(name, family, kFunction, records);
    if (err.IsError())
        return err;

    // The first IPv4 or IPv6 entry in resolver order wins; zy::os has already
    // dropped the other families. A path's record is alone and never the
    // collision marker.
    if (!records.empty())
        out.m_addr = records.front();

    if (IsCollision(out))
        return FXErrorUtil::ErrorWin32(ZY_LOC(kFunction), zy::err::kHostNotFound, "DNS name collision occured");
    return CZyError::Success();
}

// Appends to the caller's vector without clearing it, so a caller can gather
// the addresses of several names in one list; only the path case replaces
// the contents.
CZyError CZyIPAddr::GetAllByName(const char* name, std::vector<CZyIPAddr>& list, IP_FAMILY family)
{
    static const char kFunction[] = "CZyIPAddr::GetAllByName";
    std::vector<ZYNET_SockAddr> records;
    bool isPath = false;
    CZyError err = LookUp(name, family, kFunction, records, &isPath);
    if (err.IsError())
        return err;
    if (isPath)
    {
        list.clear();
        list.push_back(CZyIPAddr(records.front()));
        return CZyError::Success();
    }

    list.reserve(list.size() + records.size());
    for (const ZYNET_SockAddr& record : records)
    {
        CZyIPAddr entry(record);
        if (IsCollision(entry))
            return FXErrorUtil::ErrorWin32(ZY_LOC(kFunction), zy::err::kHostNotFound, "DNS name collision occured");
        list.push_back(entry);
    }
    return CZyError::Success();
}

// ---- family preference ---------------------------------------------------

CZyIPAddr::IP_FAMILY CZyIPAddr::GetPreferredFamily()
{
    return static_cast<IP_FAMILY>(ZYNET_GetFamilyPreference());
}

void CZyIPAddr::SetPreferredFamily(IP_FAMILY family)
{
    ZYNET_SetFamilyPreference(family);
}

const char* CZyIPAddr::GetPreferredFamilyString()
{
    return ZYNET_family2str(ZYNET_GetFamilyPreference());
}

// ---- CIDR helpers (IPv4) -------------------------------------------------

// Prefixes outside 1..32 have no mask and leave the address untouched.
CZyError CZyIPAddr::SetSubnetMaskFromCIDRPrefix(int prefix)
{
    if (prefix > 0 && prefix <= 32)
    {
        uint32_t mask = 0xFFFFFFFFu << (32 - prefix);
        m_addr.family = IP_FAMILY_IPV4;
        m_addr.in4.addr[0] = static_cast<uint8_t>(mask >> 24);
        m_addr.in4.addr[1] = static_cast<uint8_t>(mask >> 16);
        m_addr.in4.addr[2] = static_cast<uint8_t>(mask >> 8);
        m_addr.in4.addr[3] = static_cast<uint8_t>(mask);
    }
    return CZyError::Success();
}

// For a prefix outside 1..32 the text is that of a cleared address of the
// preferred family; when even that does not convert, `mask` keeps its value.
CZyError CZyIPAddr::ConvertCIDRPrefixToSubnetMaskString(int prefix, CZyString& mask)
{
    CZyIPAddr address;
    CZyError err = address.SetSubnetMaskFromCIDRPrefix(prefix);
    if (err.IsError())
        return err.Push(ZY_LOC("CZyIPAddr::ConvertCIDRPrefixToSubnetMaskString"));
    address.GetAddressString(mask);
    return CZyError::Success();
}

// The prefix is read with atoi: trailing characters are ignored and a
// non-numeric prefix is 0. A prefix with no mask (0, above 32, non-numeric)
// leaves a zero mask, so every address is within such a block. Pieces after
// a second slash are ignored. Texts that are not IPv4 are refused: the
// comparison is defined on 32-bit words only.
CZyError CZyIPAddr::CheckIfIpv4AddressIsWithinCidrBlock(const std::string& address, const std::string& block,
                                                        bool& within)
{
    static const char kFunction[] = "CZyIPAddr::CheckIfIpv4AddressIsWithinCidrBlock";
    std::vector<std::string> pieces;
    FXString::Split(block, "/", pieces, 0);
    if (pieces.size() < 2)
        return FXErrorUtil::ErrorWin32(ZY_LOC(kFunction), zy::err::kInvalidParameter, "Invalid CIDR block: [%s].",
                                       block.c_str());

    CZyIPAddr mask;
    CZyIPAddr network;
    CZyIPAddr candidate;

    CZyError err = mask.SetSubnetMaskFromCIDRPrefix(std::atoi(pieces[1].c_str()));
    if (err.IsError())
        return err.Push(ZY_LOC(kFunction));

    err = network.SetAddressString(pieces[0].c_str());
    if (err.IsError())
        return err.Push(ZY_LOC(kFunction));
    if (network.GetAddressFamily() != IP_FAMILY_IPV4)
        return FXErrorUtil::ErrorWin32(ZY_LOC(kFunction), zy::err::kInvalidParameter, "Invalid CIDR block: [%s].",
                                       block.c_str());

    err = candidate.SetAddressString(address.c_str());
    if (err.IsError())
        return err.Push(ZY_LOC(kFunction));
    if (candidate.GetAddressFamily() != IP_FAMILY_IPV4)
        return FXErrorUtil::ErrorWin32(ZY_LOC(kFunction), zy::err::kInvalidParameter, "Invalid IPv4 address: [%s].",
                                       address.c_str());

    // Words as stored (network byte order on every side): no conversion.
    uint32_t m = mask.m_addr.family == IP_FAMILY_IPV4 ? StoredIPv4Word(mask.m_addr) : 0;
    within = (StoredIPv4Word(network.m_addr) & m) == (StoredIPv4Word(candidate.m_addr) & m);
    return CZyError::Success();
}

// ---- stack probes --------------------------------------------------------

// A family the machine lacks answers false with success; any other bind
// failure is an error. An address of no family has no stack either: it is
// answered here, since the systems disagree on how socket() refuses it
// (Linux: family not supported, Windows: invalid argument).
CZyError CZyIPAddr::IsAddrBindable(const CZyIPAddr& address, bool& bindable)
{
    bindable = false;
    IP_FAMILY family = address.GetAddressFamily();
    if (family != IP_FAMILY_IPV4 && family != IP_FAMILY_IPV6 && family != IP_FAMILY_UNIX)
        return CZyError::Success();
    CZySocket socket;
    CZyError err = socket.Bind(address);
    socket.Close();
    if (!err.IsError())
    {
        // Binding a Unix-domain path made the socket file; left behind, it
        // would make the caller's own bind of the same path fail as in use.
        std::string path = address.GetUnixSockAddr();
        if (!path.empty())
            std::remove(path.c_str());
        bindable = true;
        return CZyError::Success();
    }
    int code = err.GetErrorCode();
    if (code == zy::err::kAfNotSupported || code == zy::err::kErrnoNoFamily)
        return CZyError::Success();
    return err.Push(ZY_LOC("CZyIPAddr::IsAddrBindable"));
}

namespace
{
CZyError ProbeLoopback(const char* text, bool& present, const char* function)
{
    present = false;
    CZyIPAddr address;
    CZyError err = address.SetAddressString(text);
    if (err.IsError())
        return err.Push(ZY_LOC(function));
    err = CZyIPAddr::IsAddrBindable(address, present);
    if (err.IsError())
        return err.Push(ZY_LOC(function));
    return CZyError::Success();
}
}  // namespace

CZyError CZyIPAddr::IsIPv4StackPresent(bool& present)
{
    return ProbeLoopback("127.0.0.1", present, "CZyIPAddr::IsIPv4StackPresent");
}

CZyError CZyIPAddr::IsIPv6StackPresent(bool& present)
{
    return ProbeLoopback("::1", present, "CZyIPAddr::IsIPv6StackPresent");
}

CZyError CZyIPAddr::IsUnixStackPresent(bool& present)
{
    present = ZYNET_AreUnixSocketsSupported() != 0;
    return CZyError::Success();
}
