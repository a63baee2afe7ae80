#pragma once

#include "Audit/Audit.h"
#include "Common/KLV/Commands/Commands.h"
#include "OrbModule/Inc/DeviceManager/DeviceManager.h"
#include "OrbModule/Inc/Patching/PatchController.h"
#include "Tests/Support/SendOnlyComms.h"

#include <boost/asio/io_service.hpp>

#include <algorithm>
#include <deque>
#include <map>
#include <random>
#include <set>
#include <unordered_map>

/// Random events for the real directory, controller, slots and store. The patcher, the Orb router, the update service
/// and the neighbours on the links are simulated and answer as the real ones do. The same seed gives the same events.
class RandomPatches : public SendOnlyComms, iPatcher
{
public:
    explicit RandomPatches(std::uint32_t seed) : mRandom(seed)
    {
        mDevices.LocalHidChanged.connect([this](Hid hid) { mController.OnLocalHidChanged(hid); });
        mDevices.NetworkConnectionChanged.connect([this](bool on) { mController.OnNetworkConnectionChanged(on); });
        mDevices.DeviceChange.connect([this](auto... change) { mController.OnDeviceChange(change...); });
        Settle();
    }

    /// One event, played to its end.
    void Step()
    {
        static constexpr void (RandomPatches::*Events[])() = {
            &RandomPatches::MakePatch,       &RandomPatches::BreakPatch, &RandomPatches::MoveCable,
            &RandomPatches::ExchangeBox,     &RandomPatches::TakeDeskIo, &RandomPatches::ReturnDeskIo,
            &RandomPatches::ChangeNeighbour, &RandomPatches::Flood};
        std::discrete_distribution<std::size_t> choose{40, 20, 18, 2, 2, 8, 3, 4};
        mSources.clear();
        mLost.clear();
        const std::size_t event = choose(mRandom);
        AUDIT_STREAM(RouterAudioRoute, "---- event " << event << '\n');
        (this->*Events[event])();
        if (Dice(40) == 0) mIsLate = !mIsLate;
        Settle();
    }

    void Connect(std::uint32_t address, UINT8GIGEPORT port, std::uint16_t tcpPort) override
    {
        const StreamType type = tcpPort == 49190 ? UPDATE_LINK : tcpPort == 55100 ? SLAVE_LINK : LOCAL_LINK;
        mService.post([=] { mDevices.OnKLVStreamChanged(port, type, address, true); });
    }
    using SendOnlyComms::Disconnect;
    void Disconnect(UINT8GIGEPORT port) override
    {
        mService.post([=] { mDevices.OnKLVStreamChanged(port, LOCAL_LINK, 0, false); });
    }
    bool Send(const StreamName& stream, const DeskCommand& command) override
    {
        if (const auto* check = dynamic_cast<const DevicesToCheckAndUpdateCmd*>(&command)) {
            for (const auto& device : check->GetDevices())
                Deliver(DeviceCheckResultsCmd(device.GetAddress(), 0), 0, UPDATE_LINK);
        } else if (stream.type == SLAVE_LINK) {
            if (stream.address == 0) return false;
            OnNodeReceives((stream.address & 0xFFFF) == 0x500 ? 1 : 2, command);
        } else if (stream.port == Routing::ORB_PORT) {
            OnOrbReceives(command);
        } else if (stream.port < mCables.size() && mCables[stream.port]) {
            OnNeighbourReceives(stream.port, command);
        }
        return true;
    }

protected:
    /// A port and a slot of it.
    using Place = std::pair<unsigned, std::uint32_t>;
    using Slots = std::vector<std::uint32_t>;
    /// A patch that is asked for.
    struct Request
    {
        IoPort source;
        IoPort dest;
        bool operator==(const Request& other) const { return source == other.source && dest == other.dest; }
    };

