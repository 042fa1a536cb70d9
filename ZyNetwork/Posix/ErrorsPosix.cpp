// The POSIX half of the OS boundary: errors and families. The thread's last
// socket error, and the one table that turns errno values and getaddrinfo's
// EAI_* codes into the portable (Winsock) numbers the rest of the library
// uses; an unmapped errno passes through unchanged.
#include <errno.h>
#include <netdb.h>

#include "ZyNetwork/Posix/PosixSupport.h"

namespace zy::os
{
namespace posix
{
__thread int t_lastError __attribute__((tls_model("initial-exec"))) = 0;
}  // namespace posix

namespace
{
// Winsock codes used below.
enum
{
    kNoMemory = 8,
    kEINTR = 10004,
    kEACCES = 10013,
    kEFAULT = 10014,
    kEINVAL = 10022,
    kEMFILE = 10024,
    kEWOULDBLOCK = 10035,
    kEINPROGRESS = 10036,
    kEALREADY = 10037,
    kENOTSOCK = 10038,
    kEDESTADDRREQ = 10039,
    kEMSGSIZE = 10040,
    kEPROTOTYPE = 10041,
    kENOPROTOOPT = 10042,
    kEPROTONOSUPPORT = 10043,
    kESOCKTNOSUPPORT = 10044,
    kEOPNOTSUPP = 10045,
    kEPFNOSUPPORT = 10046,
    kEAFNOSUPPORT = 10047,
    kEADDRINUSE = 10048,
    kEADDRNOTAVAIL = 10049,
    kENETDOWN = 10050,
    kENETUNREACH = 10051,
    kENETRESET = 10052,
    kECONNABORTED = 10053,
    kECONNRESET = 10054,
    kENOBUFS = 10055,
    kEISCONN = 10056,
    kENOTCONN = 10057,
    kESHUTDOWN = 10058,
    kETOOMANYREFS = 10059,
    kETIMEDOUT = 10060,
    kECONNREFUSED = 10061,
    kELOOP = 10062,
    kENAMETOOLONG = 10063,
    kEHOSTDOWN = 10064,
    kEHOSTUNREACH = 10065,
    kENOTEMPTY = 10066,
    kEUSERS = 10068,
    kEDQUOT = 10069,
    kESTALE = 10070,
    kEREMOTE = 10071,
    kTYPE_NOT_FOUND = 10109,
    kHOST_NOT_FOUND = 11001,
    kTRY_AGAIN = 11002,
    kNO_RECOVERY = 11003,
    kNO_DATA = 11004
};

}  // namespace

using posix::t_lastError;

int LastError()
{
    return t_lastError;
}

void SetLastError(int code)
{
    t_lastError = code;
}

int TranslateErrno(int osError)
{
    switch (osError)
    {
    case 0: return 0;
    case EINTR: return kEINTR;
    case EACCES:
    case EPERM: return kEACCES;
    case EFAULT: return kEFAULT;
    case EINVAL: return kEINVAL;
    case EMFILE:
    case ENFILE: return kEMFILE;
#if EWOULDBLOCK != EAGAIN
    case EWOULDBLOCK:
#endif
    case EAGAIN: return kEWOULDBLOCK;
    case EINPROGRESS: return kEINPROGRESS;
    case EALREADY: return kEALREADY;
    case EBADF:
    case ENOTSOCK: return kENOTSOCK;
    case EDESTADDRREQ: return kEDESTADDRREQ;
    case EMSGSIZE: return kEMSGSIZE;
    case EPROTOTYPE: return kEPROTOTYPE;
    case ENOPROTOOPT: return kENOPROTOOPT;
    case EPROTONOSUPPORT: return kEPROTONOSUPPORT;
    case ESOCKTNOSUPPORT: return kESOCKTNOSUPPORT;
#if EOPNOTSUPP != ENOTSUP
    case ENOTSUP:
#endif
    case EOPNOTSUPP: return kEOPNOTSUPP;
    case EPFNOSUPPORT: return kEPFNOSUPPORT;
    case EAFNOSUPPORT: return kEAFNOSUPPORT;
    case EADDRINUSE: return kEADDRINUSE;
    case EADDRNOTAVAIL: return kEADDRNOTAVAIL;
    case ENETDOWN: return kENETDOWN;
    case ENETUNREACH: return kENETUNREACH;
    case ENETRESET: return kENETRESET;
    case ECONNABORTED: return kECONNABORTED;
    case ECONNRESET: return kECONNRESET;
    case ENOBUFS: return kENOBUFS;
    case EISCONN: return kEISCONN;
    case ENOTCONN: return kENOTCONN;
    // Linux reports a send after shutdown, and a send to a peer that has
    // gone, as EPIPE; Winsock's nearest code is "socket shut down".
    case EPIPE:
    case ESHUTDOWN: return kESHUTDOWN;
    case ETOOMANYREFS: return kETOOMANYREFS;
    case ETIMEDOUT: return kETIMEDOUT;
    case ECONNREFUSED: return kECONNREFUSED;
    case ELOOP: return kELOOP;
    case ENAMETOOLONG: return kENAMETOOLONG;
    case EHOSTDOWN: return kEHOSTDOWN;
    case EHOSTUNREACH: return kEHOSTUNREACH;
    case ENOTEMPTY: return kENOTEMPTY;
    case EUSERS: return kEUSERS;
    case EDQUOT: return kEDQUOT;
    case ESTALE: return kESTALE;
    case EREMOTE: return kEREMOTE;
    case ENOMEM: return kNoMemory;
    default: return osError;
    }
}

int TranslateResolverError(int osCode)
{
    switch (osCode)
    {
    case 0: return 0;
    case EAI_NONAME: return kHOST_NOT_FOUND;
    case EAI_AGAIN: return kTRY_AGAIN;
    case EAI_FAIL: return kNO_RECOVERY;
#ifdef EAI_NODATA
    case EAI_NODATA: return kNO_DATA;
#endif
#ifdef EAI_ADDRFAMILY
    // The name exists but has no address of the family asked for: Winsock
    // says "valid name, no data record of the requested type".
    case EAI_ADDRFAMILY: return kNO_DATA;
#endif
    case EAI_FAMILY: return kEAFNOSUPPORT;
    case EAI_MEMORY: return kNoMemory;
    case EAI_SERVICE: return kTYPE_NOT_FOUND;
    case EAI_SOCKTYPE: return kESOCKTNOSUPPORT;
    case EAI_BADFLAGS: return kEINVAL;
    // The host buffer of getnameinfo was too small: Winsock reports a
    // buffer it cannot use as a fault.
    case EAI_OVERFLOW: return kEFAULT;
#ifdef EAI_INTR
    case EAI_INTR: return kEINTR;
#endif
    case EAI_SYSTEM: return TranslateErrno(errno);
    default: return osCode;
    }
}

int FamilyToOs(int portableFamily)
{
    return posix::OsFamily(portableFamily);
}

int FamilyFromOs(int osFamily)
{
    return posix::PortableFamily(osFamily);
}

}  // namespace zy::os
