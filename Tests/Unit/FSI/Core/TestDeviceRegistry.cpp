#include "FSI/Core/DeviceRegistryView.h"

#include <gtest/gtest.h>
#include <string>

namespace {

struct Clocked
{
    explicit Clocked(int number) : id(number) {}
    virtual ~Clocked() = default;
    int id;
};
struct Plain : fsi::Fsi
{};
struct Both : Clocked, fsi::Fsi
{
    using Clocked::Clocked;
};

TEST(DeviceRegistry, AViewHoldsTheDevicesOfItsTypeAsTheyStoodInAliasOrder)
{
    fsi::DeviceRegistry registry;
    const std::shared_ptr<Both> k1 = registry.Register<Both>("k1", 2);
    const std::shared_ptr<Both> bulk = registry.Register<Both>("bulk", 4);
    ASSERT_TRUE(registry.Register<Plain>("adma"));
    const fsi::DeviceRegistryView<Clocked> view(&registry);
    registry.Register<Both>("k0", 1);

    std::string aliases;
    for (const auto& entry : view)
        aliases += entry.first + std::to_string(entry.second->id) + " ";
    EXPECT_EQ(aliases, "bulk4 k12 ");
    EXPECT_EQ(view.Get("k1"), std::shared_ptr<Clocked>(k1));
    EXPECT_FALSE(view.Get("k0")) << "came later";
    EXPECT_FALSE(view.Get("adma")) << "is of another type";
    const fsi::DeviceRegistryView<Clocked> none(nullptr);
    EXPECT_TRUE(none.begin() == none.end());
}

TEST(DeviceRegistryDeathTest, AnAliasIsGivenOnce)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    fsi::DeviceRegistry registry;
    registry.Register<Plain>("adma");
    EXPECT_DEATH(registry.Register<Plain>("adma"), "Device aliases must be unique");
}

} // namespace
