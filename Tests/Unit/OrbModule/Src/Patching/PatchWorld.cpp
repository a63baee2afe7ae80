#include "Tests/Unit/OrbModule/Src/Patching/PatchWorld.h"

namespace {

constexpr Hid Desk = 0xC0010005;
constexpr Hid Boxes[] = {0xC0020001, 0xC0060001};
constexpr Hid HubNode = 0xC0058000;
constexpr Hid FarNode = 0xC0038000;
/// Three boxes, and two nodes: one of them in a rack without a number.
constexpr Hid FarSources[] = {0xC0030001, 0xC0030002, 0xC0030003, MakeNodeHid(FarNode), LOCAL_DSP_HID};
constexpr std::uint32_t FarBoxes = 3;

template <class Type>
std::shared_ptr<const Type> Share(const Type& command)
{
    return std::make_shared<const Type>(command);
}

} // namespace

bool PatchWorld::IsBox(const IoPort& port)
{
    return std::count(std::begin(Boxes), std::end(Boxes), port.GetHid()) != 0;
}

std::string PatchWorld::Text(const Wish& wish)
{
    std::ostringstream out;
    out << wish.source.GetHid() << '/' << wish.source.GetIndex() << " to " << wish.dest.GetHid() << '/'
        << wish.dest.GetIndex();
    return out.str();
}

/// What carries a slot now.
PatchWorld::Snapshot PatchWorld::TakeSnapshot() const
{
    Snapshot snapshot;
    for (UINT8GIGEPORT port = 0; port < Routing::PORT_COUNT; ++port) {
        for (std::uint32_t number = 0; number < Routing::SLOTS_PER_PORT; ++number) {
            const LinkSlot& slot = mController->GetLinkAllocation().GetSlot(port, number);
            if (!slot.IsInUse()) continue;
            snapshot[{port, number}] = {slot.mSource, slot.GetSourceLink().port, slot.GetSourceSlot()};
        }
    }
    return snapshot;
}

PatchWorld::PatchWorld(std::uint32_t seed)
    : RecordingComms([](const std::string&) {}, DeviceNames()), mRandom(seed), mBox{Boxes[0], Boxes[0], Boxes[0]}
{
    const DeviceManager::Delays atOnce{std::chrono::milliseconds{0}, std::chrono::milliseconds{0}};
    mDevices = std::make_unique<DeviceManager>(
        mService, *this, [](const std::string&, const std::string&) { return 0; }, atOnce, DeviceManager::Limits());
    mController = std::make_unique<PatchController>(*mDevices, *this, mBoard.GetPatcher());
    mDevices->LocalHidChanged.connect([this](Hid hid) { mController->OnLocalHidChanged(hid); });
    mDevices->NetworkConnectionChanged.connect([this](bool on) { mController->OnNetworkConnectionChanged(on); });
    mDevices->DeviceChange.connect([this](Hid hid, UINT8GIGEPORT port, bool online, StreamType type) {
        mController->OnDeviceChange(hid, port, online, type);
    });
    Settle();
}

void PatchWorld::Settle()
{
    // Timers that are due at once may be behind the handlers that run now.
    for (unsigned idle = 0; idle < 2;) {
        mService.restart();
        idle = mService.poll() == 0 ? idle + 1 : 0;
    }
}

// Events

void PatchWorld::Step()
{
    static const struct
    {
        std::uint32_t weight;
        void (PatchWorld::*play)();
    } events[] = {{40, &PatchWorld::MakePatch},   {20, &PatchWorld::BreakPatch},     {18, &PatchWorld::MoveCable},
                  {2, &PatchWorld::ExchangeBox},  {3, &PatchWorld::ChangeNeighbour}, {4, &PatchWorld::Flood},
                  {6, &PatchWorld::SendNonsense}, {3, &PatchWorld::DisturbSync},     {2, &PatchWorld::WithholdAnswers},
                  {3, &PatchWorld::Recover},      {2, &PatchWorld::TakeDeskIo},      {8, &PatchWorld::ReturnDeskIo}};
    std::uint32_t total = 0;
    for (const auto& event : events)
        total += event.weight;
    std::uint32_t dice = Dice(total);
    const auto* event = std::begin(events);
    while (dice >= event->weight)
        dice -= (event++)->weight;
    mConcern = Concern();
    mBefore = TakeSnapshot();
    (this->*event->play)();
    Settle();
}

