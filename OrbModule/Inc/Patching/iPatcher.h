#pragma once

#include "MiscSource/LinkPatch.h"

#include <vector>

/// From joined slots to routes in the FPGA. Each operation ends in one write of the whole table. Main thread only.
class iPatcher
{
public:
    virtual ~iPatcher() = default;

    /// Joins the slots of the patch, or silences its destination slots if make is false.
    virtual void ProcessPatchUnpatch(const LinkPatch& patch, bool make) = 0;
    /// Silences the destination slots of all of them, in one table write.
    virtual void ProcessUnpatches(const std::vector<LinkPatch>& patches) = 0;
    /// Silences everything. Unused in this module.
    virtual void RemoveAllPatches() = 0;
};
