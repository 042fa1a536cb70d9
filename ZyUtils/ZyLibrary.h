// Loadable modules (shared libraries, DLLs) of the utility layer.
#pragma once

#include <string>

#include "ZyUtils/ZyError.h"
#include "ZyUtils/ZyExport.h"

// One loaded module. Errors carry the system's codes as Windows numbers them
// on every platform: 126 when the file cannot be loaded, 127 when a symbol is
// missing. Not copyable: the module is unloaded once, by its owner.
class ZYNET_API CZyLibrary
{
public:
    // `unloadOnDestruction` false keeps the module loaded for the rest of the
    // process (for modules whose code may still run at exit).
    explicit CZyLibrary(bool unloadOnDestruction = true);
    ~CZyLibrary();
    CZyLibrary(const CZyLibrary&) = delete;
    CZyLibrary& operator=(const CZyLibrary&) = delete;

    // Loads `path` (a full path, or a bare name for the system's search order).
    // `exportSymbols` makes the module's symbols available to modules loaded
    // later (RTLD_GLOBAL on Linux; Windows has no such notion and ignores it).
    // Loading again unloads the earlier module first.
    CZyError Load(const char* path, bool exportSymbols = false);
    // The address of `name`, or null with an error.
    CZyError GetAddress(const char* name, void*& address) const;
    // The same for a function pointer type.
    template <typename Function>
    CZyError GetFunction(const char* name, Function& function) const
    {
        void* address = nullptr;
        CZyError error = GetAddress(name, address);
        function = reinterpret_cast<Function>(reinterpret_cast<void (*)()>(address));
        return error;
    }
    // True while a module is loaded.
    bool IsLoaded() const { return m_module != nullptr; }
    // The system's handle of the loaded module (HMODULE, dlopen handle), or null.
    void* Handle() const { return m_module; }
    // The path given to Load ("" when nothing is loaded).
    const std::string& Path() const { return m_path; }
    // Unloads the module, if any (also done by the destructor unless
    // `unloadOnDestruction` was false).
    void Unload();
    // Keeps the loaded module mapped until the process ends, even after
    // Unload: for modules whose own exit handlers or global state must
    // outlive their owner.
    void KeepMappedUntilExit();

    // The directory, with its trailing separator, of the module that holds
    // `address` (pass the address of a function of that module). False when
    // the system cannot tell.
    static bool ModuleDirectoryOf(const void* address, std::string& directory);

private:
    void* m_module;
    bool m_unloadOnDestruction;
    std::string m_path;
};
