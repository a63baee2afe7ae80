#pragma once

#include "FSI/Core/Fsi.h"
#include "MiscSource/FatalAssert.h"

#include <boost/bimap.hpp>
#include <memory>
#include <string>
#include <utility>

namespace fsi {

/// The named devices of the process, shared with their users. Nothing is ever removed. Main thread only.
class DeviceRegistry
{
public:
    using Devices = boost::bimap<std::string, std::shared_ptr<Fsi>>;

    DeviceRegistry() = default;
    DeviceRegistry(const DeviceRegistry&) = delete;
    DeviceRegistry& operator=(const DeviceRegistry&) = delete;

    /// Makes a T from the arguments and enters it under the alias, which must be new.
    /// @return the device, empty if it was not entered
    template <typename T, typename... Args>
    std::shared_ptr<T> Register(const std::string& alias, Args&&... args)
    {
        FATAL_ASSERT(mDevices.left.find(alias) == mDevices.left.end(), "Device aliases must be unique");
        std::shared_ptr<T> device = std::make_shared<T>(std::forward<Args>(args)...);
        const bool inserted = mDevices.insert({alias, device}).second;
        return inserted ? device : nullptr;
    }

    const Devices& GetDevices() const { return mDevices; }

private:
    Devices mDevices;
};

} // namespace fsi
