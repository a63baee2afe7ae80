#pragma once

#include "Audit/Audit.h"
#include "Common/KLV/Commands/Commands.h"
#include "OrbModule/Inc/DeviceManager/DeviceManager.h"
#include "OrbModule/Inc/Patching/PatchController.h"
#include "Tests/Support/SendOnlyComms.h"
#include "Tests/Unit/OrbModule/Src/Patching/PatchBoard.h"

#include <algorithm>
#include <random>
#include <unordered_map>

/// Random events for the real directory, controller, slots, store, patcher and ADMA manager over the simulated FPGA.
/// The Orb router, the update service and the neighbours on the links are simulated and answer as the real ones do.
/// The same seed gives the same events.
class RandomPatches : public SendOnlyComms
{
public:
    explicit RandomPatches(std::uint32_t seed) : mRandom(seed)
    {
        mDevices.LocalHidChanged.connect([this](Hid hid) { mController.OnLocalHidChanged(hid); });
        mDevices.NetworkConnectionChanged.connect([this](bool on) { mController.OnNetworkConnectionChanged(on); });
        mDevices.DeviceChange.connect([this](Hid hid, UINT8GIGEPORT port, bool online, StreamType type) {
            mController.OnDeviceChange(hid, port, online, type);
        });
        Settle();
    }
    ~RandomPatches() override { Recover(); }

