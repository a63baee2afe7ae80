#include "Audit/Audit.h"
#include "OrbModule/Inc/LinkManager/K2LinkDriver.h"
#include "OrbModule/Inc/LinkManager/LinkManager.h"
#include "OrbModule/Inc/LinkManager/LinkRules.h"

#include <ios>

// The scan of the link driver's reports, on a thread of its own. Connections are built and destroyed on the main
// thread, by post. The endpoints that it works with are its own.

namespace {

std::string EndpointAddressText(const LinkManager::Endpoint& endpoint)
{
    return AddressText(endpoint.address().to_v4().to_uint());
}

} // namespace

void LinkManager::Scan()
{
    AUDIT_LOG(Information, "Scanning...\n");
    auto driver = std::make_unique<K2LinkDriver>(*this);
    K2LinkDriver::Registration registration = driver->GetRegistration();
    std::vector<Endpoint> current(mPortCount);
    while (!mStop) {
        K2LinkStatus status;
        if (driver->WaitForStatus(status)) {
            ScanReport(*driver, status, current);
        } else if (!mStop && !driver->IsCurrent()) {
            driver = std::make_unique<K2LinkDriver>(*this);
            FollowDriver(*driver, registration, current);
        }
    }
}

/// A driver that went and came back is registered under other ids, and it and its interfaces know nothing of the
/// module any more: their links end, and its reports, for which the new instance has asked, start them again.
void LinkManager::FollowDriver(K2LinkDriver& driver, K2LinkDriver::Registration& known, std::vector<Endpoint>& current)
{
    const K2LinkDriver::Registration found = driver.GetRegistration();
    if (!found.IsKnown() || found == known) return;
    known = found;
    if (!mHidKnown) return;
    for (std::size_t i = 0; i < current.size(); ++i) {
        const auto port = static_cast<UINT8GIGEPORT>(i);
        if (current[i] != Endpoint()) {
            PostDestruction(port);
            driver.ClearInterfaceAddress(port);
            current[i] = Endpoint();
        }
        WriteHidToDriver(GetRackHid(), port);
        if (mExternalGigEsUp) driver.InterfaceUp(port);
    }
}

void LinkManager::ScanReport(K2LinkDriver& driver, const K2LinkStatus& status, std::vector<Endpoint>& current)
{
    AUDIT_LOG(Information, "Scanned\r\n");
    const auto port = static_cast<UINT8GIGEPORT>(status.Port);
    const auto remotePort = static_cast<std::uint8_t>(status.RemotePort);
    if (port < mFsiInfo.size()) {
        FsiInfo& info = mFsiInfo[port];
        if (info.fsiEndpoint == 0) info.fsiEndpoint = status.FsiEndpoint;
        if (info.admaEndpoint == 0) info.admaEndpoint = status.AdmaEndpoint;
    }
    const std::uint32_t localRack = mRouters.Snapshot().localRack;
    AUDIT_STREAM(Information, "LID: " << RackText(localRack) << "LG:" << LinkPortText(port)
                                      << "RID: " << Hid(status.RemoteId) << "RG:" << LinkPortText(remotePort) << "LS "
                                      << std::hex << status.LinkState << "\n");
    if (!mHidKnown || port >= current.size()) return;

    const LinkRules::LinkEndpoints link = LinkRules::WorkOutEndpoints(localRack, status);
    AUDIT_STREAM(RouterConnectionDebug, "Local IP: " << EndpointAddressText(link.local)
                                                     << "Remote IP: " << EndpointAddressText(link.remote) << "\n");
    const LinkRules::LinkChange change = LinkRules::WorkOutLinkChange(current[port], link.local);
    if (change == LinkRules::LinkChange::None) return;
    AUDIT_STREAM(Information, "IP Difference Local IP: " << EndpointAddressText(link.local) << "Current IP: "
                                                         << EndpointAddressText(current[port]) << "\n");
    current[port] = link.local;

    int result = 0;
    // The connection over an address goes before the address does.
    if (change != LinkRules::LinkChange::Open) PostDestruction(port);
    if (change == LinkRules::LinkChange::Close) {
        result = driver.ClearInterfaceAddress(port);
    } else {
        result = driver.SetInterfaceAddress(port, link.local);
        Post([this, port, link, remotePort, remoteId = status.RemoteId] {
            CreateConnection(port, link.local, remotePort, link.remote, remoteId);
        });
    }
    if (result != 0) AUDIT_LOG(Information, "LinkManager::Scan Error %d\r\n", result);
}

void LinkManager::PostDestruction(UINT8GIGEPORT port)
{
    Post([this, port] { DestroyConnection(port); });
}
