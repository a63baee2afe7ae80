#pragma once

#include "OrbModule/Inc/DeviceManager/CommandConnections.h"
#include "Tests/Support/RecordingComms.h"
#include "Tests/Support/Transcript.h"

#include <boost/asio.hpp>

#include <map>

/// Takes connections as a command processor does, and delivers commands to them.
class RecordingProcessor
{
public:
    template <class Command, class Slot>
    void Connect(Slot slot)
    {
        mSlots[Command::ID] = [slot](const std::shared_ptr<const DeskCommand>& command, UINT8GIGEPORT port,
                                     StreamType type) {
            slot(std::static_pointer_cast<const Command>(command), port, type);
        };
    }
    template <class Command>
    void Deliver(const std::shared_ptr<const Command>& command, UINT8GIGEPORT port, StreamType type)
    {
        mSlots.at(Command::ID)(command, port, type);
    }
    std::size_t Count() const { return mSlots.size(); }

private:
    using Slot = std::function<void(const std::shared_ptr<const DeskCommand>&, UINT8GIGEPORT, StreamType)>;
    std::map<std::uint32_t, Slot> mSlots;
};

/// The directory of devices on the recording double, with all its commands connected. The unit's rack is 0.18.
class Directory
{
public:
    static const DeviceNames& Names();
    /// The timers do not expire unless a test gives them short times.
    explicit Directory(DeviceManager::Delays delays = {std::chrono::hours(1), std::chrono::hours(1)});

    DeviceManager* operator->() { return &mDevices; }
    template <class Command>
    void Deliver(const Command& command, UINT8GIGEPORT port, StreamType type = StreamType::LOCAL_LINK)
    {
        mProcessor.Deliver(std::make_shared<const Command>(command), port, type);
        Run();
    }

    /// Plays an event, and gives what was done on it, signals included.
    ///
    ///     link PORT DEVICE TYPE, unlink PORT DEVICE [TYPE]      what the link layer reports
    ///     stream PORT [TYPE [ADDRESS]], gone PORT [TYPE]        a stream comes or ends
    ///     exists, closing                  the streams of the neighbours are there still, or are being shut down
    ///     checked ADDRESS [RESULT]                              from the update service
    ///     self                            the Orb router names itself and its internal I/O
    ///     plug PORT [DEVICE [TYPE]]       a box is linked, connected and checked
    ///     unplug PORT                     its cable is pulled, and its stream ends
    ///     hub PORT, router PORT           is linked, connected and describes itself
    ///     info PORT TYPE                  it describes itself once more, or alone
    ///     io PORT DEVICE ADDRESS [OWNER [TYPE]], node PORT DEVICE ADDRESS [TYPE]    are reported
    ///     box PORT DEVICE [CARD...], far-box ..., card PORT SLOT [INPUT...] / [OUTPUT...], module PORT DEVICE INPUTS
    ///     OUTPUTS, rate RATE              descriptions, of the box if no device is named
    ///     ask PORT [DEVICE], chain PORT ADDRESS, internals DEVICE, master PORT, ping, pong      requests
    ///     send PORT DEVICE, card-failure PORT DEVICE, set-rate PORT      a command is to be forwarded
    ///     in AUDIOPORT, out AUDIOPORT, timeout, ports PORT DEVICE, has DEVICE      what it says of the box or a device
    Lines Play(const std::string& event);
    /// Runs the timers too, until there are as many lines. No other call runs them.
    Lines TakeAfterTimers(std::size_t count);
    /// How many commands were connected.
    std::size_t CountCommands() const { return mProcessor.Count(); }

private:
    /// The words of an event, one after the other; the default is for one that is not there.
    class Words;
    bool PlayLink(const std::string& verb, Words& words);
    bool PlayReport(const std::string& verb, Words& words);
    bool PlayDescription(const std::string& verb, Words& words);
    bool PlayRequest(const std::string& verb, Words& words);
    bool PlayQuestion(const std::string& verb, Words& words);
    void Run();

    Lines mLines;
    boost::asio::io_service mService;
    RecordingComms mComms;
    DeviceManager mDevices;
    RecordingProcessor mProcessor;
};
