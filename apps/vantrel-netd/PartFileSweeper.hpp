// Removes the ".part" files of uploads that failed or were abandoned.
#pragma once

#include "Config.hpp"
#include "FolderWalk.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/Loggable.hpp"

#include <chrono>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace VantrelNetd
{

/// Sweeps the TFTP home folders for ".part" files that no running upload writes and removes them.
/// An upload writes each block to its ".part" unbuffered, and a session that hears nothing for its
/// time-out (and retries) is ended, so a ".part" unchanged for longer than GetAge() belongs to no
/// running upload. Main thread only.
class PartFileSweeper : private Qib::System::Commons::Diagnostics::Logging::Loggable<PartFileSweeper>
{
public:
    /// Folder entries looked at per pass, so that a pass never holds the main thread long.
    static constexpr std::size_t EntriesPerPass = 2000;
    /// Pause between the end of one walk over the homes and the start of the next.
    static constexpr std::chrono::seconds WalkInterval{60};
    /// Added to the longest life of a silent session.
    static constexpr std::chrono::seconds Margin{60};

    /// Sweeps the homes of `tftp` when uploads are on; otherwise it does nothing.
    explicit PartFileSweeper(const TftpSection& tftp);
    ~PartFileSweeper();

    /// How old a ".part" must be to be removed: the longest a silent session lives (the time-out
    /// times one more than the retries) plus the margin.
    std::chrono::seconds GetAge() const { return age; }

    /// Walks every home to its end (at start-up).
    void SweepAll();
    /// One bounded pass; starts a new walk once the interval since the last one has passed.
    void Pass();

private:
    void Visit(const FolderWalk::File& file);

    std::vector<std::string> homes;
    std::chrono::seconds age{0};
    std::unique_ptr<FolderWalk> walk;
    /// Files that could not be removed, reported once each.
    std::set<std::string> unremovable;
    std::chrono::steady_clock::time_point nextWalk;
};

} // namespace VantrelNetd
