// Opening text files for reading the same way on every platform.
#pragma once

#include <cstdio>

#include "ZyUtils/ZyExport.h"

// Opens `path` for reading in text mode ("rt"), never inherited by child
// processes. On failure returns null and stores the system's last error in
// `lastError`: errno on POSIX (2 for a missing file), GetLastError() on
// Windows (2 for a missing file as well).
ZYNET_API FILE* ZyOpenTextFileForReading(const char* path, int* lastError);
