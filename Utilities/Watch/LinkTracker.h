#pragma once

#include "Utilities/Watch/Listings.h"

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace watch {

/// State of one aspect of a link. Most do not appear in the shell's listings, so they come from the log; what happened
/// before the log was first read is unknown.
enum class Fact { Unknown, No, Underway, Yes, NotNeeded };
std::string_view FactName(Fact fact);

struct LinkFacts
{
    Fact cable = Fact::Unknown;
    Fact beating = Fact::Unknown;
    Fact stream = Fact::Unknown;
    Fact check = Fact::Unknown;
    Fact described = Fact::Unknown;
    /// Empty if there is no neighbour.
    std::string neighbour{};
    std::string type{};
    std::string localAddress{};
    std::string remoteAddress{};
};

/// Follows the links through the lines of the log, and holds the listings against that.
class LinkTracker
{
public:
    void OnMessage(std::string_view text);
    void OnLocalDevices(const std::vector<Device>& devices);
    /// All is unknown again: another module may be there now.
    void Reset();

    /// Port::Orb has a stream and nothing else.
    const LinkFacts& Link(Port port) const { return mLinks[static_cast<std::size_t>(port)]; }
    /// The identity of the module's rack, empty if it was not seen.
    const std::string& ModuleHid() const { return mModuleHid; }
    Fact UpdateService() const { return mUpdateService; }
    /// Whether a master router is in charge.
    Fact Network() const { return mNetwork; }

private:
    LinkFacts& At(Port port) { return mLinks[static_cast<std::size_t>(port)]; }
    void OnCable(std::string_view rest);
    void OnNeighbour(std::string_view rest);
    void OnStream(std::string_view rest);
    void OnCheck();
    void OnRoute(std::string_view rest);

    std::array<LinkFacts, PortCount> mLinks;
    Port mLastStream = Port::Unknown;
    std::string mModuleHid;
    Fact mUpdateService = Fact::Unknown;
    Fact mNetwork = Fact::Unknown;
};

} // namespace watch
