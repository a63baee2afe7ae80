#include "Common/KLV/Commands/NotificationCommands.h"

namespace {

const std::map<std::uint8_t, std::string> Texts = {
    {SornMasterRouterNotification::SAMPLE_RATE,
     "Invalid sample rate for use with the detected Korvo2 network.|This console is currently running as a standalone "
     "console. Load a show of a sample rate supported by the network, and reset to join the Korvo2 network."},
    {SornMasterRouterNotification::DEFAULT_ID,
     "Korvo2 master router detected.|Set a unique ID for this system under System Status > Korvo2 Configuration, and "
     "then reset to join the Korvo2 network."},
    {SornMasterRouterNotification::DETECTED,
     "Korvo2 master router detected.|This console is currently running as a standalone console. Reset to join the "
     "Korvo2 network."},
    {SornMasterRouterNotification::LOST, "Korvo2 master router lost.|Korvo2 master router lost."},
    {SornMasterRouterNotification::UNKNOWN, "Unknown Korvo2 master router notification."}};

} // namespace

SornMasterRouterNotification::Command::Command(std::uint8_t notification) : Messages(Texts), mNotification(notification)
{}

SornMasterRouterNotification::Command::Command(KLVCommandReadSet& set) : Messages(Texts)
{
    ReadFields(set);
}

const std::string& SornMasterRouterNotification::Command::GetMessage() const
{
    const auto text = Messages.find(mNotification);
    return text == Messages.end() ? Messages.at(UNKNOWN) : text->second;
}