    static constexpr Hid Own = 0xC0014000;
    static constexpr Hid Desk = 0xC0010005;
    static constexpr Hid Boxes[] = {0xC0020001, 0xC0060001};
    static constexpr Hid HubNode = 0xC0058000;
    static constexpr Hid FarNode = 0xC0038000;
    static constexpr Hid FarBoxes[] = {0xC0030001, 0xC0030002, 0xC0030003};

    static bool IsOwn(const IoPort& port) { return GetRackId(port.GetHid()) == GetRackId(Own); }
    static bool IsBox(const IoPort& port) { return port.GetHid() == Boxes[0] || port.GetHid() == Boxes[1]; }
    static HidPort ToHidPort(const IoPort& port) { return {port.GetHid(), port.GetIndex()}; }
    const LinkSlot& GetSlot(const Place& place) const
    {
        return mController.GetLinkAllocation().GetSlot(static_cast<UINT8GIGEPORT>(place.first), place.second);
    }
    /// Where a source arrives on a port.
    static Slots SlotsOf(const IoPort& source, UINT8GIGEPORT port)
    {
        if (IsBox(source)) return {source.GetIndex()};
        const std::uint32_t block = IsOwn(source) ? 100 : 200 + 100u * port + 8 * (source.GetHid() & 3);
        const std::uint32_t first = block + 2 * source.GetIndex();
        return source.GetIndex() % 2 == 0 ? Slots{first} : Slots{first, first + 1};
    }
    /// While answers are late, what should be heard may not be heard yet.
    bool IsDisturbed() const { return mIsLate || !mAnswers.empty(); }

    /// Runs what is posted, and the answers of the neighbours unless they are late. Timers that are due at once may be
    /// behind the handlers that run now.
    void Settle()
    {
        for (unsigned idle = 0; idle < 2 || (!mIsLate && !mAnswers.empty());) {
            mService.restart();
            idle = mService.poll() == 0 ? idle + 1 : 0;
            if (idle == 0 || mIsLate || mAnswers.empty()) continue;
            const auto answer = std::move(mAnswers.front().second);
            mAnswers.pop_front();
            answer();
            idle = 0;
        }
    }

    void BreakPatch()
    {
        if (mRequests.empty() || !mHasDeskIo) return;
        const auto request = mRequests.begin() + Dice(static_cast<std::uint32_t>(mRequests.size()));
        const Request ended = *request;
        mRequests.erase(request);
        Order(ended, false);
    }
    /// Whoever drives the patches sends them again.
    void ReturnDeskIo()
    {
        if (mHasDeskIo) return;
        mHasDeskIo = true;
        ReportDeskIo(UNIT_MASTER_CONTROL);
        Settle();
        for (const Request& request : mRequests)
            Order(request, true);
    }

    boost::asio::io_service mService;
    DeviceManager mDevices{mService, *this, [](auto&&...) { return 0; }, {{}, {}}, {}};
    PatchController mController{mDevices, *this, *this};
    std::vector<Request> mRequests;
    /// By destination: the source, and the slots in which the Orb router was told to listen.
    std::unordered_map<IoPort, std::pair<IoPort, Slots>> mListening;
    bool mHasDeskIo = true;
    bool mIsLate = false;
    /// What feeds each slot that is not silent, as the patcher was told.
    std::map<Place, Place> mRoutes;
    /// Sources of the patches that were asked for in the last step, and ports that lost what was there.
    std::set<std::pair<Hid, AudioPortNumber>> mSources;
    std::set<unsigned> mLost;

private:
    void ProcessPatchUnpatch(const LinkPatch& patch, bool make) override
    {
        const auto& [from, to] = patch;
        for (std::size_t i = 0; i < to.slots.size(); ++i) {
            mRoutes.erase({to.port, to.slots[i]});
            if (make && i < from.slots.size()) mRoutes[{to.port, to.slots[i]}] = {from.port, from.slots[i]};
        }
    }
    void ProcessUnpatches(const std::vector<LinkPatch>& patches) override
    {
        for (const LinkPatch& patch : patches)
            ProcessPatchUnpatch(patch, false);
    }
    void RemoveAllPatches() override {}

