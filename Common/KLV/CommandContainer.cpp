#include "Common/KLV/CommandContainer.h"

#include "Audit/Audit.h"
#include "Common/KLV/DeskCommand.h"

#include <cstring>

void CommandContainer::Store(const ForwardableDeskCommand& command)
{
    if (!mCmdBuffer.empty()) {
        AuditAssertFailed(__FILE__, __LINE__, "false");
        return;
    }
    KLVCommandWriteSet set(*this, command.GetVersion(), command.GetCommandId(), command.GetLength());
    command.Write(set);
}

bool CommandContainer::WriteData(const void* src, std::uint32_t size)
{
    const auto* const bytes = static_cast<const std::uint8_t*>(src);
    mCmdBuffer.insert(mCmdBuffer.end(), bytes, bytes + size);
    return true;
}

bool CommandContainer::ReadData(void* dest, std::uint32_t size)
{
    if (mCmdBuffer.empty()) {
        AuditAssertFailed(__FILE__, __LINE__, "false");
        return false;
    }
    if (size > GetAvailable()) return false;
    if (size != 0) std::memcpy(dest, mCmdBuffer.data() + mReadCounter, size);
    mReadCounter += size;
    return true;
}

void CommandContainer::IgnoreData(std::uint32_t)
{
    AuditAssertFailed(__FILE__, __LINE__, "false");
}

void CommandContainer::Write(KLVWriteSet& set) const
{
    set.WriteNative(GetSize());
    set.WriteRaw(mCmdBuffer.data(), GetSize());
}

void CommandContainer::Read(KLVReadSet& set)
{
    const std::uint32_t size = set.ReadCount(1);
    if (size == 0) return;
    std::vector<std::uint8_t> bytes(size);
    if (!set.ReadRaw(bytes.data(), size)) return;
    if (!mCmdBuffer.empty()) {
        AuditAssertFailed(__FILE__, __LINE__, "false");
        return;
    }
    mCmdBuffer = std::move(bytes);
}

std::shared_ptr<KLVCommandReadSet> CommandContainer::GetReadSet()
{
    if (mCmdBuffer.empty()) {
        AuditAssertFailed(__FILE__, __LINE__, "mCmdBuffer");
        AuditAssertFailed(__FILE__, __LINE__, "mBufferSize > 0");
        return nullptr;
    }
    if (!mReadSet) {
        static_cast<void>(AUDIT_ASSERT(mReadCounter == 0));
        mReadSet = std::make_shared<KLVCommandReadSet>(*this);
    }
    return mReadSet;
}
