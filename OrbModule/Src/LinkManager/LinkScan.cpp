#include "OrbModule/Inc/LinkManager/LinkScan.h"

#include "Audit/Audit.h"

#include <ios>

namespace {

std::string EndpointAddressText(const LinkManager::Endpoint& endpoint)
{
    return AddressText(endpoint.address().to_v4().to_uint());
}

} // namespace

LinkManager::LinkScan::LinkScan(LinkManager& manager)
    : mManager(manager),
      mDriver(std::make_unique<K2LinkDriver>(manager)),
      mRegistration(mDriver->GetRegistration()),
      mCurrent(manager.mPortCount)
{}

bool LinkManager::LinkScan::TakeReport()
{
    K2LinkStatus status;
    if (!mDriver->WaitForStatus(status)) return false;
    OnReport(status);
    return true;
}

void LinkManager::LinkScan::FollowDriver()
{
    if (mDriver->IsCurrent()) return;
    mDriver = std::make_unique<K2LinkDriver>(mManager);
    const K2LinkDriver::Registration found = mDriver->GetRegistration();
    if (!found.IsKnown() || found == mRegistration) return;
    mRegistration = found;
    if (!mManager.mHidKnown) return;
    for (const LinkIndex link : FirstLinks(mManager.mPortCount)) {
        Endpoint& current = mCurrent[ToNumber(link)];
        if (current != Endpoint()) {
            PostDestruction(link);
            mDriver->ClearInterfaceAddress(link);
            current = Endpoint();
        }
        mManager.WriteHidToDriver(mManager.GetRackHid(), link);
        if (mManager.mExternalGigEsUp) mDriver->InterfaceUp(link);
    }
}

void LinkManager::LinkScan::OnReport(const K2LinkStatus& status)
{
    AUDIT_LOG(Information, "Scanned\r\n");
    const LinkIndex link = status.GetLink();
    const UINT8GIGEPORT number = ToNumber(link);
    const auto remotePort = static_cast<std::uint8_t>(status.RemotePort);
    if (number < mManager.mFsiInfo.size() && mManager.mFsiInfo[number] == 0) {
        mManager.mFsiInfo[number] = status.AdmaEndpoint;
    }
    const std::uint32_t localRack = mManager.mRouters.Snapshot().localRack;
    AUDIT_STREAM(Information, "LID: " << RackText(localRack) << "LG:" << LinkPortText(link)
                                      << "RID: " << Hid(status.RemoteId) << "RG:" << LinkPortText(remotePort) << "LS "
                                      << std::hex << status.LinkState << "\n");
    if (!mManager.mHidKnown || number >= mCurrent.size()) return;

    const LinkRules::LinkEndpoints ends = LinkRules::ComputeEndpoints(localRack, status);
    AUDIT_STREAM(RouterConnectionDebug, "Local IP: " << EndpointAddressText(ends.local)
                                                     << "Remote IP: " << EndpointAddressText(ends.remote) << "\n");
    Endpoint& current = mCurrent[number];
    const LinkRules::LinkChange change = LinkRules::DecideLinkChange(current, ends.local);
    if (change == LinkRules::LinkChange::None) return;
    AUDIT_STREAM(Information, "IP Difference Local IP: " << EndpointAddressText(ends.local)
                                                         << "Current IP: " << EndpointAddressText(current) << "\n");
    current = ends.local;

    int result{};
    // The connection over an address goes before the address does.
    if (change != LinkRules::LinkChange::Open) PostDestruction(link);
    if (change == LinkRules::LinkChange::Close) {
        result = mDriver->ClearInterfaceAddress(link);
    } else {
        result = mDriver->SetInterfaceAddress(link, ends.local);
        mManager.Post([manager = &mManager, link, ends, remotePort, remoteId = status.RemoteId] {
            manager->CreateConnection(link, ends.local, remotePort, ends.remote, remoteId);
        });
    }
    if (result != 0) AUDIT_LOG(Information, "LinkManager::Scan Error %d\r\n", result);
}

void LinkManager::LinkScan::PostDestruction(LinkIndex link)
{
    mManager.Post([manager = &mManager, link] { manager->DestroyConnection(link); });
}