    enum Neighbour { None, Box, Hub, Router };

    // The events.

    void MoveCable()
    {
        const auto port = static_cast<UINT8GIGEPORT>(1 + Dice(2));
        if (mNeighbour == None) {
            ChangeNeighbour();
        } else if (mCables[port]) {
            PullCable(port);
        } else {
            PlugCable(port);
        }
    }
    void TakeDeskIo()
    {
        if (!mHasDeskIo) return;
        mLost.insert(Routing::ORB_PORT);
        mHasDeskIo = false;
        mListening.clear();
        ReportDeskIo(0);
    }
    void ChangeNeighbour()
    {
        mIsLate = false;
        ReturnDeskIo();
        Settle();
        for (const UINT8GIGEPORT port : Links) {
            if (mCables[port]) PullCable(port);
            Settle();
        }
        const auto next = static_cast<Neighbour>(Dice(4));
        if (next == Router || mNeighbour == Router) {
            // What one of them wanted is nothing to the other.
            for (const Request& request : std::exchange(mRequests, {}))
                OrderFrom(0, request, false);
        }
        mNeighbour = next;
        if (next != None) PlugCable(static_cast<UINT8GIGEPORT>(1 + Dice(2)));
    }
    /// The old one stays on its secondary cable for as long as that is not pulled.
    void ExchangeBox()
    {
        if (mNeighbour != Box || !mCables[1] || !mCables[2]) return;
        PullCable(Routing::PRIMARY_PORT);
        Settle();
        mBox[1] = mBox[1] == Boxes[0] ? Boxes[1] : Boxes[0];
        PlugCable(Routing::PRIMARY_PORT);
    }
    void MakePatch()
    {
        // An Orb router without its I/O has nothing to say.
        if (!mHasDeskIo) return;
        // Own to own does not pass this module, and far to far does not either.
        const bool ownSource = Dice(2) == 0;
        const bool ownDest = mNeighbour == Box && !ownSource ? Dice(3) != 0 : !ownSource;
        Request request{RandomPort(ownSource, 1), RandomPort(ownDest, 2)};
        // From one box to the other the audio would have to pass this module.
        if (IsBox(request.source) && IsBox(request.dest)) request.dest = IoPort(request.source.GetHid(), 2, Dice(16));
        const auto old = std::find_if(mRequests.begin(), mRequests.end(),
                                      [&](const Request& other) { return other.dest == request.dest; });
        if (old != mRequests.end()) {
            if (!(*old == request)) Order(*old, false);
            mRequests.erase(old);
        }
        mRequests.push_back(request);
        Order(request, true);
    }
    void Flood()
    {
        for (int i = 0; i < 60; ++i)
            Dice(3) == 0 ? BreakPatch() : MakePatch();
    }

    // What they are made of.

