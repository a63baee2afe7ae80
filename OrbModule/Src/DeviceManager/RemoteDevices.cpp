#include "OrbModule/Inc/DeviceManager/RemoteDevices.h"

#include "Audit/Audit.h"

#include <algorithm>

const DeviceRecord* RemoteDevices::Find(Hid hid) const
{
    const auto found = mRecords.find(hid);
    return found == mRecords.end() ? nullptr : &found->second;
}

RemoteDevices::Inserted RemoteDevices::Insert(DeviceRecord record)
{
    if (DeviceRecord* known = Find(record.Hid)) return {known, false};
    if (mRecords.size() >= mLimit) {
        if (!mLimitReported)
            AUDIT_STREAM(Fault, "Device directory is full (" << mLimit << " devices), ignoring device " << record.Hid
                                                             << "and all further ones\n");
        mLimitReported = true;
        return {nullptr, false};
    }
    const Hid hid = record.Hid;
    mOwned[record.Owner].insert(hid);
    return {&mRecords.emplace(hid, std::move(record)).first->second, true};
}

void RemoteDevices::Erase(Hid hid)
{
    const auto found = mRecords.find(hid);
    if (found == mRecords.end()) return;
    const auto owned = mOwned.find(found->second.Owner);
    if (owned != mOwned.end()) {
        owned->second.erase(hid);
        if (owned->second.empty()) mOwned.erase(owned);
    }
    mRecords.erase(found);
}

std::vector<Hid> RemoteDevices::GetHids() const
{
    std::vector<Hid> hids;
    hids.reserve(mRecords.size());
    for (const auto& entry : mRecords)
        hids.push_back(entry.first);
    std::sort(hids.begin(), hids.end());
    return hids;
}

std::vector<Hid> RemoteDevices::GetOwnedBy(Hid owner) const
{
    std::vector<Hid> hids;
    const auto found = mOwned.find(owner);
    if (found == mOwned.end()) return hids;
    hids.assign(found->second.begin(), found->second.end());
    std::sort(hids.begin(), hids.end());
    return hids;
}
