// CZySockInit: starts the platform socket library once per guard object and
// stops it again when the guard is cleaned up or destroyed.
#include "ZyNetwork/ZySockInit.h"

#include "ZyNetwork/OsApi.h"

static const char kZyFile[] = "ZyNetwork/ZySockInit";

CZyError CZySockInit::Init()
{
    if (m_started)
        return CZyError::Success();
    int code = zyos::Startup();
    if (code != 0)
    {
        int last = zyos::LastError();
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySockInit::Init"), last != 0 ? last : code);
    }
    m_started = true;
    return CZyError::Success();
}

void CZySockInit::CleanUp()
{
    if (!m_started)
        return;
    m_started = false;
    zyos::Cleanup();
}
