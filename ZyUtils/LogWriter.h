// The process-wide log writer. The library only writes through it; a caller
// that wants the library's diagnostics installs a writer in g_ptrLogWriter.
#pragma once

#include <boost/shared_ptr.hpp>

#include "ZyUtils/ZyExport.h"

// What a log writer provides: a level, line output and a flush.
class ZYNET_API CLogWriterInterface
{
public:
    virtual ~CLogWriterInterface();
    // The writer's current level; notices of level N are written only when
    // the level is at least N. Level -1 lines are always written.
    virtual int GetLogLevel() const = 0;
    // Sets the level GetLogLevel returns.
    virtual void SetLogLevel(int level) = 0;
    // Writes out whatever the writer has buffered.
    virtual void Flush() = 0;
    // One line: level, qualified function name, line, three reserved
    // arguments (the library passes 0), printf-style format and arguments.
    virtual void Write(int level, const char* function, int line, int reserved1, int reserved2, int reserved3,
                       const char* format, ...) ZY_PRINTF_LIKE(8, 9) = 0;
};

extern ZYNET_API boost::shared_ptr<CLogWriterInterface> g_ptrLogWriter;

// Writes one line when a writer is installed.
#define ZY_LOG(level, function, ...)                                                                    \
    do                                                                                                  \
    {                                                                                                   \
        boost::shared_ptr<CLogWriterInterface> zyLogWriter_ = g_ptrLogWriter;                           \
        if (zyLogWriter_)                                                                               \
            zyLogWriter_->Write((level), (function), __LINE__, 0, 0, 0, __VA_ARGS__);                   \
    } while (0)

// The current log level, or -2 when no writer is installed.
ZYNET_API int ZyLogLevel();
