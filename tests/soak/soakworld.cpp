#include "soakworld.h"

#include <cstdio>
#include <mutex>

HRESULT SoakWorld::BindPlain(IWQ_SessionDataMng* manager, int number)
{
    const XCtlStorageTarget& where = session.Profile().bindings.at(number).second;
    const XComPtr<IWQ_SessionDataStorage> storage = session.NewStorage(where);
    return manager->SetStorage(storage.Get(), SoakCat(number), where.cached ? 1 : -1);
}

long long SoakWorld::ReleaseAndBindAll(IWQ_SessionDataMng* manager)
{
    long long failures = 0;
    const auto check = [&](HRESULT hr, const char* what) {
        if (hr != S_OK)
        {
            ++failures;
            std::fprintf(stderr, "validation: %s: 0x%08lX\n", what, static_cast<unsigned long>(hr));
        }
    };
    std::unique_lock<SoakGate> all(bindings);
    std::unique_lock<SoakGate> databaseGate(database.Gate());
    std::unique_lock<SoakGate> faultyGate(faulty.Gate());
    database.Settle(manager);
    faulty.Settle(manager);
    check(manager->SetInvalid(), "SetInvalid");
    check(manager->Validate(), "Validate");
    SDM_STORAGE_TYPE kind = SDM_STORAGE_UNKNOWN_TYPE;
    for (const int category : {5, 4, 3, 1, kSoakDatabase, kSoakFaulty})
        if (manager->GetStorageType(SoakCat(category), &kind) != S_FALSE)
            check(E_UNEXPECTED, "a category still bound after Validate");
    for (const int category : kSoakPlain)
        check(BindPlain(manager, category), "binding a category again");
    volatileGeneration.fetch_add(1);
    check(database.Rebind(manager), "binding the database category again");
    check(faulty.Rebind(manager), "binding the fault-injecting category again");
    totals.validations.fetch_add(1);
    return failures;
}
