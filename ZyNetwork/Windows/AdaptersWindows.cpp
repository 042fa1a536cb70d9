// The adapter table on Windows, read with IP Helper's GetAdaptersAddresses:
// the first call (no buffer, size 0) asks for the space, the second fills a
// zeroed buffer of that size. Results are IP Helper's own codes.
#include "ZyNetwork/Internal/OsAdapters.h"

#include <winsock2.h>
#include <ws2tcpip.h>
#include <iphlpapi.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace zy::os
{
namespace
{
class WindowsAdapterTable : public AdapterTable
{
public:
    ~WindowsAdapterTable() override { Release(); }

    uint32_t QuerySize(int family, uint32_t* bytes) override
    {
        ULONG size = 0;
        ULONG rc = GetAdaptersAddresses(static_cast<ULONG>(family), 0, nullptr, nullptr, &size);
        *bytes = size;
        return rc;
    }

    bool Allocate(uint32_t bytes) override
    {
        Release();
        m_buffer = static_cast<IP_ADAPTER_ADDRESSES*>(std::calloc(1, bytes ? bytes : 1));
        m_size = m_buffer ? bytes : 0;
        return m_buffer != nullptr;
    }

    uint32_t Fill(int family) override
    {
        m_adapters.clear();
        ULONG size = m_size;
        ULONG rc = GetAdaptersAddresses(static_cast<ULONG>(family), 0, nullptr, m_buffer, &size);
        if (rc != ERROR_SUCCESS)
            return rc;
        try
        {
            Walk();
        }
        catch (const std::bad_alloc&)
        {
            m_adapters.clear();
            return ERROR_NOT_ENOUGH_MEMORY;
        }
        return ERROR_SUCCESS;
    }

    void Release() override
    {
        std::free(m_buffer);
        m_buffer = nullptr;
        m_size = 0;
    }

    const std::vector<AdapterInfo>& Adapters() const override { return m_adapters; }

private:
    void Walk()
    {
        for (const IP_ADAPTER_ADDRESSES* adapter = m_buffer; adapter; adapter = adapter->Next)
        {
            AdapterInfo info;
            info.name = adapter->AdapterName ? adapter->AdapterName : "";
            info.type = adapter->IfType;
            info.operStatus = static_cast<uint32_t>(adapter->OperStatus);
            ULONG length = adapter->PhysicalAddressLength;
            if (length > MAX_ADAPTER_ADDRESS_LENGTH)
                length = MAX_ADAPTER_ADDRESS_LENGTH;
            info.physicalAddress.assign(adapter->PhysicalAddress, adapter->PhysicalAddress + length);
            for (const IP_ADAPTER_UNICAST_ADDRESS* address = adapter->FirstUnicastAddress; address;
                 address = address->Next)
            {
                AdapterUnicast unicast;
                std::memset(&unicast, 0, sizeof(unicast));
                // Windows' family numbers are the portable ones.
                const SOCKADDR* socketAddress = address->Address.lpSockaddr;
                int socketLength = address->Address.iSockaddrLength;
                if (socketAddress && socketLength > 0)
                {
                    size_t copy = static_cast<size_t>(socketLength);
                    if (copy > sizeof(unicast.address))
                        copy = sizeof(unicast.address);
                    std::memcpy(&unicast.address, socketAddress, copy);
                }
                unicast.prefixLength = address->OnLinkPrefixLength;
                info.unicast.push_back(unicast);
            }
            m_adapters.push_back(std::move(info));
        }
    }

    IP_ADAPTER_ADDRESSES* m_buffer = nullptr;
    ULONG m_size = 0;
    std::vector<AdapterInfo> m_adapters;
};
}  // namespace

std::unique_ptr<AdapterTable> NewAdapterTable()
{
    return std::unique_ptr<AdapterTable>(new WindowsAdapterTable());
}
}  // namespace zy::os
