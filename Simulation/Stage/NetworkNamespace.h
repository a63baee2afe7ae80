#pragma once

#include "Simulation/Stage/FileDescriptor.h"

#include <string>

namespace stage {

/// The namespaces of the rig besides the module's own, whose name is empty.
constexpr char UnitNamespace[] = "unit";
constexpr char PrimaryNamespace[] = "pri";
constexpr char SecondaryNamespace[] = "sec";
constexpr char TertiaryNamespace[] = "ter";

/// Opens the named network namespace of the rig.
FileDescriptor OpenNamespace(const std::string& name);

/// While it exists, the calling thread is in another network namespace. Sockets made then stay in that namespace, so a
/// scene that runs on one thread can hold sockets of all of them.
class NamespaceScope
{
public:
    /// An empty name changes nothing.
    explicit NamespaceScope(const std::string& name);
    ~NamespaceScope();
    NamespaceScope(const NamespaceScope&) = delete;
    NamespaceScope& operator=(const NamespaceScope&) = delete;

private:
    FileDescriptor mHome;
};

} // namespace stage
