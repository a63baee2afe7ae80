#pragma once

#include "FSI/Core/DeviceRegistry.h"

#include <boost/bimap.hpp>
#include <memory>
#include <string>

namespace fsi {

/// The devices of type T in a registry at the time the view was built, in alias order. Main thread only.
template <typename T>
class DeviceRegistryView
{
public:
    using Devices = boost::bimap<std::string, std::shared_ptr<T>>;
    /// Walks pairs of alias (`first`) and device (`second`).
    using const_iterator = typename Devices::left_map::const_iterator;

    /// No registry gives an empty view.
    explicit DeviceRegistryView(const DeviceRegistry* registry)
    {
        if (!registry) return;
        for (const auto& entry : registry->GetDevices().left) {
            std::shared_ptr<T> device = std::dynamic_pointer_cast<T>(entry.second);
            if (device) mDevices.insert({entry.first, device});
        }
    }

    /// The device of that alias, empty if the view has none.
    std::shared_ptr<T> Get(const std::string& alias) const
    {
        const auto entry = mDevices.left.find(alias);
        return entry == mDevices.left.end() ? nullptr : entry->second;
    }

    const_iterator begin() const { return mDevices.left.begin(); }
    const_iterator end() const { return mDevices.left.end(); }

private:
    Devices mDevices;
};

} // namespace fsi