void PatchWorld::MoveCable()
{
    const auto port = static_cast<UINT8GIGEPORT>(1 + Dice(2));
    if (mNeighbour == Neighbour::None) {
        ChangeNeighbour();
    } else if (mCables[port]) {
        mConcern = {Concern::Loss, port};
        PullCable(port);
    } else {
        mConcern = {Concern::Growth};
        PlugCable(port);
    }
}

void PatchWorld::TakeDeskIo()
{
    if (!mDeskThere) return;
    Note("the desk's I/O leaves");
    mConcern = {Concern::Loss, Routing::ORB_PORT};
    mDeskThere = false;
    mTold.clear();
    ReportDeskIo(0);
}

/// Whoever drives the patches sends them again.
void PatchWorld::ReturnDeskIo()
{
    if (mDeskThere) return;
    Note("the desk's I/O returns");
    mConcern = {Concern::Growth};
    mDeskThere = true;
    ReportDeskIo(UNIT_MASTER_CONTROL);
    Settle();
    for (const Wish& wish : mWishes)
        Order(wish, true);
}

void PatchWorld::ReportDeskIo(std::uint32_t address)
{
    mService.post([=] {
        mDevices->OnRemoteIoUpdate(Share(RemoteIoUpdate(RemoteDeviceType::Modular, Desk, address, Own)), 0,
                                   StreamType::LOCAL_LINK);
        if (address == 0) return;
        mDevices->ProcessIOCmd(Share(IoInfoCard(Desk, 0xFF, "", {}, {}, {})), 0, StreamType::LOCAL_LINK);
    });
}

void PatchWorld::WithholdAnswers()
{
    Note("answers are withheld");
    mWithhold = true;
}

void PatchWorld::PlugCable(UINT8GIGEPORT port)
{
    Note("plug " + PortText(port));
    // A box brings its primary cable first.
    if (port == Routing::SECONDARY_PORT) mBox[port] = mBox[Routing::PRIMARY_PORT];
    const bool isBox = mNeighbour == Neighbour::Box;
    if (isBox && mCables[OtherLinkPort(port)] && mBox[1] != mBox[2]) mConcern = {Concern::Anything};
    const Hid hid = isBox ? mBox[port] : HubNode;
    const K2Heartbeat::LinkType type = mNeighbour == Neighbour::Box   ? K2Heartbeat::K2_FIXED_FORMAT_TYPE
                                       : mNeighbour == Neighbour::Hub ? K2Heartbeat::K2_HUB_TYPE
                                                                      : K2Heartbeat::K2_ROUTER_TYPE;
    mCables[port] = true;
    mDevices->OnDeviceChanged(ToNumber(ToLinkIndex(port)), 0x0A000001u + port, static_cast<UINT8GIGEPORT>(port + 4),
                              0x0A0000F0u + port, hid, type);
    if (mNeighbour == Neighbour::Hub) {
        Settle();
        // The Orb router asks a node again itself: for the module a node in this form has no owner.
        for (const Wish& wish : mWishes) {
            if (IsNode(wish.source)) OrderFromOrb(wish, true, 0);
        }
    }
    if (mNeighbour != Neighbour::Router) return;
    mService.post([this, port] { mDevices->OnKLVStreamChanged(port, StreamType::LOCAL_LINK, 0, true); });
    Settle();
    // A router that comes sends what it wants over this link.
    for (const Wish& wish : mWishes)
        OrderFromRouter(wish, true, port);
}

void PatchWorld::PullCable(UINT8GIGEPORT port)
{
    Note("pull " + PortText(port));
    mCables[port] = false;
    // What the neighbour had not said yet stays unsaid.
    mWithheld.erase(
        std::remove_if(mWithheld.begin(), mWithheld.end(), [port](const auto& entry) { return entry.first == port; }),
        mWithheld.end());
    for (const Wish& wish : mWishes) {
        if (IsNameless(wish) && IsHeard(wish, port)) mStranded.insert(wish.dest);
    }
    mDevices->OnDeviceChanged(ToNumber(ToLinkIndex(port)), 0, UNKNOWN_GIGE_PORT, 0, INVALID_HID,
                              K2Heartbeat::K2_NO_TYPE);
}