    std::uint32_t Dice(std::uint32_t sides) { return static_cast<std::uint32_t>(mRandom() % sides); }
    /// @param style 1 for a source, 2 for a destination
    IoPort RandomPort(bool own, std::uint32_t style)
    {
        if (own) return IoPort(Desk, style, Dice(style == 1 ? 8 : 24));
        if (mNeighbour == Box) return IoPort(mBox[1 + Dice(2)], style, Dice(16));
        return IoPort(FarBoxes[Dice(3)], style, Dice(style == 1 ? 4 : 12));
    }
    void PlugCable(UINT8GIGEPORT port)
    {
        // A box brings its primary cable first.
        if (port == Routing::SECONDARY_PORT) mBox[2] = mBox[1];
        if (mNeighbour == Box && mBox[1] != mBox[2]) mLost = {1, 2};
        mCables[port] = true;
        constexpr K2Heartbeat::LinkType Types[] = {K2Heartbeat::K2_NO_TYPE, K2Heartbeat::K2_FIXED_FORMAT_TYPE,
                                                   K2Heartbeat::K2_HUB_TYPE, K2Heartbeat::K2_ROUTER_TYPE};
        mDevices.OnDeviceChanged(ToNumber(ToLinkIndex(port)), 0x0A000001u + port, static_cast<UINT8GIGEPORT>(port + 4),
                                 0x0A0000F0u + port, mNeighbour == Box ? mBox[port] : HubNode, Types[mNeighbour]);
        if (mNeighbour == Router)
            mService.post([this, port] { mDevices.OnKLVStreamChanged(port, LOCAL_LINK, 0, true); });
    }
    void PullCable(UINT8GIGEPORT port)
    {
        mLost.insert(port);
        mCables[port] = false;
        // What the neighbour had not said yet stays unsaid.
        const auto isOfPort = [port](const auto& answer) { return answer.first == port; };
        mAnswers.erase(std::remove_if(mAnswers.begin(), mAnswers.end(), isOfPort), mAnswers.end());
        mDevices.OnDeviceChanged(ToNumber(ToLinkIndex(port)), 0, UNKNOWN_GIGE_PORT, 0, INVALID_HID,
                                 K2Heartbeat::K2_NO_TYPE);
    }
    /// Makes or breaks a patch, as whoever drives the patches would.
    void Order(const Request& request, bool make)
    {
        if (!make) mListening.erase(request.dest);
        if (mNeighbour != Router) return OrderFrom(0, request, make);
        for (const UINT8GIGEPORT port : Links) {
            if (mCables[port]) OrderFrom(port, request, make);
        }
    }
    /// From the Orb router, port 0, or from the router on a link. Each knows the slots of its own sources.
    void OrderFrom(UINT8GIGEPORT port, const Request& request, bool make, UINT8GIGEPORT link = 0)
    {
        if (!mHasDeskIo) return;
        mSources.emplace(request.source.GetHid(), request.source.GetIndex());
        const Slots slots = IsOwn(request.source) == (port == 0) ? SlotsOf(request.source, port) : Slots{};
        const PatchSource source(request.source, link, slots);
        Deliver(RouterPatchAudio(source, request.dest, request.source, make, false), port);
    }
    bool IsWanted(const Request& request) const { return std::count(mRequests.begin(), mRequests.end(), request) != 0; }

    // What the surroundings say.

