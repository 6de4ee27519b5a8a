#include "xautodispatch.h"

#include <map>
#include <mutex>
#include <string>

namespace
{
struct Library
{
    std::mutex lock;
    ITypeLib* library = nullptr;
    bool tried = false;
    std::map<std::wstring, ITypeInfo*> infos;  // by the interface's GUID text; kept for the process
};

Library& TheLibrary()
{
    static Library library;
    return library;
}

// The path of this DLL, whose resources carry the type library.
std::wstring OwnPath()
{
    HMODULE self = nullptr;
    ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                         reinterpret_cast<LPCWSTR>(&XAutoTypeInfo), &self);
    wchar_t path[MAX_PATH] = {};
    ::GetModuleFileNameW(self, path, MAX_PATH);
    return path;
}
} // namespace

ITypeInfo* XAutoTypeInfo(REFIID iid)
{
    Library& library = TheLibrary();
    std::lock_guard<std::mutex> guard(library.lock);
    if (!library.tried)
    {
        library.tried = true;
        ::LoadTypeLibEx(OwnPath().c_str(), REGKIND_NONE, &library.library);
    }
    if (!library.library)
        return nullptr;
    wchar_t key[40] = {};
    ::StringFromGUID2(iid, key, 40);
    ITypeInfo*& info = library.infos[key];
    if (!info)
        library.library->GetTypeInfoOfGuid(iid, &info);
    return info;
}
