// Validation of hardware-address text in the forms engineers copy from device labels and tools.
#pragma once

#include <string>

namespace VantrelNetd
{

/// Hardware-address text. The library's own parser reads only the colon form and turns any other
/// text into 00:00:00:00:00:00 without a word, so the daemon checks the text itself and hands the
/// library the colon form.
class MacAddressText
{
public:
    /// Accepts 00:1A:2B:3C:4D:5E, 00-1A-2B-3C-4D-5E and 001A2B3C4D5E in any case (one separator
    /// kind throughout, two digits per byte, nothing around it) and writes the upper-case colon form
    /// to `colonForm`. False, with `colonForm` unchanged, for any other text.
    static bool TryNormalize(const std::string& text, std::string& colonForm);
};

} // namespace VantrelNetd
