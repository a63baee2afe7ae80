#pragma once

#include "OrbModule/Inc/DeviceManager/DeviceRecord.h"

#include <cstddef>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

/// The records of all remote devices, found by identity and by the router that reported them, so that no event
/// about one device or router examines all others. Main thread.
class RemoteDevices
{
public:
    /// Against peers that report devices without end.
    static constexpr std::size_t MaxRecords = 65536;

    /// @param limit the most records that the table holds.
    explicit RemoteDevices(std::size_t limit = MaxRecords) : mLimit(limit) {}

    /// The record, or null. Its Hid and Owner stay as they are. Valid until the record is erased.
    DeviceRecord* Find(Hid hid) { return const_cast<DeviceRecord*>(std::as_const(*this).Find(hid)); }
    const DeviceRecord* Find(Hid hid) const;
    struct Inserted
    {
        DeviceRecord* record; ///< null if the table is full
        bool isNew;
    };
    /// Stores the record, or returns the one with this identity. A full table refuses, and logs that the first time.
    Inserted Insert(DeviceRecord record);
    void Erase(Hid hid);

    /// Identities in ascending order: callers erase records while they go through them, and listings and
    /// the order of commands do not depend on a hash.
    std::vector<Hid> GetHids() const;
    std::vector<Hid> GetOwnedBy(Hid owner) const;

private:
    std::unordered_map<Hid, DeviceRecord> mRecords{10};
    std::unordered_map<Hid, std::unordered_set<Hid>> mOwned;
    std::size_t mLimit;
    bool mLimitReported = false;
};
