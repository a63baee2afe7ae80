#include "Utilities/Watch/Picture.h"

#include "Utilities/Watch/StateJson.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace watch {

namespace {

/// A local record whose device has gone.
bool IsGone(const Device& device)
{
    return device.local && !device.primary.online && !device.secondary.online && device.type == "Unknown(0)";
}

bool HasHid(const std::vector<Device>& devices, const std::string& hid)
{
    return std::any_of(devices.begin(), devices.end(), [&hid](const Device& device) { return device.hid == hid; });
}

} // namespace

std::string_view ContactName(Contact contact)
{
    constexpr std::string_view Names[] = {"away", "connecting", "silent", "live"};
    return Names[static_cast<std::size_t>(contact)];
}

void Picture::OnContact(Contact contact, Milliseconds now)
{
    if (contact == mContact && mContactSince != 0) return;
    if (contact == Contact::Live && mContact != Contact::Silent) {
        if (mWasLive) ++mRestarts;
        mWasLive = true;
        mLinks.Reset();
        Changed(Section::Links);
    }
    if (mStarted == 0) mStarted = now;
    mContact = contact;
    mContactSince = now;
    Changed(Section::Watch);
}

void Picture::OnVersion(const std::string& version)
{
    mVersion = version;
    Changed(Section::Module);
}

void Picture::OnMessage(LogMessage message, Milliseconds now)
{
    mLinks.OnMessage(message.text);
    Changed(Section::Links);
    Changed(Section::Module);
    if (mLog.Add(std::move(message), now)) Changed(Section::Faults);
}

void Picture::OnReply(const Reply& reply)
{
    switch (reply.command) {
    case ShellCommand::LocalAndIo:
    case ShellCommand::LocalAndRouting:
        TakeDevices(reply);
        break;
    case ShellCommand::Patches:
        mPatches.clear();
        for (const std::string& record : reply.records)
            if (auto patch = ParsePatch(record)) mPatches.push_back(std::move(*patch));
        std::sort(mPatches.begin(), mPatches.end(), [](const Patch& a, const Patch& b) {
            return std::pair(a.destination.hidNumber, a.destination.index) <
                   std::pair(b.destination.hidNumber, b.destination.index);
        });
        Changed(Section::Patches);
        break;
    case ShellCommand::Slots:
        mSlots = ParseSlots(reply.result);
        Changed(Section::Slots);
        break;
    case ShellCommand::Routes:
        mRoutes = ParseRoutes(reply.result);
        Changed(Section::Routes);
        break;
    case ShellCommand::Clocks:
        mClocks = ParseClocks(reply.result);
        Changed(Section::Clocks);
        break;
    case ShellCommand::ActiveClock:
        mActiveClock = Trim(reply.result);
        Changed(Section::Clocks);
        break;
    default:
        break;
    }
}

/// The first listing has the I/O devices, the second the local and the routing ones.
void Picture::TakeDevices(const Reply& reply)
{
    std::vector<Device> devices;
    for (const std::string& record : reply.records)
        if (auto device = ParseDevice(record); device && !IsGone(*device)) devices.push_back(std::move(*device));
    if (reply.command == ShellCommand::LocalAndIo) {
        mIoDevices = std::move(devices);
        return;
    }
    for (Device& device : mIoDevices)
        if (!HasHid(devices, device.hid)) devices.push_back(std::move(device));
    mIoDevices.clear();
    mDevices = std::move(devices);
    mLinks.OnLocalDevices(mDevices);
    Changed(Section::Devices);
    Changed(Section::Links);
    Changed(Section::Module);
}

void Picture::OnRound(Milliseconds now)
{
    mTaken = now;
    ++mRounds;
    Changed(Section::Watch);
}

void Picture::OnInformation(bool isOn)
{
    if (std::exchange(mInformation, isOn) != isOn) Changed(Section::Watch);
}

void Picture::OnSparing(bool sparing)
{
    if (std::exchange(mSparing, sparing) != sparing) Changed(Section::Watch);
}

void Picture::OnLong(ShellCommand command, bool isLong)
{
    const bool changed = isLong ? mLong.insert(TextOf(command)).second : mLong.erase(TextOf(command)) != 0;
    if (changed) Changed(Section::Watch);
}

bool Picture::AwaitsAnswer() const
{
    return std::any_of(mPatches.begin(), mPatches.end(), [](const Patch& patch) { return patch.AwaitsAnswer(); }) ||
           std::any_of(mClocks.sources.begin(), mClocks.sources.end(),
                       [](const ClockSource& source) { return source.lock == "locking"; });
}

const Picture::Cached& Picture::Current(Section section) const
{
    Cached& cached = mSections[Index(section)];
    if (std::exchange(cached.isStale, false)) {
        std::string json = SectionJson(*this, section);
        if (json != cached.json) ++cached.version;
        cached.json = std::move(json);
    }
    return cached;
}

std::uint64_t Picture::StateVersion() const
{
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < SectionCount; ++i)
        sum += Version(static_cast<Section>(i));
    return sum;
}

std::string Picture::Json(Milliseconds now) const
{
    std::string json =
        "{\"schema\":1,\"version\":" + std::to_string(StateVersion()) + ",\"time\":" + std::to_string(now);
    for (std::size_t i = 0; i < SectionCount; ++i) {
        json += ",\"" + std::string(SectionNames[i]) + "\":" + Json(static_cast<Section>(i));
    }
    return json + "}\n";
}

} // namespace watch
