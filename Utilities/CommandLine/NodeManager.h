#pragma once

#include "Utilities/CommandLine/CommandNode.h"

#include <iosfwd>
#include <memory>
#include <string>

namespace cmd {

/// The tree of all commands. A command of the root has its plain name, others a name such as "adma/status".
class NodeManager
{
public:
    class RootNode : public Node
    {
    public:
        RootNode() : Node("/", "") {}
        void AddNode(const std::shared_ptr<Node>& node) { AddChild(node, "Top level node names must be unique"); }
        void AddAction(const std::shared_ptr<action::Action>& action) { Add(GetId(), {action}); }
    };

    RootNode& GetRoot() { return mRoot; }

    /// The command of a full name, null if there is none.
    std::shared_ptr<action::Action> Find(const std::string& name) const
    {
        return mRoot.Find(mRoot.GetId() + "/" + name);
    }
    /// One line for each command, the root's first, then node by node in the order of their names.
    void PrintHelp(std::ostream& out) const { mRoot.PrintHelp(out); }

private:
    RootNode mRoot;
};

} // namespace cmd
