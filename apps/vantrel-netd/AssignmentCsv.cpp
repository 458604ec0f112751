// Assignment lists as engineers keep them in spreadsheets: hardware address, IP address, name.
#include "AssignmentCsv.hpp"

#include "ExitStatus.hpp"

#include <fmt/format.h>

#include <sstream>

namespace VantrelNetd
{

namespace
{

std::string Trim(const std::string& text)
{
    const std::size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos)
    {
        return "";
    }
    std::string field = text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
    if (field.size() >= 2 && field.front() == '"' && field.back() == '"')
    {
        field = field.substr(1, field.size() - 2);
    }
    return field;
}

// Spreadsheets write commas, or semicolons where the comma is the decimal sign; some tools tabs.
std::vector<std::string> Fields(const std::string& line)
{
    const std::size_t at = line.find_first_of(",;\t");
    const char separator = at == std::string::npos ? ',' : line[at];
    std::vector<std::string> fields;
    std::istringstream stream(line);
    for (std::string field; std::getline(stream, field, separator);)
    {
        fields.push_back(Trim(field));
    }
    return fields;
}

} // namespace

std::vector<AssignmentCsv::Row> AssignmentCsv::Parse(const std::string& text, const std::string& sourceName)
{
    std::vector<Row> rows;
    std::istringstream stream(text);
    long number = 0;
    bool first = true;
    for (std::string line; std::getline(stream, line);)
    {
        ++number;
        const std::string trimmed = Trim(line);
        if (trimmed.empty() || trimmed.front() == '#')
        {
            continue;
        }
        const std::vector<std::string> fields = Fields(line);
        const bool header = first && (fields.size() < 2 || fields[1].find_first_of("0123456789") == std::string::npos);
        first = false;
        if (header)
        {
            continue;
        }
        const std::string where = fmt::format("{}:{}", sourceName, number);
        if (fields.size() < 2)
        {
            throw DaemonExit(BadData, fmt::format("{}: give the hardware address and the IP address (and a name), "
                                                  "separated by commas",
                                                  where));
        }
        rows.push_back(Row{fields[0], fields[1], fields.size() > 2 ? fields[2] : "", where});
    }
    return rows;
}

std::string AssignmentCsv::Render(const std::vector<BootpHost>& hosts)
{
    std::string text = "hardware,ip,name\n";
    for (const BootpHost& host : hosts)
    {
        text += fmt::format("{},{},{}\n", host.MacAddress, host.Address.ToString().GetStdString(), host.Name);
    }
    return text;
}

} // namespace VantrelNetd
