// Opening text files for reading the same way on every platform.
#pragma once

#include <cstdio>

#include "ZyUtils/ZyExport.h"

// Opens `path` for reading in text mode ("rt"), never inherited by child
// processes. On failure returns null and stores the system's last error in
// `lastError` as Windows numbers it: GetLastError() on Windows, the errno
// turned into that code elsewhere (2 for a missing file, 3 for a missing
// directory on the way, 5 for no access or a directory).
ZYNET_API FILE* ZyOpenTextFileForReading(const char* path, int* lastError);
