// Includes every public header of the library.
#pragma once

#include "ZyNetwork/CurlWrapper.h"
#include "ZyNetwork/RkCURLError.h"
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
