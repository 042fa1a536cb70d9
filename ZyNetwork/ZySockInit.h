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
    CZySockInit(const CZySockInit& other);
    CZySockInit& operator=(const CZySockInit& other);

    CZyError Init();
    void CleanUp();

private:
    bool m_started;
};
