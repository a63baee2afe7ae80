#pragma once

#include "OrbModule/Inc/LinkManager/LinkManager.h"

#include <memory>
#include <vector>

/// Turns the reports of the link driver into addresses of the interfaces and into links. It belongs to the scan thread;
/// links are opened and closed on the main thread, by post.
class LinkManager::LinkScan
{
public:
    explicit LinkScan(LinkManager& manager);

    /// Waits for a report and acts on it. False if none came.
    bool TakeReport();
    /// Follows a driver that was restarted: it has other ids, and it and its interfaces have lost the module's
    /// settings. Ends the links and asks for reports, which start them again.
    void FollowDriver();

private:
    void OnReport(const K2LinkStatus& status);
    void PostDestruction(LinkIndex link);

    LinkManager& mManager;
    std::unique_ptr<K2LinkDriver> mDriver;
    K2LinkDriver::Registration mRegistration;
    /// The local endpoint of each link.
    std::vector<Endpoint> mCurrent;
};
