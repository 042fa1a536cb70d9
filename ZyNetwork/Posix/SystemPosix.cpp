// The POSIX half of the OS boundary: facts about the process and the
// system. The debugger test and break, and the Windows version read, which
// has no registry to read here.
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "ZyNetwork/Internal/OsApi.h"

namespace zy::os
{
// ---- debugging ---------------------------------------------------------------

bool IsDebuggerAttached()
{
    FILE* status = fopen("/proc/self/status", "re");
    if (status == nullptr)
        return false;
    char line[256];
    bool attached = false;
    while (fgets(line, sizeof(line), status) != nullptr)
    {
        if (strncmp(line, "TracerPid:", 10) == 0)
        {
            attached = strtol(line + 10, nullptr, 10) != 0;
            break;
        }
    }
    fclose(status);
    return attached;
}

void BreakIntoDebugger()
{
    raise(SIGTRAP);
}

// ---- Unix-domain support -------------------------------------------------

bool ReadWindowsVersion(unsigned long* /*major*/, unsigned long* /*build*/, unsigned long* /*revision*/)
{
    return false;  // no registry here; the caller probes with a socket
}
}  // namespace zy::os
