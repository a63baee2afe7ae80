#include "OrbModule/Inc/OrbComms/OrbCommandProcessor.h"

void OrbCommandProcessor::Dispatch(KLVCommandReadSet& set, unsigned char port, StreamType type)
{
    const std::lock_guard<std::mutex> lock(mLock);
    const CommandID id = set.GetCommandId();
    const auto entry = mDispatchers.find(id);
    if (entry == mDispatchers.end()) {
        set.Skip();
        AUDIT_LOG(CmdDebug, "Nothing registered for %s, skipping to end of data\n", CommandIdToText(id));
        return;
    }
    AUDIT_STREAM(CmdDebug, "Dispatch Command " << CommandIdToText(id) << " Received On Port [" << unsigned{port} << "] "
                                               << PortText(port) << "\r\n");
    if (!entry->second.mEmitter) {
        AuditAssertFailed(__FILE__, __LINE__, "mEmitter",
                          "Emitter functor is empty for CommandID " + std::to_string(id) + "\n");
        return;
    }
    try {
        entry->second.mEmitter(set, port, type);
    } catch (const std::exception& error) {
        set.MarkBad();
        AUDIT_LOG(Fault, "Command %s cannot be read: %s\r\n", CommandIdToText(id), error.what());
    }
}
