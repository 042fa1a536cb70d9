// The adapter table on POSIX, read with getifaddrs(). Interfaces play the
// role of adapters: an interface's link entry (AF_PACKET) gives its type and
// hardware address, its IPv4 and IPv6 entries give the unicast addresses
// with their prefix lengths, and its flags give the state (up and running
// is "up"). The size call and the fill call each take a fresh snapshot.
#include "ZyNetwork/Internal/OsAdapters.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <new>

#include "ZyNetwork/Internal/OsApi.h"

namespace zy::os
{
namespace
{
// Leading one bits of a netmask of `length` bytes.
unsigned int PrefixLength(const uint8_t* mask, size_t length)
{
    unsigned int bits = 0;
    for (size_t i = 0; i < length; ++i)
    {
        uint8_t byte = mask[i];
        for (int b = 7; b >= 0; --b)
        {
            if (!(byte & (1u << b)))
                return bits;
            ++bits;
        }
    }
    return bits;
}

// The interface an entry belongs to: IPv4 entries of labelled addresses
// carry the label ("eth0:1"); interface names never contain ':'.
std::string BaseName(const char* name)
{
    std::string text = name ? name : "";
    size_t colon = text.find(':');
    return colon == std::string::npos ? text : text.substr(0, colon);
}

bool WantsFamily(int portableFamily, int osFamily)
{
    if (osFamily != AF_INET && osFamily != AF_INET6)
        return false;
    return portableFamily == ZYNET_AF_UNSPEC || (portableFamily == ZYNET_AF_INET && osFamily == AF_INET) ||
           (portableFamily == ZYNET_AF_INET6 && osFamily == AF_INET6);
}

class PosixAdapterTable : public AdapterTable
{
public:
    uint32_t QuerySize(int family, uint32_t* bytes) override
    {
        *bytes = 0;
        std::vector<AdapterInfo> snapshot;
        uint32_t rc = Read(family, snapshot);
        if (rc != ADAPTERS_OK)
            return rc;
        if (snapshot.empty())
            return ADAPTERS_NO_DATA;
        size_t total = snapshot.size() * sizeof(AdapterInfo);
        for (const AdapterInfo& info : snapshot)
            total += info.unicast.size() * sizeof(AdapterUnicast) + info.name.size() + info.physicalAddress.size();
        *bytes = static_cast<uint32_t>(total);
        return ADAPTERS_BUFFER_OVERFLOW;
    }

    bool Allocate(uint32_t bytes) override
    {
        try
        {
            m_adapters.clear();
            m_adapters.reserve(bytes / sizeof(AdapterInfo) + 1);
        }
        catch (const std::bad_alloc&)
        {
            return false;
        }
        return true;
    }

    uint32_t Fill(int family) override
    {
        m_adapters.clear();
        return Read(family, m_adapters);
    }

    void Release() override {}

    const std::vector<AdapterInfo>& Adapters() const override { return m_adapters; }

