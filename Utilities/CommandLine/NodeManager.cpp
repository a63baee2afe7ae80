#include "Utilities/CommandLine/NodeManager.h"

namespace cmd {

NodeManager::RootNode::RootNode() : Node("/", "") {}

void NodeManager::RootNode::AddNode(const std::shared_ptr<Node>& node)
{
    AddChild(node, "Top level node names must be unique");
}

void NodeManager::RootNode::AddAction(const std::shared_ptr<action::Action>& action)
{
    Add(GetId(), {action});
}

std::shared_ptr<action::Action> NodeManager::Find(const std::string& name) const
{
    return mRoot.Find(mRoot.GetId() + "/" + name);
}

void NodeManager::PrintHelp(std::ostream& out) const
{
    mRoot.PrintHelp(out);
}

} // namespace cmd
