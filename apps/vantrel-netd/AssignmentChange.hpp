// A change to the runtime assignments, checked the way the config's own BOOTP table is.
#pragma once

#include "AssignmentCsv.hpp"
#include "Config.hpp"

#include <set>
#include <string>
#include <vector>

namespace VantrelNetd
{

/// The runtime assignments (the hosts file's entries) with changes applied one by one. Every step
/// that cannot be used throws DaemonExit (65) with one line and leaves the object as it was.
/// Distinct objects: safe.
class AssignmentChange
{
public:
    /// `fixed`: the config file's own table, which runtime changes never touch; `kept`: the hosts file's entries.
    AssignmentChange(std::vector<BootpHost> fixed, std::vector<BootpHost> kept);

    /// Adds the row's assignment, or replaces the one of its hardware address. A hardware address given
    /// twice within one change, one of the config's own table, and an IP address another device has
    /// are refused.
    void Assign(const AssignmentCsv::Row& row);
    /// Removes the assignment of a hardware address, in any accepted spelling.
    void Unassign(const std::string& hardware);

    /// Throws when the table's ordering would hide an entry, naming it, unless `force`; then the
    /// returned lines name the hidden entries.
    std::vector<std::string> CheckOrdering(bool force) const;

    /// The hosts file's entries after the change.
    const std::vector<BootpHost>& GetKept() const { return kept; }
    /// The config's own table followed by the hosts file's entries: what the BOOTP server gets.
    std::vector<BootpHost> Merged() const;

private:
    std::vector<BootpHost> fixed;
    std::vector<BootpHost> kept;
    std::set<std::string> changed;
};

} // namespace VantrelNetd
