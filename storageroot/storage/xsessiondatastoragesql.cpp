#include "xsessiondatastoragesql.h"

#include "xcomtypes.h"
#include "xobjectidentity.h"
#include "xsdmreporter.h"
#include "xsessiondatastoragereadall.h"
#include "xsqldialect.h"
#include "xsqlkey.h"
#include "xsqlstatements.h"

#include <algorithm>
#include <map>

namespace
{
const XSdmReporter& Report()
{
    static const XSdmReporter report("xsessiondatastoragesql", CLSID_WQ_SessionDataStorageSql);
    return report;
}

void Bind(XSqlStatement& statement, std::initializer_list<std::wstring_view> texts)
{
    int parameter = 1;
    for (const std::wstring_view text : texts)
        statement.BindText(parameter++, text);
}
} // namespace

XComPtr<IWQ_SessionDataStorageEx> XSessionDataStorageSql::Create(std::unique_ptr<XSqlConnection> connection)
{
    auto* storage = new XComObject<XSessionDataStorageSql>();
    storage->m_connection = std::move(connection);
    return XComPtr<IWQ_SessionDataStorageEx>(storage);
}

HRESULT XSessionDataStorageSql::InternalQueryInterface(REFIID iid, void** ppv)
{
    return XQueryInterfaces<IWQ_SessionDataStorageEx, IWQ_SessionDataStorage, ISupportErrorInfo>(this, iid, ppv);
}

STDMETHODIMP XSessionDataStorageSql::InterfaceSupportsErrorInfo(REFIID iid)
{
    return ::IsEqualIID(iid, IID_IWQ_SessionDataStorageEx) || ::IsEqualIID(iid, IID_IWQ_SessionDataStorage) ? S_OK
                                                                                                            : S_FALSE;
}

std::wstring XSessionDataStorageSql::ObjectScope(IUnknown* object)
{
    return L"object:" + XObjectIdentity(object);
}

bool XSessionDataStorageSql::KeyExists(const std::wstring& scope, const std::wstring& norm)
{
    if (norm.empty())
        return true;  // the root always exists
    XSqlUse exists(m_connection->Statement(XSqlStatements::kKeyExists));
    Bind(*exists, {scope, norm});
    return exists->Step();
}

HRESULT XSessionDataStorageSql::Store(const std::wstring& scope, BSTR key, ULONG count,
                                      const tagSESSIONDATAVALUE* records, bool lowerNames)
{
    if (count == 0)
        return S_FALSE;
    const XSqlKey target = XSqlKeyOf(XBstrView(key));
    // One row per name, sorted: of two records with the same name the later one wins (array
    // order), and every writer takes the rows in one order.
    std::map<std::wstring, std::wstring_view> named;
    for (ULONG i = 0; i < count; ++i)
        named[lowerNames ? XLowered(XBstrView(records[i].bstrValueName)) : std::wstring(XBstrView(records[i].bstrValueName))] =
            XBstrView(records[i].bstrValue);
    const XSqlDialect& dialect = m_connection->Dialect();
    if (!dialect.HoldsNul())
        for (const auto& [name, value] : named)
            if (value.find(L'\0') != std::wstring_view::npos)
                return Report().Refuse(
                    __LINE__, XSDM_FUNCTION_NAME(L"XSessionDataStorageSql::StoreData"), E_INVALIDARG,
                    (L"the value \"" + name + L"\" of key \"" + target.text + L"\" holds the NUL character (U+0000), which " +
                     dialect.Engine() + L" text cannot hold; nothing of the list was written")
                        .c_str());
    XSqlRows keys;
    for (const XSqlKey& level : target.Lineage())
        keys.rows.push_back({scope, level.norm, level.text, level.parent});
    XSqlRows values;
    for (const auto& [name, value] : named)
        values.rows.push_back({scope, target.norm, name, std::wstring(value)});
    Attempt([&] { dialect.WriteList(*m_connection, keys, values); });
    return S_OK;
}