void PatchWorld::ChangeNeighbour()
{
    Recover();
    ReturnDeskIo();
    Settle();
    mConcern = {Concern::Anything};
    for (const UINT8GIGEPORT port : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT}) {
        if (mCables[port]) PullCable(port);
        Settle();
    }
    const auto next = static_cast<Neighbour>(Dice(4));
    if (next == Neighbour::Router || mNeighbour == Neighbour::Router) {
        // What one of them wanted is nothing to the other.
        for (const Wish& wish : std::exchange(mUntold, {}))
            OrderFromOrb(wish, false, 0);
        for (const Wish& wish : mWishes)
            OrderFromOrb(wish, false, 0);
        mWishes.clear();
    }
    mNeighbour = next;
    Note("neighbour " + std::to_string(static_cast<int>(next)));
    if (next != Neighbour::None) PlugCable(static_cast<UINT8GIGEPORT>(1 + Dice(2)));
}

/// The old one stays on its secondary cable for as long as that is not pulled.
void PatchWorld::ExchangeBox()
{
    if (mNeighbour != Neighbour::Box || !mCables[1] || !mCables[2]) return;
    mConcern = {Concern::Anything};
    PullCable(Routing::PRIMARY_PORT);
    Settle();
    Hid& box = mBox[Routing::PRIMARY_PORT];
    box = box == Boxes[0] ? Boxes[1] : Boxes[0];
    Note("exchange of the box");
    PlugCable(Routing::PRIMARY_PORT);
}

IoPort PatchWorld::RandomSource(bool own)
{
    if (own) return IoPort(Desk, 1, Dice(8));
    if (mNeighbour == Neighbour::Box) return IoPort(mBox[1 + Dice(2)], 1, Dice(16));
    return IoPort(FarSources[Dice(5)], 1, Dice(4));
}

IoPort PatchWorld::RandomDest(bool own)
{
    if (own) return IoPort(Desk, 2, Dice(24));
    if (mNeighbour == Neighbour::Box) return IoPort(mBox[1 + Dice(2)], 2, Dice(16));
    return IoPort(FarSources[Dice(FarBoxes)], 2, Dice(12));
}

void PatchWorld::MakePatch()
{
    // An Orb router without its I/O has nothing to say.
    if (!mDeskThere) return;
    // Own to own does not pass this module, and far to far does not either.
    mConcern.kind = Concern::Patches;
    const bool ownSource = Dice(2) == 0;
    const bool ownDest = mNeighbour == Neighbour::Box && !ownSource ? Dice(3) != 0 : !ownSource;
    Wish wish{RandomSource(ownSource), RandomDest(ownDest)};
    // From one box to the other the audio would have to pass this module.
    if (IsBox(wish.source) && IsBox(wish.dest)) wish.dest = IoPort(wish.source.GetHid(), 2, Dice(16));
    const auto old = std::find_if(mWishes.begin(), mWishes.end(), [&](const Wish& w) { return w.dest == wish.dest; });
    if (old != mWishes.end()) {
        if (!(old->source == wish.source)) Order(*old, false);
        mWishes.erase(old);
    }
    mWishes.push_back(wish);
    Order(wish, true);
}

void PatchWorld::BreakPatch()
{
    if (mWishes.empty() || !mDeskThere) return;
    mConcern.kind = Concern::Patches;
    const auto wish = mWishes.begin() + Dice(static_cast<std::uint32_t>(mWishes.size()));
    const Wish ended = *wish;
    mWishes.erase(wish);
    Order(ended, false);
}

void PatchWorld::Flood()
{
    Note("flood");
    for (std::uint32_t i = 0; i < 60; ++i) {
        if (Dice(3) == 0) {
            BreakPatch();
        } else {
            MakePatch();
        }
    }
}

