#include "ZyUtils/LogWriter.h"

CLogWriterInterface::~CLogWriterInterface() = default;

boost::shared_ptr<CLogWriterInterface> g_ptrLogWriter;

int ZyLogLevel()
{
    boost::shared_ptr<CLogWriterInterface> writer = g_ptrLogWriter;
    return writer ? writer->GetLogLevel() : -2;
}