    /// One event, played to its end.
    void Step()
    {
        static constexpr void (RandomPatches::*Events[])() = {
            &RandomPatches::MakePatch,    &RandomPatches::BreakPatch,      &RandomPatches::MoveCable,
            &RandomPatches::ExchangeBox,  &RandomPatches::ChangeNeighbour, &RandomPatches::Flood,
            &RandomPatches::SendNonsense, &RandomPatches::DisturbSync,     &RandomPatches::WithholdAnswers,
            &RandomPatches::Recover,      &RandomPatches::TakeDeskIo,      &RandomPatches::ReturnDeskIo};
        std::discrete_distribution<std::size_t> choose{40, 20, 18, 2, 3, 4, 6, 3, 2, 3, 2, 8};
        mBefore = mNow;
        mSources.clear();
        mMayChange = [](auto&&...) { return false; };
        const std::size_t event = choose(mRandom);
        AUDIT_STREAM(RouterAudioRoute, "---- event " << event << '\n');
        (this->*Events[event])();
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
    using Place = PatchBoard::Place;
    using Slots = std::vector<std::uint32_t>;
    /// What a slot in use carries: its source, and what feeds it.
    struct Carried
    {
        HidPort source;
        Place feed;
        bool operator==(const Carried& other) const { return source == other.source && feed == other.feed; }
    };
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
    /// Three boxes and a node.
    static constexpr Hid FarSources[] = {0xC0030001, 0xC0030002, 0xC0030003, MakeNodeHid(FarNode)};

    static bool IsOwn(const IoPort& port) { return GetRackId(port.GetHid()) == GetRackId(Own); }
    static bool IsBox(const IoPort& port) { return port.GetHid() == Boxes[0] || port.GetHid() == Boxes[1]; }
    static HidPort ToHidPort(const IoPort& port)
    {
        const Hid hid = port.GetHid();
        return {IsIoHid(hid) ? hid : MakeLinkHid(hid), port.GetIndex()};
    }
    static std::string Text(const Request& request)
    {
        std::ostringstream out;
        out << ToHidPort(request.source) << "to " << ToHidPort(request.dest);
        return out.str();
    }
    const LinkSlot& GetSlot(const Place& place) const
    {
        return mController.GetLinkAllocation().GetSlot(static_cast<UINT8GIGEPORT>(place.first), place.second);
    }
    /// Where a source arrives on a port.
    static Slots SlotsOf(const IoPort& source, UINT8GIGEPORT port)
    {
        if (IsBox(source)) return {source.GetIndex()};
        const auto far = std::find(std::begin(FarSources), std::end(FarSources), source.GetHid()) - FarSources;
        const auto block = IsOwn(source) ? 100u : 200u + 100u * port + 8u * static_cast<std::uint32_t>(far);
        const std::uint32_t first = block + 2 * source.GetIndex();
        return source.GetIndex() % 2 == 0 ? Slots{first} : Slots{first, first + 1};
    }
    /// While something is late, what should be heard may not be heard yet.
    bool IsDisturbed() const { return mHeld || mLost || !mWithheld.empty() || mWithhold; }

    /// Runs what is posted. Timers that are due at once may be behind the handlers that run now.
    void Settle()
    {
        for (unsigned idle = 0; idle < 2;) {
            mService.restart();
            idle = mService.poll() == 0 ? idle + 1 : 0;
        }
    }

    void BreakPatch()
    {
        if (mRequests.empty() || !mHasDeskIo) return;
        AllowPatches();
        const auto request = mRequests.begin() + Dice(static_cast<std::uint32_t>(mRequests.size()));
        const Request ended = *request;
        mRequests.erase(request);
        Order(ended, false);
    }
    void Recover()
    {
        AllowAnything();
        mHeld = false;
        mBoard.GetFpga().SetHold(false);
        mBoard.GetFpga().SetSyncTime(std::chrono::microseconds(0));
        if (std::exchange(mLost, false)) {
            mBoard.GetFpga().LoseEndOfSync(0);
            mBoard.GetFpga().RaiseEvent("0003", 0);
        }
        mWithhold = false;
        for (auto& [port, answer] : std::exchange(mWithheld, {}))
            mService.post(std::move(answer));
    }
    /// Whoever drives the patches sends them again.
    void ReturnDeskIo()
    {
        if (mHasDeskIo) return;
        AllowGrowth();
        mHasDeskIo = true;
        ReportDeskIo(UNIT_MASTER_CONTROL);
        Settle();
        for (const Request& request : mRequests)
            Order(request, true);
    }
    void AllowAnything()
    {
        mMayChange = [](auto&&...) { return true; };
    }

    boost::asio::io_service mService;
    PatchBoard mBoard;
    DeviceManager mDevices{mService, *this, [](auto&&...) { return 0; }, {{}, {}}, {}};
    PatchController mController{mDevices, *this, mBoard.GetPatcher()};
    std::vector<Request> mRequests;
    /// By destination: the source, and the slots in which the Orb router was told to listen.
    std::unordered_map<IoPort, std::pair<IoPort, Slots>> mListening;
    bool mHasDeskIo = true;
    bool mHeld = false;
    bool mLost = false;
    /// The slots in use, and those before the last step.
    std::map<Place, Carried> mNow, mBefore;
    /// Whether the last step may change a slot from one to the other; null is a free slot.
    std::function<bool(const Place&, const Carried* was, const Carried* now)> mMayChange;

private:
    enum Neighbour { None, Box, Hub, Router };

    // What events may change: slots of the sources that they name, those from or to a port that is lost, free slots.
    void AllowPatches()
    {
        mMayChange = [this](const Place&, const Carried* was, const Carried* now) {
            const auto isNamed = [this](const Carried* carried) {
                return !carried || std::count(mSources.begin(), mSources.end(), carried->source) != 0;
            };
            return isNamed(was) && isNamed(now);
        };
    }
    void AllowLoss(unsigned port)
    {
        mMayChange = [port](const Place& place, const Carried* was, const Carried* now) {
            return was && (!now || now->source == was->source) && (place.first == port || was->feed.first == port);
        };
    }
    void AllowGrowth()
    {
        mMayChange = [](const Place&, const Carried* was, const Carried*) { return !was; };
    }

    // The events.

    void MoveCable()
    {
        const auto port = static_cast<UINT8GIGEPORT>(1 + Dice(2));
        if (mNeighbour == None) {
            ChangeNeighbour();
        } else if (mCables[port]) {
            AllowLoss(port);
            PullCable(port);
        } else {
            AllowGrowth();
            PlugCable(port);
        }
    }
    void TakeDeskIo()
    {
        if (!mHasDeskIo) return;
        AllowLoss(Routing::ORB_PORT);
        mHasDeskIo = false;
        mListening.clear();
        ReportDeskIo(0);
    }
    void WithholdAnswers() { mWithhold = true; }
    void ChangeNeighbour()
    {
        Recover();
        ReturnDeskIo();
        Settle();
        AllowAnything();
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
        AllowAnything();
        PullCable(Routing::PRIMARY_PORT);
        Settle();
        mBox[1] = mBox[1] == Boxes[0] ? Boxes[1] : Boxes[0];
        PlugCable(Routing::PRIMARY_PORT);
    }
    void MakePatch()
    {
        // An Orb router without its I/O has nothing to say.
        if (!mHasDeskIo) return;
        AllowPatches();
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
    void SendNonsense()
    {
        const IoPort nobody(Hid(0xC0770000 + Dice(4096)), 1, Dice(4096));
        const Slots slots = Dice(2) == 0 ? Slots{600 + Dice(1000000)} : Slots(Dice(2000), Dice(700));
        const auto port = static_cast<UINT8GIGEPORT>(Dice(3));
        const PatchSource source(nobody, static_cast<std::uint8_t>(Dice(256)), slots);
        Deliver(RouterPatchAudio(source, nobody, nobody, Dice(2) == 0, false), port);
        Deliver(PatchSucessfulCmd(nobody), port);
        Deliver(OstrelPingCmd("ORBMODULE", 0, 0), port);
        mController.OnDeviceChange(nobody.GetHid(), port, Dice(2) == 0, LOCAL_LINK);
    }
    void DisturbSync()
    {
        const std::uint32_t kind = Dice(3);
        if (kind == 0) {
            mHeld = true;
            mBoard.GetFpga().SetHold(true);
        } else if (kind == 1) {
            mBoard.GetFpga().SetSyncTime(std::chrono::microseconds(Dice(1500)));
        } else if (!mHeld && !mLost) {
            mLost = true;
            mBoard.GetFpga().LoseEndOfSync(1);
        }
    }

    // What they are made of.

    std::uint32_t Dice(std::uint32_t sides) { return static_cast<std::uint32_t>(mRandom() % sides); }
    /// @param style 1 for a source, 2 for a destination, which nodes are not.
    IoPort RandomPort(bool own, std::uint32_t style)
    {
        if (own) return IoPort(Desk, style, Dice(style == 1 ? 8 : 24));
        if (mNeighbour == Box) return IoPort(mBox[1 + Dice(2)], style, Dice(16));
        return IoPort(FarSources[Dice(style == 1 ? 4 : 3)], style, Dice(style == 1 ? 4 : 12));
    }
    void PlugCable(UINT8GIGEPORT port)
    {
        // A box brings its primary cable first.
        if (port == Routing::SECONDARY_PORT) mBox[2] = mBox[1];
        const bool isBox = mNeighbour == Box;
        if (isBox && mCables[OtherLinkPort(ToPortsEnum(port))] && mBox[1] != mBox[2]) AllowAnything();
        mCables[port] = true;
        constexpr K2Heartbeat::LinkType Types[] = {K2Heartbeat::K2_NO_TYPE, K2Heartbeat::K2_FIXED_FORMAT_TYPE,
                                                   K2Heartbeat::K2_HUB_TYPE, K2Heartbeat::K2_ROUTER_TYPE};
        mDevices.OnDeviceChanged(ToNumber(ToLinkIndex(port)), 0x0A000001u + port, static_cast<UINT8GIGEPORT>(port + 4),
                                 0x0A0000F0u + port, isBox ? mBox[port] : HubNode, Types[mNeighbour]);
        if (mNeighbour == Hub) {
            Settle();
            // The Orb router asks a node again itself: for the module a node in this form has no owner.
            for (const Request& request : mRequests) {
                if (!IsIoHid(request.source.GetHid())) OrderFrom(0, request, true);
            }
        }
        if (mNeighbour != Router) return;
        mService.post([this, port] { mDevices.OnKLVStreamChanged(port, LOCAL_LINK, 0, true); });
        Settle();
        OrderAllFromRouter(port);
    }
    void PullCable(UINT8GIGEPORT port)
    {
        mCables[port] = false;
        // What the neighbour had not said yet stays unsaid.
        const auto isOfPort = [port](const auto& withheld) { return withheld.first == port; };
        mWithheld.erase(std::remove_if(mWithheld.begin(), mWithheld.end(), isOfPort), mWithheld.end());
        mDevices.OnDeviceChanged(ToNumber(ToLinkIndex(port)), 0, UNKNOWN_GIGE_PORT, 0, INVALID_HID,
                                 K2Heartbeat::K2_NO_TYPE);
    }
    /// Makes or breaks a patch, as whoever drives the patches would.
    void Order(const Request& request, bool make)
    {
        if (!make) mListening.erase(request.dest);
        mSources.push_back(ToHidPort(request.source));
        if (mNeighbour != Router) return OrderFrom(0, request, make);
        for (const UINT8GIGEPORT port : Links) {
            if (mCables[port]) OrderFrom(port, request, make);
        }
    }
    /// From the Orb router, port 0, or from the router on a link. Each knows the slots of its own sources.
    void OrderFrom(UINT8GIGEPORT port, const Request& request, bool make, UINT8GIGEPORT link = 0)
    {
        if (!mHasDeskIo) return;
        const Slots slots = IsOwn(request.source) == (port == 0) ? SlotsOf(request.source, port) : Slots{};
        const PatchSource source(request.source, link, slots);
        Deliver(RouterPatchAudio(source, request.dest, request.source, make, false), port);
    }
    void OrderAllFromRouter(UINT8GIGEPORT port)
    {
        for (const Request& request : mRequests)
            OrderFrom(port, request, true);
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
            } else if constexpr (std::is_same_v<Command, OstrelPingCmd>) {
                mController.ReceivedPingCmd(shared, port, type);
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
    void Answer(UINT8GIGEPORT port, const std::function<void()>& answer)
    {
        if (mWithhold) {
            mWithheld.emplace_back(port, answer);
        } else {
            mService.post(answer);
        }
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
            Answer(port, [=] { Deliver(IoInfo(mBox[port], 1, {"QV1320", "", "", "", ""}), port); });
        } else if (mNeighbour != Box && dynamic_cast<const RouterInfoReq*>(&command)) {
            // Never withheld: a link that has not described itself yet does not count when the other one is lost.
            const auto kind = mNeighbour == Hub ? RemoteDeviceType::Hub : RemoteDeviceType::Router;
            Deliver(RouterInfo(HubNode, kind, 512, 512, 0), port);
            for (const Hid hid : FarSources) {
                if (IsIoHid(hid)) {
                    Deliver(RemoteIoUpdate(RemoteDeviceType::FixedFormat, hid, 0x0B000002, FarNode), port);
                } else {
                    Deliver(RemoteRouterUpdate(RemoteDeviceType::Orb, FarNode, 0x0B000001, HubNode), port);
                }
            }
            if (mNeighbour == Router) mService.post([=] { OrderAllFromRouter(port); });
        } else if (const auto* patch = dynamic_cast<const RouterPatchAudio*>(&command)) {
            if (!patch->GetMake() || mNeighbour != Router) return;
            Answer(port, [=, dest = patch->GetDest()] { Deliver(PatchSucessfulCmd(dest), port); });
        }
    }
    /// The far node describes its boxes and sends the audio that it is asked for.
    void OnNodeReceives(UINT8GIGEPORT port, const DeskCommand& command)
    {
        if (!mCables[port]) return;
        if (const auto* request = dynamic_cast<const IoInfoDevReq*>(&command)) {
            Answer(port, [=, hid = request->GetHid()] {
                Deliver(IoInfo(hid, 1, {"QV1320", "", "", "", ""}), port, SLAVE_LINK);
            });
        } else if (const auto* patch = dynamic_cast<const RouterPatchAudio*>(&command)) {
            const Request wanted{patch->GetSource().GetPort(), patch->GetDest()};
            Answer(port, [=, make = patch->GetMake()] {
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
    /// Sources of the patches of the last step.
    std::vector<HidPort> mSources;
    bool mWithhold = false;
    /// What a neighbour will say on a link later.
    std::vector<std::pair<UINT8GIGEPORT, std::function<void()>>> mWithheld;
};
