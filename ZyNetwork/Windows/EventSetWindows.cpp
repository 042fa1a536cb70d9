// Kernel event sets on Windows: none. The selector keeps its list wait
// (select() through ZYNET_select), so every call reports that no set is
// available.
#include "ZyNetwork/Internal/OsEventSet.h"

namespace zy::os
{
EventSet* EventSetCreate()
{
    return nullptr;
}

void EventSetDestroy(EventSet*)
{
}

int EventSetAdd(EventSet*, ZYNET_SOCKET, unsigned)
{
    return EVENTSET_FAILED;
}

void EventSetRemove(EventSet*, ZYNET_SOCKET, unsigned)
{
}

int EventSetCheck(EventSet*, ZYNET_SOCKET)
{
    return EVENTSET_FAILED;
}

int EventSetWait(EventSet*, int, ZYNET_fd_set*, ZYNET_fd_set*, ZYNET_fd_set*, const uint32_t[3], int* count)
{
    if (count != nullptr)
        *count = 0;
    return EVENTSET_FAILED;
}
}  // namespace zy::os
