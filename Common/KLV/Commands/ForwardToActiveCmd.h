#pragma once

#include "Common/KLV/Command.h"
#include "Common/KLV/CommandContainer.h"

#include <cstdint>
#include <memory>

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
