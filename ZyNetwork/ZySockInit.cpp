// CZySockInit: starts the platform socket library once per guard object and
// stops it again when the guard is cleaned up or destroyed.
#include "ZyNetwork/ZySockInit.h"

#include "ZyNetwork/Internal/OsApi.h"

static const char kZyFile[] = "ZyNetwork/ZySockInit";

CZyError CZySockInit::Init()
{
    if (m_started)
        return CZyError::Success();
    int code = zy::os::Startup();
    if (code != 0)
    {
        // The start-up call reports its failure only through its result (no
        // earlier last error may be mistaken for it), so store that result
        // as the thread's last socket error and raise it.
        zy::os::SetLastError(code);
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZySockInit::Init"), static_cast<uint32_t>(code));
    }
    m_started = true;
    return CZyError::Success();
}

CZySockInit::CZySockInit(const CZySockInit& other) : m_started(false)
{
    if (other.m_started)
        (void)Init();  // a failed start leaves the copy unstarted, with nothing to clean up
}

CZySockInit& CZySockInit::operator=(const CZySockInit& other)
{
    if (other.m_started && !m_started)
        (void)Init();
    else if (!other.m_started)
        CleanUp();
    return *this;
}

void CZySockInit::CleanUp()
{
    if (!m_started)
        return;
    m_started = false;
    zy::os::Cleanup();
}
