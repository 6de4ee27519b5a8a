// The process-wide core of the session data manager: binds each data category to an IO object
// and routes every call to the IO object bound to the category that the call names.
#pragma once

#include "xcomobject.h"
#include "xsessiondatamng_h.h"
#include "XThreadBasedCritSect.h"

#include <map>

class XKeyWalk;

class XSessionDataMngImpl
{
public:
    // The one core of the process, created on first use; null only if it could not be allocated.
    static XSessionDataMngImpl* GetInstance();
    // Replaces how the core is allocated (tests use it to make allocation fail). Null restores
    // the default.
    using Factory = XSessionDataMngImpl* (*)();
    static void SetFactory(Factory factory) noexcept;

    XSessionDataMngImpl();
    ~XSessionDataMngImpl();
    XSessionDataMngImpl(const XSessionDataMngImpl&) = delete;
    XSessionDataMngImpl& operator=(const XSessionDataMngImpl&) = delete;

    HRESULT SetStorage(IWQ_SessionDataStorage* storage, LONG dataType, LONG cacheStorage);
    HRESULT SetStorageIO(IWQ_SessionDataIO* io, LONG dataType);
    HRESULT GetSubKeys(BSTR keyName, ULONG recursive, ULONG* count, BSTR** subKeys, LONG dataType);
    HRESULT GetObjectSubKeys(IUnknown* object, BSTR keyName, ULONG recursive, ULONG* count, BSTR** subKeys,
                             LONG dataType);
    HRESULT SaveData(LONG dataType, BSTR keyName, BSTR valueName);
    HRESULT TransferDataFromTo(LONG dataTypeFrom, LONG dataTypeTo, BSTR keyNameFrom, BSTR keyNameTo);
    HRESULT GetData(BSTR keyName, BSTR valueName, VARTYPE varType, VARIANT* value, LONG dataType);
    HRESULT GetDataEncrypt(BSTR keyName, BSTR valueName, VARTYPE varType, VARIANT* value, LONG dataType);
    // value is the caller's copy; it is converted to text in place.
    HRESULT WriteData(BSTR keyName, BSTR valueName, VARIANT& value, LONG dataType);
    HRESULT GetStringList(BSTR keyName, ULONG* count, tagSESSIONDATAVALUE** list, LONG dataType);
    HRESULT WriteStringList(BSTR keyName, ULONG count, tagSESSIONDATAVALUE* list, LONG dataType);
    HRESULT GetObjectData(IUnknown* object, BSTR keyName, BSTR valueName, VARTYPE varType, VARIANT* value,
                          LONG dataType);
    HRESULT WriteObjectData(IUnknown* object, BSTR keyName, BSTR valueName, VARIANT& value, LONG dataType);
    HRESULT GetObjectStringList(IUnknown* object, BSTR keyName, ULONG* count, tagSESSIONDATAVALUE** list,
                                LONG dataType);
    HRESULT WriteObjectStringList(IUnknown* object, BSTR keyName, ULONG count, tagSESSIONDATAVALUE* list,
                                  LONG dataType);
    HRESULT IsInit(LONG dataType);
    HRESULT DeleteObjectKey(IUnknown* object, BSTR keyName, LONG dataType);
    HRESULT DeleteKey(BSTR keyName, LONG dataType);
    HRESULT FlushCache(LONG dataType);
    HRESULT FlushAsyncStorage(LONG dataType);
    HRESULT GetLastErrorAsyncExecution(LONG dataType, HRESULT* asyncResult);
    HRESULT UploadCache(BSTR keyName, LONG dataType);
    HRESULT GetStorageType(LONG dataType, SDM_STORAGE_TYPE* storageType);
    HRESULT SetInvalid();
    HRESULT Validate();
    HRESULT Terminate();

private:
    using IOPtr = XComPtr<IWQ_SessionDataIO>;
    using IOExPtr = XComPtr<IWQ_SessionDataIOEx>;

    // Lookups of the binding table. Callers of Find hold the core lock; FindUnlocked may run
    // concurrently with rebinding (it takes the table guard just for the lookup and AddRef).
    IOPtr Find(LONG dataType) const;
    IOPtr FindUnlocked(LONG dataType) const;
    static IOExPtr AsEx(const IOPtr& io);
    // Stores io under dataType (creating the entry) and returns the IO object it replaced.
    IOPtr Exchange(LONG dataType, IOPtr io);
    void ReleaseAll();
    HRESULT ReadText(BSTR keyName, BSTR valueName, LONG dataType, BSTR* text);
    // TransferDataFromTo's recursion; walk holds the keys it is in.
    HRESULT TransferKey(LONG dataTypeFrom, LONG dataTypeTo, BSTR keyNameFrom, BSTR keyNameTo, XKeyWalk& walk);
    static void LogWalkTooDeep(BSTR keyName);

    std::map<LONG, IOPtr> m_bindings;
    mutable XThreadBasedCritSect m_lock;
    volatile LONG m_invalid = 0;
    // Guards the table's structure for the unlocked readers; writers also hold m_lock.
    mutable SRWLOCK m_tableGuard;
};
