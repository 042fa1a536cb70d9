// CZySockInit: the guard that starts and stops the platform socket library.
#pragma once

#include "ZyUtils/ZyError.h"

// Each started guard holds one start of the platform's socket library and
// gives it back once. A copy of a started guard takes a start of its own
// (the platform counts them), so that every copy cleans up exactly once;
// assignment leaves the target started exactly when the source is.
class ZYNET_API CZySockInit
{
public:
    CZySockInit() : m_started(false) {}
    ~CZySockInit() { CleanUp(); }
    // See the class comment: a copy or assignment starts or stops this guard to
    // match `other` (a failed start leaves it stopped, without an error).
    // @{
    CZySockInit(const CZySockInit& other);
    CZySockInit& operator=(const CZySockInit& other);
    // @}

    // Starts the socket library (WSAStartup on Windows; nothing to start on
    // Linux). A started guard succeeds at once. On failure the platform's code,
    // also stored as the thread's last socket error.
    CZyError Init();
    // Gives the start back, if this guard holds one (also done by the destructor).
    void CleanUp();

private:
    bool m_started;
};
