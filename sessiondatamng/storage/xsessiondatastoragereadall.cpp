#include "xsessiondatastoragereadall.h"

#include "xcomtypes.h"
#include "xkeywalk.h"
#include "xsdmreporter.h"

#include <cstring>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace
{
// The key records collected so far. Owns their names and pair arrays until handed out.
class KeyRecords
{
public:
    KeyRecords() = default;
    KeyRecords(const KeyRecords&) = delete;
    KeyRecords& operator=(const KeyRecords&) = delete;
    ~KeyRecords()
    {
        for (tagKEY_SESSIONDATAVALUE& record : m_records)
        {
            ::SysFreeString(record.bstrKeyName);
            XFreeValueArray(record.pSessionDataValue, record.ulCount);
        }
    }

    bool Empty() const noexcept { return m_records.empty(); }

    // Takes over the name and the pairs (count 0 and no array when values holds none).
    void Add(XWQComBSTR&& name, XValueArray& values)
    {
        // Room first: once the record is entered nothing can throw and nothing is owned twice.
        m_records.reserve(m_records.size() + 1);
        tagKEY_SESSIONDATAVALUE record{};
        record.bstrKeyName = name.Detach();
        values.Release(&record.ulCount, &record.pSessionDataValue);
        if (!record.pSessionDataValue)
            record.ulCount = 0;
        m_records.push_back(record);
    }

    // Moves every record into a CoTaskMemAlloc array for the caller.
    void HandOut(ULONG* count, tagKEY_SESSIONDATAVALUE** records)
    {
        XKeyValueArray array = XNewCoTaskArray<XKeyValueArray>(static_cast<ULONG>(m_records.size()));
        std::memcpy(array.Items(), m_records.data(), m_records.size() * sizeof(tagKEY_SESSIONDATAVALUE));
        m_records.clear();  // the names and pair arrays are the array's now
        array.Release(count, records);
    }

private:
    std::vector<tagKEY_SESSIONDATAVALUE> m_records;
};

// A BSTR owned by an XWQComBSTR; an empty text gives an empty (non-null) string.
XWQComBSTR OwnedCopy(const XWQComBSTR& text)
{
    XWQComBSTR copy;
    copy.Attach(XNewBstr(text.c_str(), text.Length()));
    return copy;
}
} // namespace

HRESULT XReadAllStorageData(IWQ_SessionDataStorage* storage, const XSdmReporter& report, BSTR bstrRootKeyName,
                            ULONG* pulCount,
                            tagKEY_SESSIONDATAVALUE** ppKeySessionDataList) noexcept
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageEnv::ReadAllData");
    return report.Run(__LINE__, function, [&]() -> HRESULT {
        if (!pulCount || !ppKeySessionDataList)
            return report.CheckPointer(__LINE__, function, nullptr);
        *pulCount = 0;
        const HRESULT named = report.Names(__LINE__, function).Key(bstrRootKeyName).Result();
        if (FAILED(named))
            return named;

        KeyRecords records;
        XWQComBSTR lowerRoot(bstrRootKeyName);
        lowerRoot.ToLower();
        {
            XValueArray values;
            if (storage->ReadData(lowerRoot, values.CountAddress(), values.ItemsAddress()) == S_OK)
                records.Add(OwnedCopy(lowerRoot), values);
        }

        XBstrArray names;
        const HRESULT subKeys = storage->GetSubKeys(bstrRootKeyName, 1, names.CountAddress(), names.ItemsAddress());
        if (subKeys == S_OK)
        {
            // The root was read above; a storage that lists it (or a key twice) among the
            // sub-keys does not have it read again.
            std::set<std::wstring> read{XKeyWalk::Canonical(lowerRoot.c_str())};
            for (ULONG i = 0; i < names.Count(); ++i)
            {
                if (!names[i] || !read.insert(XKeyWalk::Canonical(names[i])).second)
                    continue;
                XValueArray values;
                if (storage->ReadData(names[i], values.CountAddress(), values.ItemsAddress()) != S_OK)
                    values.Reset();
                XWQComBSTR name;
                name.Attach(std::exchange(names[i], nullptr));
                records.Add(std::move(name), values);
            }
        }

        if (!records.Empty())
            records.HandOut(pulCount, ppKeySessionDataList);
        return subKeys;
    });
}