    /// A command reaches the module.
    template <class Command>
    void Deliver(const Command& command, UINT8GIGEPORT port, StreamType type = LOCAL_LINK)
    {
        mService.post([this, shared = std::make_shared<const Command>(command), port, type] {
            if constexpr (std::is_same_v<Command, RouterPatchAudio>) {
                mController.ReceivedRouterPatchAudioCmd(shared, port, type);
            } else if constexpr (std::is_same_v<Command, PatchSucessfulCmd>) {
                mController.ReceivedPatchSucessfulCmd(shared, port, type);
            } else if constexpr (std::is_same_v<Command, DeviceCheckResultsCmd>) {
                mDevices.OnDeviceCheckResults(shared, port, type);
            } else if constexpr (std::is_same_v<Command, RemoteIoUpdate>) {
                mDevices.OnRemoteIoUpdate(shared, port, type);
            } else if constexpr (std::is_same_v<Command, RemoteRouterUpdate>) {
                mDevices.OnRemoteRouterUpdate(shared, port, type);
            } else {
                mDevices.ProcessIOCmd(shared, port, type);
            }
        });
    }
    void ReportDeskIo(std::uint32_t address)
    {
        Deliver(RemoteIoUpdate(RemoteDeviceType::Modular, Desk, address, Own), 0);
        if (address != 0) Deliver(IoInfoCard(Desk, 0xFF, "", {}, {}, {}), 0);
    }
    void OnOrbReceives(const DeskCommand& command)
    {
        if (dynamic_cast<const RouterInfoReq*>(&command)) {
            Deliver(RouterInfo(Own, RemoteDeviceType::Orb, 512, 512, 0), 0);
        } else if (dynamic_cast<const IoInfoReq*>(&command)) {
            if (mHasDeskIo) ReportDeskIo(UNIT_MASTER_CONTROL);
        } else if (const auto* update = dynamic_cast<const RemoteIoUpdate*>(&command)) {
            // A device has come: the router of the desk sends its patches again.
            if (update->GetAddress() == 0 || mNeighbour == Router) return;
            for (const Request& request : mRequests) {
                if (request.source.GetHid() == update->GetHid() || request.dest.GetHid() == update->GetHid())
                    OrderFrom(0, request, true);
            }
        } else if (const auto* patch = dynamic_cast<const RouterPatchAudio*>(&command)) {
            const Request request{patch->GetSource().GetPort(), patch->GetDest()};
            if (!patch->GetUseMe()) {
                // A source of the desk is wanted: it tells its slots, for the link that was named.
                if (IsOwn(request.source) && patch->GetMake() == IsWanted(request))
                    OrderFrom(0, request, patch->GetMake(), patch->GetSource().GetLink());
            } else if (patch->GetMake()) {
                mListening[request.dest] = {patch->GetOrig(), patch->GetSource().GetSlots()};
            } else {
                mListening.erase(request.dest);
            }
        }
    }
    void OnNeighbourReceives(UINT8GIGEPORT port, const DeskCommand& command)
    {
        if (mNeighbour == Box && dynamic_cast<const IoInfoReq*>(&command)) {
            mAnswers.emplace_back(port, [=] { Deliver(IoInfo(mBox[port], 1, {"QV1320", "", "", "", ""}), port); });
        } else if (mNeighbour != Box && dynamic_cast<const RouterInfoReq*>(&command)) {
            // Never withheld: a link that has not described itself yet does not count when the other one is lost.
            const auto kind = mNeighbour == Hub ? RemoteDeviceType::Hub : RemoteDeviceType::Router;
            Deliver(RouterInfo(HubNode, kind, 512, 512, 0), port);
            for (const Hid hid : FarBoxes)
                Deliver(RemoteIoUpdate(RemoteDeviceType::FixedFormat, hid, 0x0B000002, FarNode), port);
            Deliver(RemoteRouterUpdate(RemoteDeviceType::Orb, FarNode, 0x0B000001, HubNode), port);
            if (mNeighbour == Router) {
                for (const Request& request : mRequests)
                    OrderFrom(port, request, true);
            }
        } else if (const auto* patch = dynamic_cast<const RouterPatchAudio*>(&command)) {
            if (!patch->GetMake() || mNeighbour != Router) return;
            mAnswers.emplace_back(port, [=, dest = patch->GetDest()] { Deliver(PatchSucessfulCmd(dest), port); });
        }
    }
    /// The far node describes its boxes and sends the audio that it is asked for.
    void OnNodeReceives(UINT8GIGEPORT port, const DeskCommand& command)
    {
        if (!mCables[port]) return;
        if (const auto* request = dynamic_cast<const IoInfoDevReq*>(&command)) {
            mAnswers.emplace_back(port, [=, hid = request->GetHid()] {
                Deliver(IoInfo(hid, 1, {"QV1320", "", "", "", ""}), port, SLAVE_LINK);
            });
        } else if (const auto* patch = dynamic_cast<const RouterPatchAudio*>(&command)) {
            const Request wanted{patch->GetSource().GetPort(), patch->GetDest()};
            mAnswers.emplace_back(port, [=, make = patch->GetMake()] {
                // A node that is late has heard by then what became of the patch.
                if (make == IsWanted(wanted)) OrderFrom(port, wanted, make);
            });
        }
    }

    static constexpr UINT8GIGEPORT Links[] = {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT};

    std::mt19937 mRandom;
    Neighbour mNeighbour = None;
    std::array<bool, 3> mCables{};
    /// The box at each cable, plugged in or not.
    std::array<Hid, 3> mBox{Boxes[0], Boxes[0], Boxes[0]};
    /// What the neighbours will say, and on which link.
    std::deque<std::pair<UINT8GIGEPORT, std::function<void()>>> mAnswers;
};
