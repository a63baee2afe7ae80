#pragma once

#include "Simulation/Stage/ChildProcess.h"
#include "Simulation/Stage/ControlChannel.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace stage {

/// A neighbour of the module: a virtual peer as a process in a namespace of the rig, which takes commands and reports
/// what it has received.
class Peer
{
public:
    /// @param kind as the program Peer takes it; @param options its further arguments.
    Peer(const std::string& kind, const std::string& networkNamespace, const std::vector<std::string>& options,
         Milliseconds patience = Patience);

    /// @throws std::runtime_error with the peer's text if it cannot do that.
    std::vector<std::string> Tell(const std::string& line, Milliseconds patience = Patience)
    {
        return mControl->Ask(line, patience);
    }
    /// Waits until that many commands of an id have come since the start or the last "clear", and gives the bytes of
    /// the last one in hex, header included.
    std::string WaitFor(unsigned int id, unsigned int count = 1, Milliseconds patience = Patience);
    /// The bytes of all commands of an id that have come since then.
    std::vector<std::string> GetReceived(unsigned int id);
    /// Waits until a command of an id has come since then whose bytes are accepted.
    void WaitForOneLike(unsigned int id, const std::function<bool(const std::string& bytes)>& accept,
                        Milliseconds patience = Patience);
    /// Waits until this peer got the report that a device is there, or has gone.
    /// @param id RemoteIoUpdate or RemoteRouterUpdate; @param hid in hex with or without "0x".
    void WaitForUpdate(unsigned int id, const std::string& hid, bool present = true, Milliseconds patience = Patience);

private:
    Peer(const std::string& kind, const std::string& networkNamespace, const std::vector<std::string>& options,
         const std::string& path, Milliseconds patience);

    ChildProcess mProcess;
    std::unique_ptr<ControlChannel> mControl;
};

} // namespace stage
