// The adapter table at the OS boundary: the platform's list of network
// adapters with their state, hardware address and unicast addresses, read
// in two calls (ask for the space, then fill it) the way IP Helper's
// GetAdaptersAddresses works. The portable interface lists
// (ZyNetwork/ZyIFList.cpp) run that protocol, its log texts and its codes;
// the platform halves only make the calls and turn each adapter into an
// AdapterInfo record.
// Internal: not installed, not exported.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "ZyNetwork/ZySockAddr.h"

namespace zy::os
{
// Results of the two table calls, IP Helper's numbers on every platform.
enum AdapterTableResult : uint32_t
{
    ADAPTERS_OK = 0,
    ADAPTERS_NO_DATA = 232,          // ERROR_NO_DATA: no adapter has an address of the family
    ADAPTERS_BUFFER_OVERFLOW = 111,  // ERROR_BUFFER_OVERFLOW: the size needed has been stored
    ADAPTERS_NO_MEMORY = 8           // ERROR_NOT_ENOUGH_MEMORY
};

// Interface type and operational status in IP Helper's numbering
// (IF_TYPE_*, IF_OPER_STATUS), whatever the platform.
enum AdapterType : uint32_t
{
    ADAPTER_TYPE_OTHER = 1,
    ADAPTER_TYPE_ETHERNET = 6,
    ADAPTER_TYPE_SOFTWARE_LOOPBACK = 24
};
enum AdapterOperStatus : uint32_t
{
    ADAPTER_OPER_UP = 1,
    ADAPTER_OPER_DOWN = 2
};

// One unicast address of an adapter. `address` is the platform's socket
// address copied into a zeroed record; its family field is the portable
// family for IPv4 and IPv6 and the platform's raw number for anything else.
struct AdapterUnicast
{
    ZYNET_SockAddr address;
    unsigned int prefixLength;  // on-link prefix length in bits, as reported
};

struct AdapterInfo
{
    std::string name;               // the adapter's name as the platform gives it
    uint32_t type = ADAPTER_TYPE_OTHER;
    uint32_t operStatus = ADAPTER_OPER_DOWN;
    std::vector<uint8_t> physicalAddress;  // empty when the adapter has none
    std::vector<AdapterUnicast> unicast;   // in the platform's order
};

// One read of the adapter table. A table object is used once: QuerySize,
// Allocate, Fill, then Adapters.
class AdapterTable
{
public:
    virtual ~AdapterTable();

    // First call: no buffer and a size of 0. Returns ADAPTERS_BUFFER_OVERFLOW
    // with the size needed in `bytes`, ADAPTERS_NO_DATA, or a failure code.
    virtual uint32_t QuerySize(int family, uint32_t* bytes) = 0;
    // Reserves a zeroed buffer of `bytes`; false when memory runs out.
    virtual bool Allocate(uint32_t bytes) = 0;
    // Second call into the buffer. Returns ADAPTERS_OK or a failure code.
    virtual uint32_t Fill(int family) = 0;
    // Releases the buffer (the destructor does it too). Adapters() stays.
    virtual void Release() = 0;
    // The adapters read by Fill, in table order.
    virtual const std::vector<AdapterInfo>& Adapters() const = 0;
    // The platform call that failed last, for error texts ("" when none or
    // when the code alone says it, as on Windows).
    virtual std::string FailedCall() const { return std::string(); }
};

// The platform's adapter table (getifaddrs on POSIX, GetAdaptersAddresses
// on Windows).
std::unique_ptr<AdapterTable> NewAdapterTable();
}  // namespace zy::os
