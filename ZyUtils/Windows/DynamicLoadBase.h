// Run-time loading of optional system modules: a module loaded once by name
// (CDynamicLoadBase) and one resolved entry point per function
// (CLoadedFunction). Both are thin layers over CZyLibrary, the library's one
// module loader, that give their own error texts and locations. Windows
// only; a header shared by the libraries that load optional system
// interfaces.
#pragma once

#include <windows.h>

#include <string>

#include "ZyUtils/ZyError.h"
#include "ZyUtils/ZyLibrary.h"

// One module, loaded at most once and never unloaded: the functions resolved
// from it may be called until the process ends.
class CDynamicLoadBase
{
public:
    CDynamicLoadBase() : m_module(nullptr), m_loadAttempted(false), m_library(false) {}
    virtual ~CDynamicLoadBase() {}
    CDynamicLoadBase(const CDynamicLoadBase&) = delete;
    CDynamicLoadBase& operator=(const CDynamicLoadBase&) = delete;

    // Loads `moduleName` (UTF-8) unless a module is loaded already.
    CZyError Load(const char* moduleName)
    {
        if (m_module != nullptr)
            return CZyError::Success();
        const std::string name = moduleName ? moduleName : "";
        CZyError error = m_library.Load(name.c_str());
        if (error.IsError())
            return FXErrorUtil::ErrorWin32(
                FXCodeLocation("ZyUtils/Windows/DynamicLoadBase", "CDynamicLoadBase::Load", __LINE__),
                static_cast<uint32_t>(error.GetErrorCode()), "Failed to load, Module=[%s]", name.c_str());
        m_module = static_cast<HMODULE>(m_library.Handle());
        return CZyError::Success();
    }

    HMODULE Module() const { return m_module; }
    bool LoadAttempted() const { return m_loadAttempted; }
    const CZyLibrary& Library() const { return m_library; }

protected:
    HMODULE m_module;
    bool m_loadAttempted;  // set before the first load attempt

private:
    CZyLibrary m_library;  // constructed not to unload: resolved functions stay callable
};

// One entry point of a loaded module, of type `Function` (a function pointer).
// `location` is the qualified name that errors of its resolution give, in
// the form "CLoadedFunction<int (__stdcall*)(void *)>::Load" (static text).
template <typename Function>
class CLoadedFunction
{
public:
    explicit CLoadedFunction(const char* location = "CLoadedFunction::Load")
        : m_function(nullptr), m_resolved(false), m_location(location)
    {
    }

    // Resolves `name` in the loader's module; the outcome is kept in Status().
    CZyError Load(const CDynamicLoadBase& loader, const char* name)
    {
        m_resolved = true;
        CZyError error = loader.Library().GetFunction(name, m_function);
        if (error.IsError())
        {
            m_status = FXErrorUtil::ErrorWin32(FXCodeLocation("ZyUtils/Windows/DynamicLoadBase", m_location, __LINE__),
                                               static_cast<uint32_t>(error.GetErrorCode()),
                                               "Failed to get address, Module=[0x%p], FunctionName=[%s]",
                                               static_cast<void*>(loader.Module()), name ? name : "");
            return m_status;
        }
        m_status = CZyError::Success();
        return m_status;
    }

    // Null when the function could not be resolved (or was never asked for).
    Function Get() const { return m_function; }
    bool Resolved() const { return m_resolved; }
    const CZyError& Status() const { return m_status; }

private:
    Function m_function;
    bool m_resolved;  // a resolution was attempted
    const char* m_location;
    CZyError m_status;
};
