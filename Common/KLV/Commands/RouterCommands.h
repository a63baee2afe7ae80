#pragma once

// Commands between the module, routers and master control.

#include "Common/KLV/Command.h"
#include "Common/KLV/CommandContainer.h"
#include "MiscSource/GlobalConstants.h"

#include <cstdint>
#include <memory>

/// Asks the master control of this rack to restart its link.
class RestartMCSLinkCmd : public ForwardableCommand<RestartMCSLinkCmd, 667>
{
    KLV_COMMAND_FIELDS(RestartMCSLinkCmd, (Hid, Hid))
};

/// Sets the sample rate of the system.
class SetRouterSampleRateCmd : public Command<SetRouterSampleRateCmd, 674>
{
    KLV_COMMAND_FIELDS(SetRouterSampleRateCmd, (SampleRates::SystemSampleRate, SampleRate), (std::uint32_t, Param))
};

/// Address (host order) of this module's master control.
class RouterMcsUpdate : public ForwardableCommand<RouterMcsUpdate, 831>
{
    KLV_COMMAND_FIELDS(RouterMcsUpdate, (std::uint32_t, Address))
};

/// Asks for the address of the active master control.
class RequestActiveMcsCmd : public Command<RequestActiveMcsCmd, 846>
{
    KLV_COMMAND_WITHOUT_FIELDS(RequestActiveMcsCmd)
};

/// How long, in milliseconds, a master router may take to appear.
class RouterDetectTimeAllowanceCmd : public Command<RouterDetectTimeAllowanceCmd, 885>
{
    KLV_COMMAND_FIELDS(RouterDetectTimeAllowanceCmd, (std::uint32_t, Milliseconds))
};

namespace Klv {

template <>
struct FieldCodec<std::shared_ptr<CommandContainer>>
{
    using Container = std::shared_ptr<CommandContainer>;
    static std::uint32_t GetLength(const Container& container) { return container->GetLength(); }
    static void Write(KLVWriteSet& set, const Container& container) { container->Write(set); }
    static void Read(KLVReadSet& set, Container& container) { container->Read(set); }
};

} // namespace Klv

/// Carries a forwardable command, opaque to every node on the way, to the node of an address in network order.
class ForwardToActiveCmd : public Command<ForwardToActiveCmd, 880>
{
public:
    using Container = std::shared_ptr<CommandContainer>;

    explicit ForwardToActiveCmd(std::uint32_t targetAddress)
        : mTargetHid(0xFFFF), mTargetAddress(targetAddress), mCommand(std::make_shared<CommandContainer>())
    {}
    explicit ForwardToActiveCmd(KLVCommandReadSet& set)
        : mTargetHid(0xFFFF), mCommand(std::make_shared<CommandContainer>())
    {
        ReadFields(set);
    }

    void SetCommand(const ForwardableDeskCommand& command) { mCommand->Store(command); }

    KLV_FIELDS((std::uint16_t, TargetHid), (Klv::NetworkAddress, TargetAddress), (Container, Command))
};
