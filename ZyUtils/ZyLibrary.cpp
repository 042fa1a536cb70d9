#include "ZyUtils/ZyLibrary.h"

#include "ZyUtils/Internal/ErrorCodes.h"
#include "ZyUtils/Internal/OsUtils.h"

namespace
{
const char* const kZyFile = "ZyUtils/ZyLibrary";
}

CZyLibrary::CZyLibrary(bool unloadOnDestruction) : m_module(nullptr), m_unloadOnDestruction(unloadOnDestruction) {}

CZyLibrary::~CZyLibrary()
{
    if (m_unloadOnDestruction)
        Unload();
}

void CZyLibrary::Unload()
{
    if (m_module)
        zy::util::os::UnloadModule(m_module);
    m_module = nullptr;
    m_path.clear();
}

CZyError CZyLibrary::Load(const char* path, bool exportSymbols)
{
    if (!path || !*path)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyLibrary::Load"), zy::err::kInvalidParameter, "Invalid module path");
    Unload();
    uint32_t error = 0;
    void* module = zy::util::os::LoadModule(path, exportSymbols, &error);
    if (!module)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyLibrary::Load"), error, "Failed to load library [%s]", path);
    m_module = module;
    m_path = path;
    return CZyError::Success();
}

CZyError CZyLibrary::GetAddress(const char* name, void*& address) const
{
    address = nullptr;
    if (!m_module)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyLibrary::GetAddress"), zy::err::kStateError, "No library loaded");
    if (!name || !*name)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyLibrary::GetAddress"), zy::err::kInvalidParameter, "Invalid symbol name");
    uint32_t error = 0;
    address = zy::util::os::ModuleSymbol(m_module, name, &error);
    if (!address)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyLibrary::GetAddress"), error, "Failed to get address of [%s] in [%s]",
                                       name, m_path.c_str());
    return CZyError::Success();
}

void CZyLibrary::KeepMappedUntilExit()
{
    if (m_module)
        zy::util::os::KeepModuleMapped(m_module, m_path.c_str());
}

bool CZyLibrary::ModuleDirectoryOf(const void* address, std::string& directory)
{
    return zy::util::os::ModuleDirectoryOf(address, directory);
}
