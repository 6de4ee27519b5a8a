// The storage kind number of the IO layers: classification by interface probes, reported as
// 0 to 5 (not as the SDM_STORAGE_TYPE members with their high bits).
#include "iotesthelpers.h"
#include "xsessiondataio.h"
#include "xsessiondataionocache.h"
#include "xsessiondatastoragevolatile.h"
#include "xstoragekind.h"

#include <gtest/gtest.h>

using Pose = RecordingStorage::Pose;

TEST(StorageKind, NoStorageIsZero)
{
    EXPECT_EQ(0u, static_cast<ULONG>(XClassifyStorage(nullptr)));
}

TEST(StorageKind, EachPoseHasItsNumber)
{
    const std::pair<Pose, ULONG> cases[] = {
        {Pose::Plain, 1}, {Pose::Registry, 2}, {Pose::Database, 3}, {Pose::Environment, 4}, {Pose::Volatile, 5},
    };
    for (const auto& c : cases)
    {
        StorageRef storage(c.first);
        EXPECT_EQ(c.second, static_cast<ULONG>(XClassifyStorage(storage.Get())));
    }
}

TEST(StorageKind, InterfacesAreAskedForInOrderDatabaseRegistryEnvironmentVolatile)
{
    StorageRef all(Pose::Volatile);
    all->AlsoPoseAs(Pose::Environment);
    EXPECT_EQ(XSTORAGE_ENVIRONMENT, XClassifyStorage(all.Get()));
    all->AlsoPoseAs(Pose::Registry);
    EXPECT_EQ(XSTORAGE_REGISTRY, XClassifyStorage(all.Get()));
    all->AlsoPoseAs(Pose::Database);
    EXPECT_EQ(XSTORAGE_DATABASE, XClassifyStorage(all.Get()));
}

TEST(StorageKind, VolatileStorageIsFive)
{
    XComPtr<IWQ_SessionDataStorage> storage;
    ASSERT_EQ(S_OK, XCreateComObject<XSessionDataStorageVolatile>(
                        nullptr, IID_IWQ_SessionDataStorage, reinterpret_cast<void**>(storage.ReleaseAndGetAddressOf())));
    EXPECT_EQ(5u, static_cast<ULONG>(XClassifyStorage(storage.Get())));
}

template <class Layer>
class StorageTypeTest : public ::testing::Test
{
};
using Layers = ::testing::Types<XSessionDataIONoCache, XSessionDataIO>;
TYPED_TEST_SUITE(StorageTypeTest, Layers);

TYPED_TEST(StorageTypeTest, ReportsTheSmallNumberOfTheBoundStorage)
{
    StorageRef storage(Pose::Registry);
    XComPtr<IWQ_SessionDataIO> io = NewIO<TypeParam>(storage.Get());
    SDM_STORAGE_TYPE type = static_cast<SDM_STORAGE_TYPE>(-1);
    EXPECT_EQ(S_OK, io->GetStorageType(&type));
    EXPECT_EQ(2, static_cast<LONG>(type));
    EXPECT_NE(static_cast<LONG>(SDM_STORAGE_REGISTRY), static_cast<LONG>(type));
}

TYPED_TEST(StorageTypeTest, UnboundReportsZero)
{
    XComPtr<IWQ_SessionDataIO> io = NewIO<TypeParam>();
    SDM_STORAGE_TYPE type = static_cast<SDM_STORAGE_TYPE>(-1);
    EXPECT_EQ(S_OK, io->GetStorageType(&type));
    EXPECT_EQ(0, static_cast<LONG>(type));
}

TYPED_TEST(StorageTypeTest, KindIsFixedByTheFirstStorage)
{
    StorageRef first(Pose::Environment);
    StorageRef second(Pose::Volatile);
    XComPtr<IWQ_SessionDataIO> io = NewIO<TypeParam>(first.Get());
    EXPECT_EQ(S_OK, io->SetStorage(second.Get()));
    SDM_STORAGE_TYPE type = static_cast<SDM_STORAGE_TYPE>(-1);
    io->GetStorageType(&type);
    EXPECT_EQ(4, static_cast<LONG>(type));
}
