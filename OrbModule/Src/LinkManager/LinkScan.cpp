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
    for (std::size_t i = 0; i < mCurrent.size(); ++i) {
        const auto port = static_cast<UINT8GIGEPORT>(i);
        if (mCurrent[i] != Endpoint()) {
            PostDestruction(port);
            mDriver->ClearInterfaceAddress(port);
            mCurrent[i] = Endpoint();
        }
        mManager.WriteHidToDriver(mManager.GetRackHid(), port);
        if (mManager.mExternalGigEsUp) mDriver->InterfaceUp(port);
    }
}

void LinkManager::LinkScan::OnReport(const K2LinkStatus& status)
{
    AUDIT_LOG(Information, "Scanned\r\n");
    const auto port = static_cast<UINT8GIGEPORT>(status.Port);
    const auto remotePort = static_cast<std::uint8_t>(status.RemotePort);
    if (port < mManager.mFsiInfo.size() && mManager.mFsiInfo[port] == 0) {
        mManager.mFsiInfo[port] = status.AdmaEndpoint;
    }
    const std::uint32_t localRack = mManager.mRouters.Snapshot().localRack;
    AUDIT_STREAM(Information, "LID: " << RackText(localRack) << "LG:" << LinkPortText(port)
                                      << "RID: " << Hid(status.RemoteId) << "RG:" << LinkPortText(remotePort) << "LS "
                                      << std::hex << status.LinkState << "\n");
    if (!mManager.mHidKnown || port >= mCurrent.size()) return;

    const LinkRules::LinkEndpoints link = LinkRules::WorkOutEndpoints(localRack, status);
    AUDIT_STREAM(RouterConnectionDebug, "Local IP: " << EndpointAddressText(link.local)
                                                     << "Remote IP: " << EndpointAddressText(link.remote) << "\n");
    const LinkRules::LinkChange change = LinkRules::WorkOutLinkChange(mCurrent[port], link.local);
    if (change == LinkRules::LinkChange::None) return;
    AUDIT_STREAM(Information, "IP Difference Local IP: " << EndpointAddressText(link.local) << "Current IP: "
                                                         << EndpointAddressText(mCurrent[port]) << "\n");
    mCurrent[port] = link.local;

    int result = 0;
    // The connection over an address goes before the address does.
    if (change != LinkRules::LinkChange::Open) PostDestruction(port);
    if (change == LinkRules::LinkChange::Close) {
        result = mDriver->ClearInterfaceAddress(port);
    } else {
        result = mDriver->SetInterfaceAddress(port, link.local);
        mManager.Post([manager = &mManager, port, link, remotePort, remoteId = status.RemoteId] {
            manager->CreateConnection(port, link.local, remotePort, link.remote, remoteId);
        });
    }
    if (result != 0) AUDIT_LOG(Information, "LinkManager::Scan Error %d\r\n", result);
}

void LinkManager::LinkScan::PostDestruction(UINT8GIGEPORT port)
{
    mManager.Post([manager = &mManager, port] { manager->DestroyConnection(port); });
}
