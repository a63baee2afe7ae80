#pragma once

#include "OrbModule/Inc/DeviceManager/DeviceManager.h"
#include "OrbModule/Inc/Patching/PatchController.h"
#include "Tests/Unit/OrbModule/Src/Patching/PatchBoard.h"

#include <boost/asio/io_service.hpp>

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

class RouterPatchAudio;

/// A unit and its surroundings for the random test: the real directory, controller, slots, store, patcher and ADMA
/// manager over the simulated FPGA, and around them an Orb router, an update service and whatever is plugged in,
/// which answer as their likes do. The dice decide what happens next; the same seed gives the same events.
class PatchWorld : public iOrbKLVComms
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
    bool DisconnectPending(UINT8GIGEPORT, StreamType, bool& exists) override { return exists = false; }
    void Disconnect(std::uint32_t, StreamType) override {}
    bool SendCmd(UINT8GIGEPORT port, const DeskCommand& command, StreamType type, std::uint32_t address) override;
    void AddKLVStream(OrbKLVStream&) override {}
    void RemoveKLVStream(OrbKLVStream&) override {}
    std::uint32_t GetPortAddress(UINT8GIGEPORT) override { return 0; }

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

    // Events.
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
    std::string CheckTable() const;
    std::string CheckSlots();
    std::string CheckWishes();
    std::string CheckStates();
    bool IsDisturbed() const { return mHeld || mLost || !mWithheld.empty() || mWithhold; }
    bool IsCarried(const Wish& wish);
    bool MayWait(const Wish& wish) const;
    bool IsWaiting(const Wish& wish) const;
    bool HasEnd(const HidPort& port, UINT8GIGEPORT link);
    Slots SlotsOf(const IoPort& source, UINT8GIGEPORT port) const;
    PatchBoard::Feed FeedOf(UINT8GIGEPORT port, std::uint32_t slot) const;

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
    /// Where the Orb router was told to listen for each source; the first destination of a source tells it.
    std::unordered_map<IoPort, Slots> mToldSlots;
    bool mWithhold = false;
    std::vector<Withheld> mWithheld;
    bool mHeld = false;
    bool mLost = false;
    unsigned mBreaks = 0;
};
