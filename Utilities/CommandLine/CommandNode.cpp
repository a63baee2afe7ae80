#include "Utilities/CommandLine/CommandNode.h"

#include "MiscSource/FatalAssert.h"

#include <boost/algorithm/string/predicate.hpp>
#include <boost/algorithm/string/trim.hpp>

#include <algorithm>
#include <iomanip>
#include <ostream>

namespace cmd {

namespace {

constexpr char PathSeparator = '/';

/// Length of the longest full name of a command so far: all listings of the process share one column.
std::size_t sWidth = 0;

} // namespace

Node::Node(const std::string& path) : Node(std::string(), path) {}

Node::Node(const std::string& id, const std::string& path) : mId(id), mPath(path) {}

void Node::Add(const std::string& path, const std::vector<std::shared_ptr<action::Action>>& actions)
{
    FATAL_ASSERT(!path.empty(), "Nodes must have a name");
    if (mId.empty()) {
        mId = path.substr(0, path.find(PathSeparator));
        mPath += mId + PathSeparator;
    } else {
        FATAL_ASSERT(boost::starts_with(path, mId), "Child nodes must have same root");
    }
    const std::string rest = std::string(path).erase(0, mId.size() + 1);
    if (!rest.empty()) {
        const auto child = std::make_shared<Node>(mPath);
        child->Add(rest, actions);
        AddChild(child, "Child node names must be unique");
        return;
    }
    for (const std::shared_ptr<action::Action>& action : actions) {
        const std::string& name = action->GetId();
        FATAL_ASSERT(mActions.count(name) == 0, "Action names must be unique in a node");
        FATAL_ASSERT(name.find(PathSeparator) == std::string::npos, "Action ids cannot contain the path separator");
        mActions.emplace(name, action);
        sWidth = std::max(sWidth, mPath.size() + name.size());
    }
}

void Node::AddChild(const std::shared_ptr<Node>& child, const char* notUnique)
{
    const bool added = mChildren.emplace(child->GetId(), child).second;
    FATAL_ASSERT(added, notUnique);
}

void Node::ValidateActionName(const std::string& name)
{
    const std::string trimmed = boost::trim_copy(name);
    FATAL_ASSERT(trimmed.find(' ') == std::string::npos, "Action names cannot contain spaces");
    FATAL_ASSERT(!trimmed.empty(), "CommandLine actions must have a non-empty identifier.");
}

std::shared_ptr<action::Action> Node::Find(const std::string& name) const
{
    if (!boost::starts_with(name, mId)) return nullptr;
    const std::string rest = std::string(name).erase(0, mId.size() + 1);
    if (rest.find(PathSeparator) == std::string::npos) {
        const auto entry = mActions.find(rest);
        return entry == mActions.end() ? nullptr : entry->second;
    }
    for (const auto& [id, child] : mChildren) {
        if (auto action = child->Find(rest)) return action;
    }
    return nullptr;
}

void Node::PrintHelp(std::ostream& out) const
{
    for (const auto& [name, action] : mActions) {
        out << std::left << std::setw(static_cast<int>(sWidth) + 1) << mPath + name << action->GetBrief() << '\n';
    }
    for (const auto& [id, child] : mChildren)
        child->PrintHelp(out);
}

} // namespace cmd