HRESULT XSessionDataStorageSql::Read(const std::wstring& scope, BSTR key, ULONG* count,
                                     tagSESSIONDATAVALUE** records)
{
    const XSqlKey target = XSqlKeyOf(XBstrView(key));
    std::vector<Pair> pairs;
    Attempt([&] {
        pairs.clear();
        XSqlUse select(m_connection->Statement(XSqlStatements::kSelectValues));
        Bind(*select, {scope, target.norm});
        while (select->Step())
            pairs.emplace_back(select->ColumnText(0), select->ColumnText(1));
    });
    if (pairs.empty())
        return S_FALSE;
    std::sort(pairs.begin(), pairs.end());  // by name, ordinal
    XValueArray array = XValueArrayOf(
        pairs, static_cast<ULONG>(pairs.size()), [](const Pair& pair) { return std::wstring_view(pair.first); },
        [](const Pair& pair) { return std::wstring_view(pair.second); });
    array.Release(count, records);
    return S_OK;
}

HRESULT XSessionDataStorageSql::SubKeys(const std::wstring& scope, BSTR key, ULONG recursive, ULONG* count,
                                        BSTR** names)
{
    const XSqlKey target = XSqlKeyOf(XBstrView(key));
    std::vector<Pair> keys;  // norm, text
    const bool exists = Attempt([&] {
        keys.clear();
        if (!KeyExists(scope, target.norm))
            return false;
        const char* sql = recursive != 1 ? XSqlStatements::kChildren
                          : target.norm.empty() ? XSqlStatements::kAllKeys
                                                : XSqlStatements::kKeysBelow;
        XSqlUse select(m_connection->Statement(sql));
        if (recursive != 1)
            Bind(*select, {scope, target.norm});
        else if (target.norm.empty())
            Bind(*select, {scope});
        else
            Bind(*select, {scope, target.Lower(), target.Upper()});
        while (select->Step())
            keys.emplace_back(select->ColumnText(0), select->ColumnText(1));
        return true;
    });
    if (!exists)
        return S_FALSE;
    std::sort(keys.begin(), keys.end(),
              [](const Pair& a, const Pair& b) { return XSqlPreOrderLess(a.first, b.first); });
    XBstrArray array = XBstrArrayOf(keys, static_cast<ULONG>(keys.size()),
                                    [](const Pair& pair) { return std::wstring_view(pair.second); });
    *count = 0;
    *names = nullptr;
    array.Release(count, names);
    return S_OK;
}

HRESULT XSessionDataStorageSql::Delete(const std::wstring& scope, BSTR key)
{
    const XSqlKey target = XSqlKeyOf(XBstrView(key));
    if (target.norm.empty())
        return Report().Refuse(__LINE__, XSDM_FUNCTION_NAME(L"XSessionDataStorageSql::DeleteKey"), E_INVALIDARG,
                               L"the root key cannot be deleted");
    return Attempt([&] {
        if (!KeyExists(scope, target.norm))
            return S_FALSE;
        XSqlTransaction transaction(*m_connection);
        for (const char* sql : {XSqlStatements::kDeleteValuesOfKey, XSqlStatements::kDeleteKey})
        {
            XSqlUse erase(m_connection->Statement(sql));
            Bind(*erase, {scope, target.norm});
            erase->Step();
        }
        for (const char* sql : {XSqlStatements::kDeleteValuesBelow, XSqlStatements::kDeleteKeysBelow})
        {
            XSqlUse erase(m_connection->Statement(sql));
            Bind(*erase, {scope, target.Lower(), target.Upper()});
            erase->Step();
        }
        transaction.Commit();
        return S_OK;
    });
}

STDMETHODIMP XSessionDataStorageSql::StoreData(BSTR bstrKeyName, ULONG ulCount, tagSESSIONDATAVALUE* pValueList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageSql::StoreData");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT checked =
            Report().Names(__LINE__, function).List(bstrKeyName, ulCount, pValueList, nullptr).Result();
        return FAILED(checked) ? checked : Store(PlainScope(), bstrKeyName, ulCount, pValueList, false);
    });
}

STDMETHODIMP XSessionDataStorageSql::ReadData(BSTR bstrKeyName, ULONG* pulCount, tagSESSIONDATAVALUE** ppValueList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageSql::ReadData");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        if (!pulCount || !ppValueList)
            return Report().CheckPointer(__LINE__, function, nullptr);
        *pulCount = 0;
        *ppValueList = nullptr;
        const HRESULT checked = Report().Names(__LINE__, function).Key(bstrKeyName).Result();
        return FAILED(checked) ? checked : Read(PlainScope(), bstrKeyName, pulCount, ppValueList);
    });
}

