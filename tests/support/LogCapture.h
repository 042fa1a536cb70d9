// A log writer that keeps every line while it is installed.
#pragma once

#include <stdarg.h>

#include <algorithm>
#include <string>
#include <vector>

#include "ZyUtils/LogWriter.h"
#include "ZyUtils/ZyString.h"

namespace zytest
{
// Installed from construction to destruction, then the previous writer is
// back. Lines are kept as "level|text", their functions beside them.
struct LogCapture : CLogWriterInterface
{
    explicit LogCapture(int startLevel = 2) : level(startLevel)
    {
        g_ptrLogWriter.reset(this, [](CLogWriterInterface*) {});
    }
    ~LogCapture() override { g_ptrLogWriter = previous; }
    int GetLogLevel() const override { return level; }
    void SetLogLevel(int value) override { level = value; }
    void Flush() override {}
    void Write(int lineLevel, const char* function, int, int, int, int, const char* format, ...) override
    {
        va_list args;
        va_start(args, format);
        lines.push_back(std::to_string(lineLevel) + "|" + FXString::FormatArgList(format, args));
        va_end(args);
        functions.push_back(function ? function : "");
    }
    bool Has(const std::string& line) const { return std::find(lines.begin(), lines.end(), line) != lines.end(); }

    int level;
    std::vector<std::string> lines, functions;
    boost::shared_ptr<CLogWriterInterface> previous = g_ptrLogWriter;
};
}  // namespace zytest
