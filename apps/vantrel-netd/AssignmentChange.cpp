// A change to the runtime assignments, checked the way the config's own BOOTP table is.
#include "AssignmentChange.hpp"

#include "BootpHostTable.hpp"
#include "ExitStatus.hpp"
#include "MacAddressText.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace VantrelNetd
{

namespace
{

using Qib::System::Commons::Net::IpAddress;

constexpr std::size_t LongestName = 64;

[[noreturn]] void Refuse(const std::string& where, const std::string& text)
{
    throw DaemonExit(BadData, where.empty() ? text : where + ": " + text);
}

std::string Hardware(const std::string& text, const std::string& where)
{
    std::string colonForm;
    if (!MacAddressText::TryNormalize(text, colonForm))
    {
        Refuse(where, fmt::format("\"{}\" is not a hardware address (give 00:1A:2B:3C:4D:5E, 00-1A-2B-3C-4D-5E or "
                                  "001A2B3C4D5E)",
                                  text));
    }
    return colonForm;
}

// Names end up in a comma-separated file and on a web page: printable, and no separators.
void CheckName(const std::string& name, const std::string& where)
{
    const bool printable = std::all_of(name.begin(), name.end(), [](char c) {
        return c >= 0x20 && c != 0x7f && c != ',' && c != ';' && c != '"' && c != '\t';
    });
    if (!printable || name.size() > LongestName)
    {
        Refuse(where, fmt::format("\"{}\" is not a device name (at most {} characters, none of , ; \" or control "
                                  "characters)",
                                  name, LongestName));
    }
}

std::string Describe(const BootpHost& host)
{
    const std::string address = host.Address.ToString().GetStdString();
    if (!host.Name.empty())
    {
        return fmt::format("{} ({}, {})", host.MacAddress, host.Name, address);
    }
    return fmt::format("{} ({}{})", host.MacAddress, address,
                       host.Key.empty() ? "" : ", " + host.Where.ToString() + " " + host.Key);
}

} // namespace

AssignmentChange::AssignmentChange(std::vector<BootpHost> fixed, std::vector<BootpHost> kept)
    : fixed(std::move(fixed)), kept(std::move(kept))
{
}

void AssignmentChange::Assign(const AssignmentCsv::Row& row)
{
    BootpHost host;
    host.MacAddress = Hardware(row.Hardware, row.Where);
    if (!IpAddress::TryParse(Qib::String(row.Address), host.Address))
    {
        Refuse(row.Where, fmt::format("\"{}\" is not an IPv4 address (give four numbers 0-255 such as 10.77.0.1)",
                                      row.Address));
    }
    CheckName(row.Name, row.Where);
    host.Name = row.Name;
    const auto sameHardware = [&host](const BootpHost& other) { return other.MacAddress == host.MacAddress; };
    const auto fixedEntry = std::find_if(fixed.begin(), fixed.end(), sameHardware);
    if (fixedEntry != fixed.end())
    {
        Refuse(row.Where, fmt::format("{} is in the config file's own table ({} {}): change it there",
                                      host.MacAddress, fixedEntry->Where.ToString(), fixedEntry->Key));
    }
    if (changed.count(host.MacAddress) != 0)
    {
        Refuse(row.Where, fmt::format("{} is given twice", host.MacAddress));
    }
    for (const std::vector<BootpHost>* table : {&fixed, &kept})
    {
        for (const BootpHost& other : *table)
        {
            if (other.Address == host.Address && other.MacAddress != host.MacAddress)
            {
                Refuse(row.Where, fmt::format("{} is given to {} already", host.Address.ToString().GetStdString(),
                                              Describe(other)));
            }
        }
    }
    changed.insert(host.MacAddress);
    const auto keptEntry = std::find_if(kept.begin(), kept.end(), sameHardware);
    if (keptEntry != kept.end())
    {
        *keptEntry = host;
    }
    else
    {
        kept.push_back(host);
    }
}

void AssignmentChange::Unassign(const std::string& text)
{
    const std::string hardware = Hardware(text, "");
    const auto sameHardware = [&hardware](const BootpHost& other) { return other.MacAddress == hardware; };
    const auto fixedEntry = std::find_if(fixed.begin(), fixed.end(), sameHardware);
    if (fixedEntry != fixed.end())
    {
        Refuse("", fmt::format("{} is in the config file's own table ({} {}): remove it there", hardware,
                               fixedEntry->Where.ToString(), fixedEntry->Key));
    }
    const auto keptEntry = std::find_if(kept.begin(), kept.end(), sameHardware);
    if (keptEntry == kept.end())
    {
        Refuse("", fmt::format("{} has no assignment", hardware));
    }
    kept.erase(keptEntry);
}

std::vector<std::string> AssignmentChange::CheckOrdering(bool force) const
{
    std::vector<std::string> hidden;
    const BootpHostTable table(Merged());
    for (const BootpHost& host : table.GetUnreachable())
    {
        hidden.push_back(Describe(host));
    }
    if (!hidden.empty() && !force)
    {
        Refuse("", fmt::format("the change would hide {} from the BOOTP table's own search (its hardware-address "
                               "ordering), so that device would get no reply; choose another address, or force it",
                               hidden.front()));
    }
    return hidden;
}

std::vector<BootpHost> AssignmentChange::Merged() const
{
    std::vector<BootpHost> merged = fixed;
    merged.insert(merged.end(), kept.begin(), kept.end());
    return merged;
}

} // namespace VantrelNetd