void PatchWorld::SendNonsense()
{
    Note("nonsense");
    const IoPort nobody(Hid(0xC0770000 + Dice(4096)), 1, Dice(4096));
    const Slots slots = Dice(2) == 0 ? Slots{600 + Dice(1000000)} : Slots(Dice(2000), Dice(700));
    const auto port = static_cast<UINT8GIGEPORT>(Dice(3));
    Deliver(RouterPatchAudio(PatchSource(nobody, static_cast<std::uint8_t>(Dice(256)), slots), nobody, nobody,
                             Dice(2) == 0, false),
            port);
    mController->ReceivedPatchSucessfulCmd(Share(PatchSucessfulCmd(nobody)), port, StreamType::LOCAL_LINK);
    mController->ReceivedPingCmd(Share(OstrelPingCmd("ORBMODULE", 0, 0)), port, StreamType::LOCAL_LINK);
    mController->OnDeviceChange(nobody.GetHid(), port, Dice(2) == 0, StreamType::LOCAL_LINK);
}

void PatchWorld::DisturbSync()
{
    switch (Dice(3)) {
    case 0:
        Note("syncs are held");
        mHeld = true;
        mBoard.GetFpga().SetHold(true);
        break;
    case 1:
        Note("syncs are late");
        mBoard.GetFpga().SetSyncTime(std::chrono::microseconds(Dice(1500)));
        break;
    default:
        if (mHeld || mLost) break;
        Note("the end of a sync is lost");
        mLost = true;
        mBoard.GetFpga().LoseEndOfSync(1);
    }
}

void PatchWorld::Recover()
{
    Note("recover");
    mConcern = {Concern::Anything};
    mHeld = false;
    mBoard.GetFpga().SetHold(false);
    mBoard.GetFpga().SetSyncTime(std::chrono::microseconds(0));
    if (mLost) {
        mLost = false;
        mBoard.GetFpga().LoseEndOfSync(0);
        mBoard.GetFpga().RaiseEvent("0003", 0);
    }
    mWithhold = false;
    for (auto& [port, answer] : std::exchange(mWithheld, {}))
        mService.post(std::move(answer));
}

// What the surroundings say

PatchWorld::Slots PatchWorld::SlotsOf(const IoPort& source, UINT8GIGEPORT port) const
{
    if (IsBox(source)) return {source.GetIndex()};
    const auto far = std::find(std::begin(FarSources), std::end(FarSources), source.GetHid()) - std::begin(FarSources);
    const auto block = IsOwn(source) ? 100u : 200u + 100u * port + 8u * static_cast<std::uint32_t>(far);
    const std::uint32_t first = block + 2 * source.GetIndex();
    return source.GetIndex() % 2 == 0 ? Slots{first} : Slots{first, first + 1};
}

void PatchWorld::Order(const Wish& wish, bool make)
{
    Note((make ? "make " : "break ") + Text(wish));
    if (!make) mTold.erase(wish.dest);
    if (mConcern.kind == Concern::Patches) mConcern.sources.push_back(ToHidPort(wish.source));
    if (mNeighbour != Neighbour::Router) {
        OrderFromOrb(wish, make, 0);
        return;
    }
    for (const UINT8GIGEPORT port : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT}) {
        if (mCables[port]) OrderFromRouter(wish, make, port);
    }
    if (!make && !mCables[1] && !mCables[2] && IsNameless(wish)) mUntold.push_back(wish);
}

void PatchWorld::OrderFromOrb(const Wish& wish, bool make, UINT8GIGEPORT link)
{
    if (!mDeskThere) return;
    mStranded.erase(wish.dest);
    const Slots slots = IsOwn(wish.source) ? SlotsOf(wish.source, 0) : Slots{};
    Deliver(RouterPatchAudio(PatchSource(wish.source, link, slots), wish.dest, wish.source, make, false), 0);
}

