#include "ZyUtils/ZyTextFile.h"

#include "ZyUtils/Internal/OsUtils.h"

FILE* ZyOpenTextFileForReading(const char* path, int* lastError)
{
    uint32_t error = 0;
    FILE* file = static_cast<FILE*>(zy::util::os::OpenTextStream(path, &error));
    if (lastError)
        *lastError = file ? 0 : static_cast<int>(error);
    return file;
}
