// CZySockInit: the guard that starts and stops the platform socket library.
#pragma once

#include "ZyUtils/ZyError.h"

class ZYNET_API CZySockInit
{
public:
    CZySockInit() : m_started(false) {}
    ~CZySockInit() { CleanUp(); }
    CZySockInit& operator=(const CZySockInit& other) = default;
    CZySockInit(const CZySockInit& other) = default;

    CZyError Init();
    void CleanUp();

private:
    bool m_started;
};
