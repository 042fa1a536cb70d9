// Run-time loading of optional system modules: a module loaded once by name
// (CDynamicLoadBase) and one resolved entry point per function
// (CLoadedFunction). Windows only; a header shared by the libraries that
// load optional system interfaces.
#pragma once

#include <windows.h>

#include "ZyUtils/ZyError.h"
#include "ZyUtils/ZyString.h"

// One module, loaded at most once and never unloaded: the functions resolved
// from it may be called until the process ends.
class CDynamicLoadBase
{
public:
    CDynamicLoadBase() : m_module(nullptr), m_loadAttempted(false) {}
    virtual ~CDynamicLoadBase() {}
    CDynamicLoadBase(const CDynamicLoadBase&) = delete;
    CDynamicLoadBase& operator=(const CDynamicLoadBase&) = delete;

    // Loads `moduleName` (UTF-8) unless a module is loaded already.
    CZyError Load(const char* moduleName)
    {
        if (m_module != nullptr)
            return CZyError::Success();
        const std::string name = moduleName ? moduleName : "";
        HMODULE module = LoadLibraryW(FXString::ToWstring(name).c_str());
        if (module == nullptr)
        {
            const DWORD code = GetLastError();
            return FXErrorUtil::ErrorWin32(
                FXCodeLocation("ZyUtils/Windows/DynamicLoadBase", "CDynamicLoadBase::Load", __LINE__), code,
                "Failed to load, Module=[%s]", name.c_str());
        }
        m_module = module;
        return CZyError::Success();
    }

    HMODULE Module() const { return m_module; }
    bool LoadAttempted() const { return m_loadAttempted; }

protected:
    HMODULE m_module;
    bool m_loadAttempted;  // set before the first load attempt
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
        FARPROC address = GetProcAddress(loader.Module(), name);
        m_function = reinterpret_cast<Function>(reinterpret_cast<void (*)()>(address));
        if (address == nullptr)
        {
            const DWORD code = GetLastError();
            m_status = FXErrorUtil::ErrorWin32(FXCodeLocation("ZyUtils/Windows/DynamicLoadBase", m_location, __LINE__),
                                               code, "Failed to get address, Module=[0x%p], FunctionName=[%s]",
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
