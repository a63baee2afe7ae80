#pragma once

#include "Utilities/Watch/LinkTracker.h"
#include "Utilities/Watch/Listings.h"
#include "Utilities/Watch/LogStore.h"
#include "Utilities/Watch/ShellSession.h"

#include <array>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace watch {

/// Away: no shell listens on the port. Silent: the shell is connected and does not answer.
enum class Contact { Away, Connecting, Silent, Live };
std::string_view ContactName(Contact contact);

/// The parts of the picture that change independently, each with its own version.
enum class Section { Watch, Module, Links, Devices, Patches, Slots, Routes, Clocks, Faults };
constexpr std::size_t SectionCount = 9;
constexpr std::array<std::string_view, SectionCount> SectionNames = {"watch", "module", "links",  "devices", "patches",
                                                                     "slots", "routes", "clocks", "faults"};

/// All that is known of the module: what the listings said last, what the log said since, and how old that is.
/// Whoever shows it asks for the versions of the sections and fetches those that have changed.
class Picture
{
public:
    explicit Picture(std::string shellAddress) : mShellAddress(std::move(shellAddress)) {}

    void OnContact(Contact contact, Milliseconds now);
    void OnVersion(const std::string& version);
    void OnMessage(LogMessage message, Milliseconds now);
    void OnReply(const Reply& reply);
    /// All listings of one round are in.
    void OnRound(Milliseconds now);
    /// The debug feature Information of the module is off, so that devices and patches cannot be listed.
    void OnInformation(bool isOn);
    /// The next picture waits so that listings do not fill the module's log.
    void OnSparing(bool sparing);
    /// Whether the result of this listing is longer than a message of the log.
    void OnLong(ShellCommand command, bool isLong);

    // What the sections are made of.
    Contact GetContact() const { return mContact; }
    Milliseconds ContactSince() const { return mContactSince; }
    /// The first contact. Another one means another OrbWatch, which counts the lines of the log from 1.
    Milliseconds Started() const { return mStarted; }
    /// 0 if none was taken.
    Milliseconds Taken() const { return mTaken; }
    const std::string& ShellAddress() const { return mShellAddress; }
    const std::string& Version() const { return mVersion; }
    bool IsInformationOn() const { return mInformation; }
    bool IsSparing() const { return mSparing; }
    std::uint64_t Restarts() const { return mRestarts; }
    std::uint64_t Rounds() const { return mRounds; }
    const std::set<std::string_view>& LongListings() const { return mLong; }
    const LinkTracker& Links() const { return mLinks; }
    const std::vector<Device>& Devices() const { return mDevices; }
    const std::vector<Patch>& Patches() const { return mPatches; }
    const SlotTable& Slots() const { return mSlots; }
    const std::vector<Sink>& Routes() const { return mRoutes; }
    const ClockTable& Clocks() const { return mClocks; }
    /// Name of the selected source, or "Internal".
    const std::string& ActiveClock() const { return mActiveClock; }
    const LogStore& Log() const { return mLog; }
    /// A patch waits for its answer, or a clock for its lock.
    bool AwaitsAnswer() const;

    /// The section as JSON, made when it is asked for.
    const std::string& Json(Section section) const { return Current(section).json; }
    /// Grows with each change of the section, not when the same is read again.
    std::uint64_t Version(Section section) const { return Current(section).version; }
    /// Sum of all versions.
    std::uint64_t StateVersion() const;
    /// The whole state.
    std::string Json(Milliseconds now) const;

private:
    struct Cached
    {
        std::uint64_t version = 0;
        bool isStale = true;
        std::string json{};
    };

    static std::size_t Index(Section section) { return static_cast<std::size_t>(section); }
    void Changed(Section section) { mSections[Index(section)].isStale = true; }
    const Cached& Current(Section section) const;
    void TakeDevices(const Reply& reply);

    const std::string mShellAddress;
    Contact mContact = Contact::Connecting;
    Milliseconds mContactSince = 0;
    Milliseconds mStarted = 0;
    Milliseconds mTaken = 0;
    bool mWasLive = false;
    bool mInformation = true;
    bool mSparing = false;
    std::uint64_t mRestarts = 0;
    std::uint64_t mRounds = 0;
    std::string mVersion;
    std::set<std::string_view> mLong;
    LinkTracker mLinks;
    std::vector<Device> mIoDevices;
    std::vector<Device> mDevices;
    std::vector<Patch> mPatches;
    SlotTable mSlots;
    std::vector<Sink> mRoutes;
    ClockTable mClocks;
    std::string mActiveClock;
    LogStore mLog;
    mutable std::array<Cached, SectionCount> mSections;
};

} // namespace watch
