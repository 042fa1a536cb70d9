// Includes every public header of the library that both platforms build
// (the WinINet and WinHTTP clients, ZyHTTP.h and ZyHTTP2.h, are Windows-only
// and included on their own).
#pragma once

#include "ZyNetwork/QosWaveApi.h"
#include "ZyNetwork/CurlWrapper.h"
#include "ZyNetwork/RkCURLError.h"
#include "ZyNetwork/RkFTPReq.h"
#include "ZyNetwork/RkHTTPReq.h"
#include "ZyNetwork/RkProtocolReq.h"
#include "ZyNetwork/RkSFTPReq.h"
#include "ZyNetwork/ZyFdset.h"
#include "ZyNetwork/ZyIPAddr.h"
#include "ZyNetwork/ZyIPAddrBlacklist.h"
#include "ZyNetwork/ZyPing.h"
#include "ZyNetwork/ZySockAddr.h"
#include "ZyNetwork/ZySockInit.h"
#include "ZyNetwork/ZySocket.h"
#include "ZyNetwork/ZySocketSelector.h"
#include "ZyNetwork/ZySocketTypes.h"
#include "ZyUtils/LogWriter.h"
#include "ZyUtils/ZyError.h"
#include "ZyUtils/ZyString.h"
#include "ZyUtils/ZyTime.h"