STDMETHODIMP XSessionDataStorageSql::GetSubKeys(BSTR bstrKeyName, ULONG ulRecursive, ULONG* pulCount,
                                                BSTR** ppKeyNameList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageSql::GetSubKeys");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        if (!pulCount || !ppKeyNameList)
            return Report().CheckPointer(__LINE__, function, nullptr);
        *pulCount = 0;
        *ppKeyNameList = nullptr;
        const HRESULT checked = Report().Names(__LINE__, function).Key(bstrKeyName).Result();
        return FAILED(checked) ? checked : SubKeys(PlainScope(), bstrKeyName, ulRecursive, pulCount, ppKeyNameList);
    });
}

STDMETHODIMP XSessionDataStorageSql::ReadAllData(BSTR bstrRootKeyName, ULONG* pulCount,
                                                 tagKEY_SESSIONDATAVALUE** ppKeySessionDataList)
{
    // The registry's procedure, over this storage's own ReadData and GetSubKeys.
    return XReadAllStorageData(this, Report(), bstrRootKeyName, pulCount, ppKeySessionDataList);
}

STDMETHODIMP XSessionDataStorageSql::FlushAsyncStorage()
{
    // Every call is committed when it returns.
    return S_OK;
}

STDMETHODIMP XSessionDataStorageSql::GetLastErrorAsyncExecution(HRESULT* phrAsyncResult)
{
    if (phrAsyncResult)
        *phrAsyncResult = S_OK;
    return S_OK;
}

STDMETHODIMP XSessionDataStorageSql::StoreObjectData(IUnknown* piObject, BSTR bstrKeyName, ULONG ulCount,
                                                     tagSESSIONDATAVALUE* pValueList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageSql::StoreObjectData");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT checked =
            Report().Names(__LINE__, function).List(bstrKeyName, ulCount, pValueList, nullptr).Result();
        return FAILED(checked) ? checked : Store(ObjectScope(piObject), bstrKeyName, ulCount, pValueList, true);
    });
}

STDMETHODIMP XSessionDataStorageSql::ReadObjectData(IUnknown* piObject, BSTR bstrKeyName, ULONG* pulCount,
                                                    tagSESSIONDATAVALUE** ppValueList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageSql::ReadObjectData");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        if (!pulCount || !ppValueList)
            return Report().CheckPointer(__LINE__, function, nullptr);
        *pulCount = 0;
        *ppValueList = nullptr;
        const HRESULT checked = Report().Names(__LINE__, function).Key(bstrKeyName).Result();
        return FAILED(checked) ? checked : Read(ObjectScope(piObject), bstrKeyName, pulCount, ppValueList);
    });
}

STDMETHODIMP XSessionDataStorageSql::GetObjectSubKeys(IUnknown* piObject, BSTR bstrKeyName, ULONG ulRecursive,
                                                      ULONG* pulCount, BSTR** ppKeyNameList)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageSql::GetObjectSubKeys");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        if (!pulCount || !ppKeyNameList)
            return Report().CheckPointer(__LINE__, function, nullptr);
        *pulCount = 0;
        *ppKeyNameList = nullptr;
        const HRESULT checked = Report().Names(__LINE__, function).Key(bstrKeyName).Result();
        return FAILED(checked) ? checked
                               : SubKeys(ObjectScope(piObject), bstrKeyName, ulRecursive, pulCount, ppKeyNameList);
    });
}

STDMETHODIMP XSessionDataStorageSql::DeleteObjectKey(IUnknown* piObject, BSTR bstrKeyName)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageSql::DeleteObjectKey");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT checked = Report().Names(__LINE__, function).Key(bstrKeyName).Result();
        return FAILED(checked) ? checked : Delete(ObjectScope(piObject), bstrKeyName);
    });
}

STDMETHODIMP XSessionDataStorageSql::DeleteKey(BSTR bstrKeyName)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionDataStorageSql::DeleteKey");
    return Report().Run(__LINE__, function, [&]() -> HRESULT {
        const HRESULT checked = Report().Names(__LINE__, function).Key(bstrKeyName).Result();
        return FAILED(checked) ? checked : Delete(PlainScope(), bstrKeyName);
    });
}
