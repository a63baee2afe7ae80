#pragma once

#include "OrbModule/Inc/DeviceManager/DeviceManager.h"
#include "OrbModule/Inc/Patching/PatchController.h"
#include "Tests/Support/SendOnlyComms.h"
#include "Tests/Unit/OrbModule/Src/Patching/PatchBoard.h"

#include <boost/asio/io_service.hpp>

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

class RouterPatchAudio;

/// A unit and its surroundings for the random test: the real directory, controller, slots, store, patcher and ADMA
/// manager over the simulated FPGA, and around them an Orb router, an update service and whatever is plugged in,
/// which answer as their likes do. The dice decide what happens next; the same seed gives the same events.
class PatchWorld : public SendOnlyComms
{
public:
    /// A fault that the checks must find.
    enum class Sabotage {
        None,
        /// From some point on, routes are not silenced when their patch ends.
        StaleRoute,
        /// From some point on, patches that end are not taken off their slots.
        SlotLeak
    };

    PatchWorld(std::uint32_t seed, Sabotage sabotage);
    ~PatchWorld() override;

    /// One event, played to its end.
    void Step();
    /// What is not as it must be; empty if all is.
    std::string Check();
    /// Breaks every patch; then what was not given back.
    std::string CheckEnd();
    /// The last events in words.
    std::string GetTrail() const;

    void Connect(std::uint32_t address, UINT8GIGEPORT port, std::uint16_t tcpPort) override;
    void Disconnect(UINT8GIGEPORT port) override;
    using SendOnlyComms::Disconnect;
    bool Send(const StreamName& stream, const DeskCommand& command) override;

private:
    enum class Neighbour { None, Box, Hub, Router };
    struct Wish
    {
        IoPort source;
        IoPort dest;
    };
    /// What a neighbour will say on a link later.
    struct Withheld
    {
        UINT8GIGEPORT port;
        std::function<void()> answer;
    };
    using Slots = std::vector<std::uint32_t>;
    class Saboteur;

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
    /// What a slot in use carries.
    struct Carried
    {
        HidPort source;
        UINT8GIGEPORT fromPort = UNKNOWN_GIGE_PORT;
        std::uint32_t fromSlot = INVALID_TDM_SLOT;

        friend bool operator==(const Carried& a, const Carried& b)
        {
            return a.source == b.source && a.fromPort == b.fromPort && a.fromSlot == b.fromSlot;
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
    static HidPort ToHidPort(const IoPort& port);
    static bool IsOwn(const IoPort& port);
    static bool IsBox(const IoPort& port);
    static std::string Text(const IoPort& port);
    static std::string Name(const Place& place);

    // Events.
    void MoveCable();
    void TakeDeskIo();
    void ReturnDeskIo();
    void ReportDeskIo(std::uint32_t address);
    void WithholdAnswers();
    void PlugCable(UINT8GIGEPORT port);
    void PullCable(UINT8GIGEPORT port);
    void ChangeNeighbour();
    void ExchangeBox();
    void MakePatch();
    void BreakPatch();
    void Flood();
    void SendNonsense();
    void DisturbSync();
    void Recover();

    // What the surroundings say.
    void Order(const Wish& wish, bool make);
    void OrderFromOrb(const Wish& wish, bool make, UINT8GIGEPORT link);
    void OrderFromRouter(const Wish& wish, bool make, UINT8GIGEPORT port);
    bool IsWanted(const IoPort& source, const IoPort& dest) const;
    void Deliver(const RouterPatchAudio& command, UINT8GIGEPORT port);
    void OnOrbReceives(const DeskCommand& command);
    void OnOrbReceivesPatch(const RouterPatchAudio& command);
    void OnNeighbourReceives(UINT8GIGEPORT port, const DeskCommand& command);
    void OnNodeReceives(UINT8GIGEPORT port, const DeskCommand& command);
    void DescribeFarDevices(UINT8GIGEPORT port);
    void Answer(UINT8GIGEPORT port, std::function<void()> answer);
    void Settle();

    // What is right.
    Snapshot TakeSnapshot() const;
    std::string CheckTable() const;
    std::string CheckChanges() const;
    std::string CheckSlots();
    std::string CheckWishes();
    std::string CheckStates();
    bool IsDisturbed() const { return mHeld || mLost || !mWithheld.empty() || mWithhold; }
    bool IsOfThisStep(const HidPort& source) const;
    bool IsCarried(const Wish& wish);
    std::size_t CountHeard(const Wish& wish, UINT8GIGEPORT from, UINT8GIGEPORT to);
    bool HasEnd(const HidPort& port, UINT8GIGEPORT link);
    Slots SlotsOf(const IoPort& source, UINT8GIGEPORT port) const;

    std::uint32_t Dice(std::uint32_t sides) { return static_cast<std::uint32_t>(mRandom() % sides); }
    IoPort RandomSource(bool own);
    IoPort RandomDest(bool own);
    void Note(const std::string& event);

    std::mt19937 mRandom;
    std::deque<std::string> mTrail;
    boost::asio::io_service mService;
    PatchBoard mBoard;
    std::unique_ptr<Saboteur> mSaboteur;
    Sabotage mSabotage;
    std::unique_ptr<DeviceManager> mDevices;
    std::unique_ptr<PatchController> mController;

    Neighbour mNeighbour = Neighbour::None;
    std::array<bool, 3> mCables{};
    /// The box at each cable, plugged in or not.
    std::array<Hid, 3> mBox;
    std::vector<Wish> mWishes;
    std::unordered_map<IoPort, Told> mTold;
    bool mDeskThere = true;
    Concern mConcern;
    /// The slots before the last step.
    Snapshot mBefore;
    bool mWithhold = false;
    std::vector<Withheld> mWithheld;
    bool mHeld = false;
    bool mLost = false;
    unsigned mBreaks = 0;
};