void PatchWorld::OrderFromRouter(const Wish& wish, bool make, UINT8GIGEPORT port)
{
    if (!mDeskThere) return;
    for (const Wish& ended : std::exchange(mUntold, {}))
        OrderFromRouter(ended, false, port);
    mStranded.erase(wish.dest);
    const Slots slots = IsOwn(wish.source) ? Slots{} : SlotsOf(wish.source, port);
    Deliver(RouterPatchAudio(PatchSource(wish.source, 0, slots), wish.dest, wish.source, make, false), port);
}

bool PatchWorld::IsHeard(const Wish& wish, UINT8GIGEPORT port) const
{
    const Snapshot slots = TakeSnapshot();
    return std::any_of(slots.begin(), slots.end(), [&](const auto& slot) {
        const auto& [place, carried] = slot;
        const LinkSlot& taken = mController->GetLinkAllocation().GetSlot(place.first, place.second);
        return place.first == Routing::ORB_PORT && carried.source == ToHidPort(wish.source) && carried.port == port &&
               taken.mDests.count(ToHidPort(wish.dest)) != 0;
    });
}

bool PatchWorld::IsWanted(const Wish& wish) const
{
    return std::any_of(mWishes.begin(), mWishes.end(),
                       [&](const Wish& w) { return w.source == wish.source && w.dest == wish.dest; });
}

void PatchWorld::Deliver(const RouterPatchAudio& command, UINT8GIGEPORT port)
{
    mService.post([this, shared = Share(command), port] {
        mController->ReceivedRouterPatchAudioCmd(shared, port, StreamType::LOCAL_LINK);
    });
}

void PatchWorld::Answer(UINT8GIGEPORT port, std::function<void()> answer)
{
    if (mWithhold) {
        mWithheld.emplace_back(port, std::move(answer));
    } else {
        mService.post(std::move(answer));
    }
}

void PatchWorld::Connect(std::uint32_t address, UINT8GIGEPORT port, std::uint16_t tcpPort)
{
    const StreamType type = tcpPort == 49190   ? StreamType::UPDATE_LINK
                            : tcpPort == 55100 ? StreamType::SLAVE_LINK
                                               : StreamType::LOCAL_LINK;
    mService.post([=] { mDevices->OnKLVStreamChanged(port, type, address, true); });
}

void PatchWorld::Disconnect(UINT8GIGEPORT port)
{
    mService.post([=] { mDevices->OnKLVStreamChanged(port, StreamType::LOCAL_LINK, 0, false); });
}

bool PatchWorld::Send(const StreamName& stream, const DeskCommand& command)
{
    const auto& [type, port, address, isByAddress] = stream;
    if (const auto* check = dynamic_cast<const DevicesToCheckAndUpdateCmd*>(&command)) {
        for (const auto& device : check->GetDevices()) {
            mService.post([this, result = Share(DeviceCheckResultsCmd(device.GetAddress(), 0))] {
                mDevices->OnDeviceCheckResults(result, 0, StreamType::UPDATE_LINK);
            });
        }
    } else if (type == StreamType::SLAVE_LINK && address == 0) {
        return false;
    } else if (type == StreamType::SLAVE_LINK) {
        OnNodeReceives((address & 0xFFFF) == 0x500 ? Routing::PRIMARY_PORT : Routing::SECONDARY_PORT, command);
    } else if (port == Routing::ORB_PORT) {
        OnOrbReceives(command);
    } else if (port < mCables.size() && mCables[port]) {
        OnNeighbourReceives(port, command);
    }
    return true;
}

void PatchWorld::OnOrbReceives(const DeskCommand& command)
{
    const auto type = StreamType::LOCAL_LINK;
    if (dynamic_cast<const RouterInfoReq*>(&command)) {
        mService.post(
            [=] { mDevices->ProcessIOCmd(Share(RouterInfo(Own, RemoteDeviceType::Orb, 512, 512, 0)), 0, type); });
    } else if (dynamic_cast<const IoInfoReq*>(&command)) {
        if (mDeskThere) ReportDeskIo(UNIT_MASTER_CONTROL);
    } else if (const auto* update = dynamic_cast<const RemoteIoUpdate*>(&command)) {
        // A device is there: the router of the desk sends its patches again.
        if (update->GetAddress() == 0 || mNeighbour == Neighbour::Router) return;
        for (const Wish& wish : mWishes) {
            if (wish.source.GetHid() == update->GetHid() || wish.dest.GetHid() == update->GetHid()) {
                OrderFromOrb(wish, true, 0);
            }
        }
    } else if (const auto* patch = dynamic_cast<const RouterPatchAudio*>(&command)) {
        OnOrbReceivesPatch(*patch);
    }
}

