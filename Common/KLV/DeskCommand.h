#pragma once

#include "Common/KLV/CommandIdTexts.h"

#include <cstdint>

class DataStream;
class KLVWriteSet;

/// A request or a report between two nodes of the network: one KLV item. Built on one thread and immutable from then
/// on; a received command is shared by all its handlers.
class DeskCommand
{
public:
    virtual ~DeskCommand() = default;

    /// Writes the whole item.
    virtual void WriteTo(DataStream& stream) const = 0;
    CommandID GetCommandId() const { return mCommandId; }

protected:
    explicit DeskCommand(CommandID id) : mCommandId(id) {}
    DeskCommand(const DeskCommand&) = default;
    DeskCommand& operator=(const DeskCommand&) = default;

private:
    CommandID mCommandId;
};

/// A command that may travel inside a ForwardToActiveCmd.
class ForwardableDeskCommand : public DeskCommand
{
public:
    /// Bytes of the value.
    virtual std::uint32_t GetLength() const = 0;
    virtual void Write(KLVWriteSet& set) const = 0;
    virtual std::uint32_t GetVersion() const { return 0; }

protected:
    using DeskCommand::DeskCommand;
};
