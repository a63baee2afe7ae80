#pragma once

#include "Utilities/CommandLine/Action.h"

#include <iosfwd>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace cmd {

/// One branch of the tree of commands. Who has commands to offer derives from it, calls Add with its name and its
/// actions, and hands itself to CommandLine::AddNode. The tree is built at start and does not change after that; all
/// of it lives on the main service.
///
/// A wrong declaration of commands (a name twice, an empty name) is a fatal assertion.
class Node
{
public:
    /// @param path the full path of the parent with its trailing "/", empty at the top.
    explicit Node(const std::string& path = {});
    virtual ~Node() = default;
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    /// Enters the actions at this path, which begins with the node's own name; what follows a "/" makes a child. The
    /// first Add gives the node its name.
    void Add(const std::string& path, const std::vector<std::shared_ptr<action::Action>>& actions);

    static void ValidateActionName(const std::string& name);

    /// Search by a name that begins with this node's own; null if there is no such command.
    std::shared_ptr<action::Action> Find(const std::string& name) const;

    /// One line for each command from here down: its full name and its brief help.
    void PrintHelp(std::ostream& out) const;

    const std::string& GetId() const { return mId; }

protected:
    Node(const std::string& id, const std::string& path);
    void AddChild(const std::shared_ptr<Node>& child, const char* notUnique);

private:
    std::string mId;
    std::map<std::string, std::shared_ptr<Node>> mChildren;
    std::string mPath;
    std::map<std::string, std::shared_ptr<action::Action>> mActions;
};

} // namespace cmd
