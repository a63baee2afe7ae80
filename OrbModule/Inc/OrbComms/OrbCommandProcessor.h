#pragma once

#include "Audit/Audit.h"
#include "Common/KLV/CommandIdTexts.h"
#include "Common/KLV/KLVReadSet.h"
#include "OrbModule/Inc/OrbComms/PostedWork.h"
#include "OrbModule/Inc/OrbComms/iOrbKLVComms.h"

#include <boost/any.hpp>
#include <boost/asio/io_service.hpp>
#include <boost/core/demangle.hpp>
#include <boost/function.hpp>
#include <boost/signals2/signal.hpp>

#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <typeinfo>
#include <unordered_map>

/// Turns a KLV item into a typed call on the main service: it decodes the command on the socket thread and posts the
/// finished, immutable object to the slots of its class. A command class defines its id, its decoding and its signal.
///
/// mLock guards the registry. It is held while a command is decoded and during Connect, and is taken after the mutex of
/// the comms; slots never run under it.
class OrbCommandProcessor
{
public:
    using StreamType = iOrbKLVComms::StreamType;
    template <class X>
    using Signal = boost::signals2::signal<void(std::shared_ptr<X const>, unsigned char, StreamType)>;

    /// The entry of one command.
    class Dispatcher
    {
    public:
        template <class X>
        void Initialise(boost::asio::io_service& service, PostedWork& posted);
        /// Null, with an assertion line, if the entry was made for another class.
        template <class X>
        std::shared_ptr<Signal<X>> GetSignal();

        boost::function<void(KLVCommandReadSet&, unsigned char, StreamType)> mEmitter;

    private:
        boost::any mSignal;
    };

    explicit OrbCommandProcessor(boost::asio::io_service& service) : mService(service) {}

    /// Connects a slot to command class X; slots of one id run in the order of connection. Main thread.
    /// @return an empty connection, with assertion lines, if the id belongs to another class.
    template <class X>
    boost::signals2::connection Connect(const typename Signal<X>::slot_type& slot);

    /// Hands a command to its slots, or skips it if it has none. Socket thread.
    /// @param port a Routing::PortsEnum, on which the command arrived.
    void Dispatch(KLVCommandReadSet& set, unsigned char port, StreamType type);
    /// Of the commands and of whatever else the socket thread posts.
    PostedWork& GetPostedWork() { return mPosted; }

private:
    boost::asio::io_service& mService;
    std::unordered_map<CommandID, Dispatcher> mDispatchers{10};
    std::mutex mLock;
    PostedWork mPosted;
};

template <class X>
void OrbCommandProcessor::Dispatcher::Initialise(boost::asio::io_service& service, PostedWork& posted)
{
    const auto signal = std::make_shared<Signal<X>>();
    mSignal = signal;
    mEmitter = [&service, &posted, signal](KLVCommandReadSet& set, unsigned char port, StreamType type) {
        const std::size_t size = PostedWork::HandlerSize + set.GetBytesLeft();
        std::shared_ptr<X const> command = std::make_shared<X>(set);
        posted.Add(size);
        service.post([&posted, size, signal, command = std::move(command), port, type] {
            posted.TakeOff(size);
            try {
                (*signal)(command, port, type);
            } catch (const std::exception& error) {
                AUDIT_LOG(Fault, "Command %s: %s\r\n", CommandIdToText(X::ID), error.what());
            } catch (...) {
                AUDIT_LOG(Fault, "Command %s: unknown exception\r\n", CommandIdToText(X::ID));
            }
        });
    };
}

template <class X>
std::shared_ptr<OrbCommandProcessor::Signal<X>> OrbCommandProcessor::Dispatcher::GetSignal()
{
    try {
        return boost::any_cast<std::shared_ptr<Signal<X>>>(mSignal);
    } catch (const boost::bad_any_cast& error) {
        AuditAssertFailed(__FILE__, __LINE__, "false",
                          "Failed to get signal for Command " + boost::core::demangle(typeid(X).name()) + ": " +
                              error.what() + "\n");
    }
    return nullptr;
}

template <class X>
boost::signals2::connection OrbCommandProcessor::Connect(const typename Signal<X>::slot_type& slot)
{
    const std::lock_guard<std::mutex> lock(mLock);
    auto entry = mDispatchers.find(X::ID);
    if (entry == mDispatchers.end()) {
        entry = mDispatchers.emplace(X::ID, Dispatcher()).first;
        entry->second.template Initialise<X>(mService, mPosted);
    }
    const auto signal = entry->second.template GetSignal<X>();
    if (!signal) {
        AuditAssertFailed(__FILE__, __LINE__, "Signal",
                          "Failed to get signal of type " + boost::core::demangle(typeid(X).name()) +
                              " for CommandID " + std::to_string(X::ID) + "\n");
        return {};
    }
    return signal->connect(slot);
}
