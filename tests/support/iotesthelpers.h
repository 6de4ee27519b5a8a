// Helpers of the IO layer and storage tests: creating layers, holding a recording storage, and
// calling the list and read operations with their out values checked and freed.
#pragma once

#include "recordingstorage.h"
#include "XWQComBSTR.h"
#include "xcomobject.h"
#include "xsessiondatamng_h.h"

#include <string>
#include <utility>
#include <vector>

// One reference to a recording storage, released at the end of the scope.
class StorageRef
{
public:
    explicit StorageRef(RecordingStorage::Pose pose = RecordingStorage::Pose::Plain)
        : m_storage(RecordingStorage::Create(pose))
    {
    }
    ~StorageRef() { m_storage->Storage()->Release(); }
    StorageRef(const StorageRef&) = delete;
    StorageRef& operator=(const StorageRef&) = delete;

    RecordingStorage* operator->() const { return m_storage; }
    IWQ_SessionDataStorage* Get() const { return m_storage->Storage(); }

private:
    RecordingStorage* m_storage;
};

// A new object of class T, as its interface I.
template <class T, class I>
XComPtr<I> NewObject()
{
    XComPtr<I> object;
    XComObject<T>::Create(__uuidof(I), reinterpret_cast<void**>(object.ReleaseAndGetAddressOf()));
    return object;
}

// A new IO layer of class T, bound to storage when one is given.
template <class T>
XComPtr<IWQ_SessionDataIO> NewIO(IWQ_SessionDataStorage* storage = nullptr)
{
    XComPtr<IWQ_SessionDataIO> io;
    XComObject<T>::Create(IID_IWQ_SessionDataIO, reinterpret_cast<void**>(io.ReleaseAndGetAddressOf()));
    if (io && storage)
        io->SetStorage(storage);
    return io;
}

// WriteData with the texts as BSTRs.
HRESULT Write(IWQ_SessionDataIO* io, const wchar_t* key, const wchar_t* name, const wchar_t* value);
// GetAllData; frees what comes back.
HRESULT ReadAll(IWQ_SessionDataIO* io, const wchar_t* root);

struct ReadResult
{
    HRESULT hr = E_UNEXPECTED;
    bool written = false;  // the out BSTR was set
    std::wstring value;
};
// GetData with the out BSTR preset to a marker (to see whether it is written); frees the answer.
ReadResult Read(IWQ_SessionDataIO* io, const wchar_t* key, const wchar_t* name);

struct ListResult
{
    HRESULT hr = E_UNEXPECTED;
    ULONG count = 0;
    bool listWritten = false;  // the out array was set (else it still holds the marker)
    // name=value per record ("<null>" for a null string).
    std::vector<std::string> records;
};
// GetStringList with the out values preset to markers; frees what comes back.
ListResult List(IWQ_SessionDataIO* io, const wchar_t* key);

// WriteStringList input: records that own their strings.
class ValueRecords
{
public:
    ValueRecords(std::initializer_list<std::pair<const wchar_t*, const wchar_t*>> pairs);
    ULONG Count() const { return static_cast<ULONG>(m_records.size()); }
    tagSESSIONDATAVALUE* Data() { return m_records.data(); }

private:
    std::vector<XWQComBSTR> m_strings;
    std::vector<tagSESSIONDATAVALUE> m_records;
};

// GetSubKeys, its names in order; hr gets the result.
std::vector<std::wstring> SubKeysOf(IWQ_SessionDataIO* io, const wchar_t* key, ULONG recursive, HRESULT* hr = nullptr);
// GetAllData, as "key|name=value" per pair in order; hr gets the result.
std::vector<std::wstring> AllDataOf(IWQ_SessionDataIO* io, const wchar_t* key, HRESULT* hr = nullptr);

// "name=value" of a record, as the recording storage writes it.
std::string RecordText(const tagSESSIONDATAVALUE& record);