/// A source of the desk is wanted: it tells its slots, for the link that it was told.
void PatchWorld::OnOrbReceivesPatch(const RouterPatchAudio& command)
{
    if (command.GetUseMe()) {
        if (command.GetMake()) {
            mTold[command.GetDest()] = {command.GetOrig(), command.GetSource().GetSlots()};
        } else {
            mTold.erase(command.GetDest());
        }
        return;
    }
    const Wish wish{command.GetSource().GetPort(), command.GetDest()};
    if (!IsOwn(wish.source) || command.GetMake() != IsWanted(wish)) return;
    OrderFromOrb(wish, command.GetMake(), command.GetSource().GetLink());
}

void PatchWorld::OnNeighbourReceives(UINT8GIGEPORT port, const DeskCommand& command)
{
    const auto type = StreamType::LOCAL_LINK;
    if (mNeighbour == Neighbour::Box && dynamic_cast<const IoInfoReq*>(&command)) {
        Answer(port, [=] {
            mDevices->ProcessIOCmd(Share(IoInfo(mBox[port], 1, {"QV1320", "", "", "", ""})), port, type);
        });
    } else if (mNeighbour != Neighbour::Box && dynamic_cast<const RouterInfoReq*>(&command)) {
        const auto kind = mNeighbour == Neighbour::Hub ? RemoteDeviceType::Hub : RemoteDeviceType::Router;
        // Never withheld: a link that has not described itself yet does not count when the other one is lost.
        mService.post([=] {
            mDevices->ProcessIOCmd(Share(RouterInfo(HubNode, kind, 512, 512, 0)), port, type);
            DescribeFarDevices(port);
        });
    } else if (const auto* patch = dynamic_cast<const RouterPatchAudio*>(&command)) {
        if (!patch->GetMake() || mNeighbour != Neighbour::Router) return;
        Answer(port, [=, done = Share(PatchSucessfulCmd(patch->GetDest()))] {
            mController->ReceivedPatchSucessfulCmd(done, port, type);
        });
    }
}

void PatchWorld::DescribeFarDevices(UINT8GIGEPORT port)
{
    const auto type = StreamType::LOCAL_LINK;
    for (const Hid hid : FarSources) {
        if (IsNode(IoPort(hid, 1, 0))) {
            mDevices->OnRemoteRouterUpdate(
                Share(RemoteRouterUpdate(RemoteDeviceType::Orb, MakeLinkHid(hid), 0x0B000001, HubNode)), port, type);
        } else {
            mDevices->OnRemoteIoUpdate(Share(RemoteIoUpdate(RemoteDeviceType::FixedFormat, hid, 0x0B000002, FarNode)),
                                       port, type);
        }
    }
    if (mNeighbour != Neighbour::Router) return;
    mService.post([=] {
        for (const Wish& wish : mWishes)
            OrderFromRouter(wish, true, port);
    });
}

/// The far node describes its boxes and sends the audio that it is asked for.
void PatchWorld::OnNodeReceives(UINT8GIGEPORT port, const DeskCommand& command)
{
    if (!mCables[port]) return;
    if (const auto* request = dynamic_cast<const IoInfoDevReq*>(&command)) {
        Answer(port, [=, hid = request->GetHid()] {
            mDevices->ProcessIOCmd(Share(IoInfo(hid, 1, {"QV1320", "", "", "", ""})), port, StreamType::SLAVE_LINK);
        });
    } else if (const auto* patch = dynamic_cast<const RouterPatchAudio*>(&command)) {
        const Wish wish{patch->GetSource().GetPort(), patch->GetDest()};
        Answer(port, [=, make = patch->GetMake()] {
            // A node that is late has heard by then what became of the patch.
            if (make == IsWanted(wish)) OrderFromRouter(wish, make, port);
        });
    }
}
