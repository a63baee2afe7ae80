#include "FSI/Core/Interruptable.h"
#include "FSI/Core/UioInterruptController.h"
#include "Simulation/Fpga/SimulatedFpga.h"
#include "Tests/Support/Await.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/LoopbackPeer.h"

#include <chrono>
#include <gmock/gmock.h>
#include <memory>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <system_error>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::StartsWith;

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

/// A board, and the service that its interrupts are posted to.
class Interrupts : public testing::Test
{
protected:
    std::shared_ptr<Device> Open(const std::string& name, const std::vector<fsi::Interruptable::Interrupt>& events)
    {
        return std::make_shared<Device>(mBoard, name, events);
    }

    simulation::SimulatedFpga mBoard;
    boost::asio::io_service mService;
};
using InterruptsDeathTest = Interrupts;

TEST_F(Interrupts, ThosePendingAreDispatchedInTheOrderOfTheListAndAcknowledgedFirst)
{
    EXPECT_EQ(fsi::HostFsi("0010", mBoard.Open("0010")).GetFirmwareBuild(), 42);
    auto device = Open("0004", {3, 1, 0});
    EXPECT_EQ(mBoard.GetRegister("0004", Enables), 0xBu);
    std::vector<std::pair<int, std::uint32_t>> fired;
    for (const int event : {0, 1, 3})
        device->ConnectSlot(event, [&, event] { fired.emplace_back(event, mBoard.GetRegister("0004", Pending)); });
    for (const int event : {1, 2, 3})
        mBoard.RaiseEvent("0004", event);
    device->DispatchInterrupts();
    device->DispatchInterrupts();
    EXPECT_THAT(fired, ElementsAre(std::pair(3, 0x6), std::pair(1, 0x4))) << "event 2, not declared, stays pending";
    EXPECT_EQ(mBoard.GetRegister("0004", 0x34), 0xAu) << "what was acknowledged before is written again";
    device->SetControlBit(31);
    EXPECT_EQ(mBoard.GetRegister("0004", 0x38), 0x80000000u);
    device.reset();
    EXPECT_EQ(mBoard.GetRegister("0004", Enables), 0u);
}

TEST_F(InterruptsDeathTest, FaultsOfTheCodeAreFatal)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(Open("0004", {32}), "Fatal: Only 32 interrupt events are supported\\. \\(.*FSI/Core");
    EXPECT_DEATH(Open("0004", {1})->ConnectSlot(2, [] {}), "Attempt to connect to unknown interrupt\\.");
}

TEST_F(Interrupts, SlotsRunOnTheThreadOfTheService)
{
    const boost::asio::io_service::work work(mService);
    const auto dma = Open("0003", {0});
    const auto reference = Open("0004", {2});
    std::vector<std::string> fired;
    const auto here = std::this_thread::get_id();
    for (const auto& [device, event] : {std::pair(dma, 0), {reference, 2}})
        device->ConnectSlot(event, [&, name = device->fsi::HostFsi::GetName()] {
            fired.push_back(std::this_thread::get_id() == here ? name : "another thread");
        });

    LogRecorder log;
    const fsi::UioInterruptController controller(mService, {dma, reference});
    const auto raise = [&](const char* block, int event, std::size_t count) {
        mBoard.RaiseEvent(block, event);
        return Await([&] { return fired.size() >= count; },
                     [&] { mService.run_one_for(std::chrono::milliseconds(100)); });
    };
    ASSERT_TRUE(raise("0004", 2, 1));
    ASSERT_TRUE(raise("0003", 0, 2));
    EXPECT_THAT(fired, ElementsAre("0004", "0003"));

    // A sanitizer opens a pipe to look at an object of a type that it has not met; log and error are met here.
    AUDIT_LOG(Fault, "Descriptors run out\n");
    EXPECT_THROW(throw std::system_error(EIO, std::generic_category(), "met"), std::system_error);
    // As the kernel runs out of memory for it.
    rlimit before{};
    ::getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{1, before.rlim_max};
    for (const int times : {1, 2}) {
        ::setrlimit(RLIMIT_NOFILE, &none);
        mBoard.RaiseEvent("0004", 2);
        EXPECT_TRUE(log.WaitFor("UioInterruptController poll failed: ", times));
        // Two more attempts fail, and the log says no more of it.
        mService.run_for(std::chrono::milliseconds(250));
        EXPECT_THROW(fsi::UioInterruptController(mService, {dma}), std::system_error);
        ::setrlimit(RLIMIT_NOFILE, &before);
        ASSERT_TRUE(raise("0003", 0, times == 1 ? 4 : 6));
    }

    // A descriptor that can be read but fails is left out, and the other device is served on.
    ::dup2(LoopbackPeer(::eventfd(1, 0)).GetFd(), dma->GetFileDescriptor());
    ASSERT_TRUE(raise("0004", 2, 7));
    EXPECT_TRUE(log.WaitFor("lost the interrupts"));
    ASSERT_TRUE(raise("0004", 2, 8));
    EXPECT_THAT(log.Lines(),
                ElementsAre("Descriptors run out\n", StartsWith("UioInterruptController poll failed: Invalid"),
                            StartsWith("UioInterruptController poll failed: Invalid"),
                            "UioInterruptController lost the interrupts of block '0003'\n"));
}

TEST_F(Interrupts, WhatWasPostedForADeviceThatIsGoneDoesNothing)
{
    auto device = Open("0003", {0});
    device->ConnectSlot(0, [] { ADD_FAILURE() << "fired"; });
    {
        const DescriptorCheck check;
        const fsi::UioInterruptController controller(mService, {device});
        mBoard.RaiseEvent("0003", 0);
        pollfd line{device->GetFileDescriptor(), POLLIN, 0};
        EXPECT_TRUE(Await([&] { return ::poll(&line, 1, 0) != 1; }, std::this_thread::yield));
    }
    device.reset();
    EXPECT_EQ(mService.poll(), 1u);
}

} // namespace