    std::string FailedCall() const override { return m_failedCall; }

private:
    uint32_t Read(int family, std::vector<AdapterInfo>& out)
    {
        m_failedCall.clear();
        if (family != ZYNET_AF_UNSPEC && family != ZYNET_AF_INET && family != ZYNET_AF_INET6)
            return 87;  // what IP Helper answers for a family it does not list
        struct ifaddrs* list = nullptr;
        if (getifaddrs(&list) != 0)
        {
            int code = TranslateErrno(errno);
            m_failedCall = "getifaddrs";
            return code != 0 ? static_cast<uint32_t>(code) : ADAPTERS_NO_MEMORY;
        }
        std::map<std::string, size_t> index;
        std::vector<bool> hasFamily;
        try
        {
            for (struct ifaddrs* entry = list; entry; entry = entry->ifa_next)
            {
                std::string name = BaseName(entry->ifa_name);
                auto found = index.find(name);
                size_t slot;
                if (found == index.end())
                {
                    slot = out.size();
                    index.emplace(name, slot);
                    out.emplace_back();
                    hasFamily.push_back(false);
                    out[slot].name = name;
                }
                else
                    slot = found->second;
                AdapterInfo& info = out[slot];
                unsigned int flags = entry->ifa_flags;
                info.operStatus = ((flags & IFF_UP) && (flags & IFF_RUNNING)) ? ADAPTER_OPER_UP : ADAPTER_OPER_DOWN;
                if (flags & IFF_LOOPBACK)
                    info.type = ADAPTER_TYPE_SOFTWARE_LOOPBACK;
                if (!entry->ifa_addr)
                    continue;
                int osFamily = entry->ifa_addr->sa_family;
                if (osFamily == AF_PACKET)
                {
                    const struct sockaddr_ll* link = reinterpret_cast<const struct sockaddr_ll*>(entry->ifa_addr);
                    if (info.type != ADAPTER_TYPE_SOFTWARE_LOOPBACK)
                        info.type = link->sll_hatype == ARPHRD_ETHER ? ADAPTER_TYPE_ETHERNET : ADAPTER_TYPE_OTHER;
                    // The loopback's all-zero link address is no hardware
                    // address; IP Helper reports none for it either.
                    size_t length = link->sll_halen;
                    if (length > sizeof(link->sll_addr))
                        length = sizeof(link->sll_addr);
                    if (link->sll_hatype != ARPHRD_LOOPBACK && !(flags & IFF_LOOPBACK))
                        info.physicalAddress.assign(link->sll_addr, link->sll_addr + length);
                    continue;
                }
                if (!WantsFamily(family, osFamily))
                    continue;
                AdapterUnicast unicast;
                std::memset(&unicast, 0, sizeof(unicast));
                size_t length = osFamily == AF_INET ? sizeof(struct sockaddr_in) : sizeof(struct sockaddr_in6);
                std::memcpy(&unicast.address, entry->ifa_addr, length);
                unicast.address.family = static_cast<uint16_t>(FamilyFromOs(osFamily));
                if (entry->ifa_netmask && entry->ifa_netmask->sa_family == osFamily)
                {
                    if (osFamily == AF_INET)
                    {
                        const struct sockaddr_in* mask =
                            reinterpret_cast<const struct sockaddr_in*>(entry->ifa_netmask);
                        unicast.prefixLength =
                            PrefixLength(reinterpret_cast<const uint8_t*>(&mask->sin_addr), sizeof(mask->sin_addr));
                    }
                    else
                    {
                        const struct sockaddr_in6* mask =
                            reinterpret_cast<const struct sockaddr_in6*>(entry->ifa_netmask);
                        unicast.prefixLength =
                            PrefixLength(reinterpret_cast<const uint8_t*>(&mask->sin6_addr), sizeof(mask->sin6_addr));
                    }
                }
                info.unicast.push_back(unicast);
                hasFamily[slot] = true;
            }
            // Listing one family leaves out the interfaces without an
            // address of that family, as IP Helper does for adapters
            // without that stack.
            if (family != ZYNET_AF_UNSPEC)
            {
                std::vector<AdapterInfo> kept;
                kept.reserve(out.size());
                for (size_t i = 0; i < out.size(); ++i)
                    if (hasFamily[i])
                        kept.push_back(std::move(out[i]));
                out.swap(kept);
            }
        }
        catch (const std::bad_alloc&)
        {
            freeifaddrs(list);
            out.clear();
            return ADAPTERS_NO_MEMORY;
        }
        freeifaddrs(list);
        return ADAPTERS_OK;
    }

    std::vector<AdapterInfo> m_adapters;
    std::string m_failedCall;
};
}  // namespace

std::unique_ptr<AdapterTable> NewAdapterTable()
{
    return std::unique_ptr<AdapterTable>(new PosixAdapterTable());
}
}  // namespace zy::os
