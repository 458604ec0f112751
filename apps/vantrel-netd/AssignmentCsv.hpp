// Assignment lists as engineers keep them in spreadsheets: hardware address, IP address, name.
#pragma once

#include "Config.hpp"

#include <string>
#include <vector>

namespace VantrelNetd
{

/// Reads and writes assignment lists as comma-, semicolon- or tab-separated text. Stateless.
class AssignmentCsv
{
public:
    /// One row as written, not yet checked.
    struct Row
    {
        std::string Hardware;
        std::string Address;
        std::string Name;
        /// "file:line", for messages about the row.
        std::string Where;
    };

    /// Splits `text` into rows: blank lines and lines starting with '#' are skipped, fields are trimmed
    /// and may be double-quoted, columns after the third are ignored, and a first row whose second field
    /// holds no digit is a header. Throws DaemonExit (65) naming the line of a row with fewer than two fields.
    static std::vector<Row> Parse(const std::string& text, const std::string& sourceName);

    /// The text of a hosts file holding `hosts`, with its header row.
    static std::string Render(const std::vector<BootpHost>& hosts);
};

} // namespace VantrelNetd
