#include "Common/KLV/KLVWriteSet.h"

#include "Audit/Audit.h"
#include "Common/KLV/CommandIdTexts.h"

#include <algorithm>

namespace {

constexpr std::uint32_t LargeStringTag = 0x40000000;
constexpr std::size_t LargeString = 1024;
constexpr std::size_t DumpedBytes = 32;

} // namespace

KLVWriteSet::KLVWriteSet(DataStream& stream, std::uint32_t key, std::uint32_t length) : KLVSet(stream)
{
    mKey = key;
    mStream.ResetForWrite(false);
    mStream.BeginKey(key, mItemIndex, mValueMark, static_cast<std::int32_t>(length));
}

void KLVWriteSet::WriteNumber(const std::uint8_t* bytes, std::uint32_t size)
{
    if (mStream.Write(bytes, size)) return;
    AUDIT_LOG(Fault, "ERROR in KLVWriteSet::WriteNative - some data was not written for data key 0x%-8.8lx \n",
              static_cast<unsigned long>(mKey));
}

void KLVWriteSet::WriteString(const std::string& text)
{
    CheckStringLength(text);
    std::uint8_t count[4];
    StoreLittleEndian(static_cast<std::uint32_t>(text.size()), count);
    WriteRaw(count, sizeof count);
    WriteRaw(text.data(), static_cast<std::uint32_t>(text.size()));
}

void KLVWriteSet::CheckStringLength(const std::string& text)
{
    if (text.size() <= LargeString) return;
    Audit* const audit = Audit::Instance();
    audit->WriteStampedTagged(Audit::Stamp, LargeStringTag, "---- WARNING: LARGE STRING LENGTH %u ----\n",
                              static_cast<unsigned>(text.size()));
    std::string dump;
    char byte[8];
    for (std::size_t i = 0; i < std::min(text.size(), DumpedBytes); ++i) {
        std::snprintf(byte, sizeof byte, "%-2.2x ", static_cast<unsigned>(static_cast<unsigned char>(text[i])));
        dump += byte;
    }
    audit->WriteStampedTagged(Audit::Stamp, LargeStringTag, "%s\n", dump.c_str());
}

KLVCommandWriteSet::KLVCommandWriteSet(DataStream& stream, std::uint32_t version, std::uint32_t id,
                                       std::uint32_t length)
    : KLVWriteSet(stream, Klv::MakeCommandKey(version, id), length)
{}

KLVCommandWriteSet::~KLVCommandWriteSet()
{
    const std::uint32_t id = mKey & Klv::ID_MASK;
    AUDIT_LOG(KLVCommandWriteSetDebug, "KLVCommandWriteSet: %p (%u):%s\r\n", static_cast<const void*>(&mStream), id,
              CommandIdToText(id));
}

KLVPanelEventWriteSet::KLVPanelEventWriteSet(DataStream& stream, std::uint32_t eventId, std::uint32_t length)
    : KLVWriteSet(stream, Klv::PANEL_EVENT_KEY | (eventId & Klv::ID_MASK), length)
{}
