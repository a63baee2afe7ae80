#include "Simulation/Peers/Kinds.h"

namespace peers {

namespace {

K2Heartbeat::LinkType TypeOf(BoxKind kind)
{
    switch (kind) {
    case BoxKind::Fixed:
        return K2Heartbeat::K2_FIXED_FORMAT_TYPE;
    case BoxKind::Modular:
        return K2Heartbeat::K2_MODULAR_TYPE;
    case BoxKind::AoIP:
        return K2Heartbeat::K2_AOIP_TYPE;
    case BoxKind::Module:
        break;
    }
    return K2Heartbeat::K2_MODULE_TYPE;
}

} // namespace

Box::Box(boost::asio::io_service& service, const Place& place, const Cable& cable, std::uint32_t hid, BoxKind kind)
    : LinkNode(service, place, cable, hid, TypeOf(kind)), mDescription(kind)
{}

void Box::ListenForStreams()
{
    Listen(mPlace.own, mPlace.localPort);
}

void Box::OnCommand(Stream& stream, const Command& command)
{
    if (command.id == IO_INFO_REQ || command.id == IO_INFO_REQ_EX)
        Answer(stream, command.id, mDescription.ToCommands(GetHid()));
}

bool Box::OnVerb(const Line& line, std::string& answer)
{
    if (line.GetVerb() == "describe") {
        for (const Command& command : mDescription.ToCommands(GetHid()))
            Need("local").Send(command);
        return true;
    }
    return mDescription.Set(line) || LinkNode::OnVerb(line, answer);
}

std::string Box::GetHelp() const
{
    return LinkNode::GetHelp() + Description::GetHelp() + "describe\n";
}

} // namespace peers
