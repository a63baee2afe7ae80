#include "FSI/Core/DeviceRegistry.h"
#include "FSI/Core/Interruptable.h"
#include "FSI/Core/UioInterruptController.h"
#include "Simulation/Fpga/SimulatedFpga.h"
#include "Tests/Support/Await.h"
#include "Tests/Support/LogRecorder.h"

#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <poll.h>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;

constexpr std::uint32_t Pending = 0x18;
constexpr std::uint32_t Enables = 0x30;

class Device : public fsi::HostFsi, public fsi::Interruptable
{
public:
    Device(simulation::SimulatedFpga& board, const std::string& name, const std::vector<Interrupt>& events)
        : HostFsi(name, board.Open(name)), Interruptable(static_cast<HostFsi&>(*this), events)
    {}
    using Interruptable::GetFileDescriptor;
};

TEST(Interruptable, PendingEventsAreDispatchedInTheOrderOfTheListAndAcknowledgedFirst)
{
    simulation::SimulatedFpga board;
    auto device = std::make_unique<Device>(board, "0004", std::vector<fsi::Interruptable::Interrupt>{3, 1, 0});
    EXPECT_EQ(board.GetRegister("0004", Enables), 0xBu);
    std::vector<int> fired;
    std::vector<std::uint32_t> pendingThen;
    for (const int event : {0, 1, 3})
        device->ConnectSlot(event, [&, event] {
            fired.push_back(event);
            pendingThen.push_back(board.GetRegister("0004", Pending));
        });
    for (const int event : {1, 2, 3})
        board.RaiseEvent("0004", event);
    device->DispatchInterrupts();
    EXPECT_THAT(fired, ElementsAre(3, 1));
    EXPECT_THAT(pendingThen, ElementsAre(0x6, 0x4)) << "event 2, which nobody declared, stays pending";
    device->DispatchInterrupts();
    EXPECT_EQ(fired.size(), 2u);
    EXPECT_EQ(board.GetRegister("0004", 0x34), 0xAu) << "what was acknowledged before is written again";
    device.reset();
    EXPECT_EQ(board.GetRegister("0004", Enables), 0u);
}

TEST(InterruptableDeathTest, FaultsOfTheCodeAreFatal)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    simulation::SimulatedFpga board;
    EXPECT_DEATH(fsi::Interruptable::Interrupt(-1), "Interrupt events are non-negative\\.");
    EXPECT_DEATH(fsi::Interruptable::Interrupt(32), "Only 32 interrupt events are supported\\.");
    EXPECT_DEATH(Device(board, "0004", {}), "An Interruptable device must specify some interrupts!");
    EXPECT_DEATH(Device(board, "0004", {1}).ConnectSlot(2, [] {}), "Attempt to connect to unknown interrupt\\.");
    struct Plain : fsi::Fsi
    {};
    fsi::DeviceRegistry registry;
    registry.Register<Plain>("adma");
    EXPECT_DEATH(registry.Register<Plain>("adma"), "Device aliases must be unique");
    boost::asio::io_service service;
    EXPECT_DEATH(fsi::UioInterruptController(service, {}), "!mDevices\\.empty\\(\\)");
}

TEST(UioInterruptController, SlotsRunOnTheThreadOfTheService)
{
    simulation::SimulatedFpga board;
    boost::asio::io_service service;
    const boost::asio::io_service::work work(service);
    const auto dma = std::make_shared<Device>(board, "0003", std::vector<fsi::Interruptable::Interrupt>{0});
    const auto reference = std::make_shared<Device>(board, "0004", std::vector<fsi::Interruptable::Interrupt>{2});
    std::vector<std::string> fired;
    const auto note = [&fired, here = std::this_thread::get_id()](const char* name) {
        fired.push_back(std::this_thread::get_id() == here ? name : "another thread");
    };
    dma->ConnectSlot(0, [&] { note("dma"); });
    reference->ConnectSlot(2, [&] { note("reference"); });

    LogRecorder log;
    const fsi::UioInterruptController controller(service, {dma, reference});
    const auto raise = [&](const char* block, int event, std::size_t count) {
        board.RaiseEvent(block, event);
        return Await([&] { return fired.size() >= count; },
                     [&] { service.run_one_for(std::chrono::milliseconds(100)); });
    };
    ASSERT_TRUE(raise("0004", 2, 1));
    ASSERT_TRUE(raise("0003", 0, 2));
    EXPECT_THAT(fired, ElementsAre("reference", "dma"));

    // A sanitizer opens a pipe to look at an object of a type that it has not met; the log is met here.
    AUDIT_LOG(Fault, "Descriptors run out\n");
    // As the kernel runs out of memory for it.
    rlimit before{};
    ::getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{1, before.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
    board.RaiseEvent("0004", 2);
    EXPECT_TRUE(log.WaitFor("UioInterruptController poll failed: "));
    ::setrlimit(RLIMIT_NOFILE, &before);
    ASSERT_TRUE(raise("0003", 0, 4));

    // A descriptor that fails is left out, and the other device is served on.
    board.BreakInterruptLine("0003");
    EXPECT_TRUE(log.WaitFor("UioInterruptController lost the interrupts of block '0003'\n"));
    ASSERT_TRUE(raise("0004", 2, 5));
    EXPECT_EQ(log.Count("UioInterruptController lost the interrupts of block '0003'\n"), 1u);
}

TEST(UioInterruptController, WhatWasPostedForADeviceThatIsGoneDoesNothing)
{
    simulation::SimulatedFpga board;
    boost::asio::io_service service;
    auto device = std::make_shared<Device>(board, "0003", std::vector<fsi::Interruptable::Interrupt>{0});
    device->ConnectSlot(0, [] { ADD_FAILURE() << "fired"; });
    {
        const fsi::UioInterruptController controller(service, {device});
        board.RaiseEvent("0003", 0);
        pollfd line{device->GetFileDescriptor(), POLLIN, 0};
        EXPECT_TRUE(Await([&] { return ::poll(&line, 1, 0) != 1; }, std::this_thread::yield));
    }
    device.reset();
    EXPECT_EQ(service.poll(), 1u);
}

} // namespace
