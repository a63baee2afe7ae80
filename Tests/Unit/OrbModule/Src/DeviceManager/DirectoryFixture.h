#pragma once

#include "OrbModule/Inc/DeviceManager/CommandConnections.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/RecordingComms.h"
#include "Tests/Support/Transcript.h"

#include <boost/asio.hpp>

#include <map>

/// The directory of devices on the recording double, with all its commands connected. The unit's rack is 0.18.
class Directory
{
public:
    explicit Directory(DeviceManager::Delays delays);

    /// Plays an event, and gives what was done on it, signals included, or the answer to a question. A word with "*N"
    /// at its end comes N times.
    ///
    ///     link PORT DEVICE TYPE, unlink PORT [DEVICE [TYPE]]    what the link layer reports
    ///     stream PORT [TYPE [ADDRESS]], gone PORT [TYPE]        a stream comes or ends
    ///     state STATE                     of the streams of the neighbours from now on: 1 open, 2 closing
    ///     plug PORT [DEVICE [TYPE]]       a box is linked, connected and checked
    ///     unplug PORT                     its cable is pulled, and its stream ends
    ///     hub PORT, router PORT           is linked, connected and describes itself
    ///     self                            the Orb router names itself and its internal I/O
    ///     ten EVENT                       with each # replaced by one digit after the other
    ///     internals DEVICE, master-hid DEVICE, master PORT, ping, pong, and the commands of SendCommand
    ///     in AUDIOPORT, out AUDIOPORT, timeout DEVICE, has DEVICE, commands    questions
    ///     list, list io, port-map DEVICE  the listings of the shell
    ///     log PART                        all lines so far that contain this
    ///     wait TIMER N                    runs the timers too, until there are N lines; no other event runs them
    Lines Play(const std::string& event);

    /// As a command processor takes them.
    template <class Command, class Slot>
    void Connect(Slot slot)
    {
        mSlots[Command::ID] = [slot](const std::shared_ptr<const DeskCommand>& command, UINT8GIGEPORT port,
                                     StreamType type) {
            slot(std::static_pointer_cast<const Command>(command), port, type);
        };
    }

private:
    class Words;
    using Slot = std::function<void(const std::shared_ptr<const DeskCommand>&, UINT8GIGEPORT, StreamType)>;

    void Do(const std::string& event);
    void Act(const std::string& event);
    /// False if the verb names none.
    bool SendCommand(const Words& words, UINT8GIGEPORT port);
    Lines Ask(const Words& words);
    Lines Has(Hid hid) const;
    template <class Command>
    bool Deliver(UINT8GIGEPORT port, const Command& command, StreamType type = StreamType::LOCAL_LINK)
    {
        const auto given = std::make_shared<const Command>(command);
        mSlots.at(Command::ID)(given, port, type);
        return true;
    }

    LogRecorder mLog{DebugFeature::RouterAudioRoute};
    Lines mLines;
    boost::asio::io_service mService;
    RecordingComms mComms;
    DeviceManager mDevices;
    std::map<std::uint32_t, Slot> mSlots;
};
