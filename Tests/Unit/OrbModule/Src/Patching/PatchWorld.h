#pragma once

#include "Audit/Audit.h"
#include "OrbModule/Inc/DeviceManager/DeviceManager.h"
#include "OrbModule/Inc/Patching/PatchController.h"
#include "Tests/Support/RecordingComms.h"
#include "Tests/Unit/OrbModule/Src/Patching/PatchBoard.h"

#include <algorithm>
#include <random>
#include <unordered_map>
#include <unordered_set>

/// A unit and its surroundings for the random test: the real directory, controller, slots, store, patcher and ADMA
/// manager over the simulated FPGA, and around them an Orb router, an update service and whatever is plugged in,
/// which answer as their likes do. The dice decide what happens next; the same seed gives the same events.
class PatchWorld : public RecordingComms
{
public:
    explicit PatchWorld(std::uint32_t seed);
    ~PatchWorld() override { Recover(); }

    /// One event, played to its end.
    void Step();

    void Connect(std::uint32_t address, UINT8GIGEPORT port, std::uint16_t tcpPort) override;
    void Disconnect(UINT8GIGEPORT port) override;
    using RecordingComms::Disconnect;
    bool Send(const StreamName& stream, const DeskCommand& command) override;

protected:
    enum class Neighbour { None, Box, Hub, Router };
    struct Wish
    {
        IoPort source;
        IoPort dest;
    };
    using Slots = std::vector<std::uint32_t>;

    /// What a step may change.
    struct Concern
    {
        enum Kind {
            Nothing,
            /// Slots of these sources.
            Patches,
            /// What came from or went to a port that is lost.
            Loss,
            /// Free slots.
            Growth,
            Anything
        };
        Kind kind = Nothing;
        UINT8GIGEPORT port = UNKNOWN_GIGE_PORT;
        std::vector<HidPort> sources{};
    };
    /// What a slot in use carries: its source, and the port and slot that feed it.
    struct Carried
    {
        HidPort source;
        UINT8GIGEPORT port;
        std::uint32_t slot;
        bool operator==(const Carried& other) const
        {
            return source == other.source && port == other.port && slot == other.slot;
        }
    };
    using Place = std::pair<UINT8GIGEPORT, std::uint32_t>;
    using Snapshot = std::map<Place, Carried>;
    /// Where the Orb router was told to listen for a destination.
    struct Told
    {
        IoPort source;
        Slots slots;
    };

    static constexpr Hid Own = 0xC0014000;

    static HidPort ToHidPort(const IoPort& port)
    {
        const Hid hid = port.GetHid();
        return {IsNode(port) ? MakeLinkHid(hid) : hid, port.GetIndex()};
    }
    static bool IsNode(const IoPort& port) { return !IsIoHid(port.GetHid()) || port.GetHid() == LOCAL_DSP_HID; }
    static bool IsOwn(const IoPort& port) { return GetRackId(port.GetHid()) == GetRackId(Own); }
    static bool IsBox(const IoPort& port);
    static std::string Text(const Wish& wish);

    void Settle();
    Snapshot TakeSnapshot() const;
    Slots SlotsOf(const IoPort& source, UINT8GIGEPORT port) const;
    /// Whether the desk hears the source over this port.
    bool IsHeard(const Wish& wish, UINT8GIGEPORT port) const;
    /// While something is late, what should be heard may not be heard yet.
    bool IsDisturbed() const { return mHeld || mLost || !mWithheld.empty() || mWithhold; }

    // Events.
    void MoveCable();
    void TakeDeskIo();
    void ReturnDeskIo();
    void WithholdAnswers();
    void ChangeNeighbour();
    void ExchangeBox();
    void MakePatch();
    void BreakPatch();
    void Flood();
    void SendNonsense();
    void DisturbSync();
    void Recover();
    void Deliver(const RouterPatchAudio& command, UINT8GIGEPORT port);

    boost::asio::io_service mService;
    PatchBoard mBoard;
    std::unique_ptr<DeviceManager> mDevices;
    std::unique_ptr<PatchController> mController;

    std::vector<Wish> mWishes;
    std::unordered_map<IoPort, Told> mTold;
    /// A node without a number has two forms: the departures that are reported name it by one, the store by the other.
    static bool IsNameless(const Wish& wish) { return wish.source.GetHid() == LOCAL_DSP_HID; }
    /// What it lost with a link stays silent until it is asked for again,
    std::unordered_set<IoPort> mStranded;
    /// and stays in the store until it is broken, so a router that had no link then breaks it later.
    std::vector<Wish> mUntold;
    bool mDeskThere = true;
    Concern mConcern;
    /// The slots before the last step.
    Snapshot mBefore;
    bool mHeld = false;
    bool mLost = false;

private:
    void ReportDeskIo(std::uint32_t address);
    void PlugCable(UINT8GIGEPORT port);
    void PullCable(UINT8GIGEPORT port);
    void Order(const Wish& wish, bool make);
    void OrderFromOrb(const Wish& wish, bool make, UINT8GIGEPORT link);
    void OrderFromRouter(const Wish& wish, bool make, UINT8GIGEPORT port);
    bool IsWanted(const Wish& wish) const;
    void OnOrbReceives(const DeskCommand& command);
    void OnOrbReceivesPatch(const RouterPatchAudio& command);
    void OnNeighbourReceives(UINT8GIGEPORT port, const DeskCommand& command);
    void OnNodeReceives(UINT8GIGEPORT port, const DeskCommand& command);
    void DescribeFarDevices(UINT8GIGEPORT port);
    void Answer(UINT8GIGEPORT port, std::function<void()> answer);

    std::uint32_t Dice(std::uint32_t sides) { return static_cast<std::uint32_t>(mRandom() % sides); }
    IoPort RandomSource(bool own);
    IoPort RandomDest(bool own);
    static void Note(const std::string& event) { AUDIT_STREAM(RouterAudioRoute, "---- " << event << '\n'); }

    std::mt19937 mRandom;
    Neighbour mNeighbour = Neighbour::None;
    std::array<bool, 3> mCables{};
    /// The box at each cable, plugged in or not.
    std::array<Hid, 3> mBox;
    bool mWithhold = false;
    /// What a neighbour will say on a link later.
    std::vector<std::pair<UINT8GIGEPORT, std::function<void()>>> mWithheld;
};
