// The process-wide log level, the one sink every record is routed to, and the writer that feeds it.
#pragma once

#include "Qib/QibExport.hpp"
#include "Qib/System/Commons/Diagnostics/Logging/LogRecord.hpp"

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

namespace Qib::System::Commons::Diagnostics::Logging
{

/// Level and sink of all loggers. All operations are static and safe from any thread.
///
/// Writing a record never waits for the sink: records wait in a bounded queue (MaxQueuedRecords
/// records and MaxQueuedBytes bytes of text, one record more when it alone is larger) for a writer
/// thread, which calls the sink one record at a time, in the order the records were written. The
/// writer starts with the first record after the start or a Flush, as a host thread with asynchronous
/// signals blocked. When the queue is full, or a sink throws, the record is dropped and counted; the
/// count (and how many of them were errors) is written as one record once the sink takes records
/// again, at most every DropReportInterval while records keep waiting. The first failure of a sink
/// is also reported on standard error. A sink that calls no cancellation point while it blocks can hold up Flush.
class QIB_EXPORT LogManager
{
public:
    using Sink = std::function<void(const LogRecord&)>;

    static constexpr std::size_t MaxQueuedRecords = 4096;
    static constexpr std::size_t MaxQueuedBytes = 2 * 1024 * 1024;
    /// A sink that takes no record for this long is given up by Flush and SetSink.
    static constexpr std::chrono::seconds StallLimit{2};
    static constexpr std::chrono::seconds DropReportInterval{5};

    /// Sets the level of every logger and of the root adapter (0 writes nothing; the default is 6).
    static void SetLevel(int level);
    static int GetLevel();
    /// Routes every record written from now on to `sink` (an empty one drops them); the records
    /// written before still reach the sink they were written for: it returns after a Flush.
    static void SetSink(Sink sink);
    /// Restores the default sink: one line per record on standard error.
    static void ResetSink();
    /// Queues one record for its sink and returns; never blocks on the sink.
    static void Write(const LogRecord& record);
    /// Waits until every record written before the call has reached its sink, then ends the writer
    /// thread, so that a single-threaded process has no logging thread afterwards. A sink that takes
    /// nothing for StallLimit is given up: the writer is terminated and the records it still owed
    /// are counted as dropped. No effect on the writer thread itself.
    static void Flush();
    /// The default sink's line for a record: time, level, logger and message.
    static std::string FormatLine(const LogRecord& record);
    /// Writes the record's line and a newline whole to `descriptor`, waiting while it is full.
    /// Throws Qib::Exception with the system's reason when the descriptor refuses it (its reader
    /// has gone, the disk is full), so that the writer counts the record and reports the sink.
    static void WriteLine(int descriptor, const LogRecord& record);
    /// Writes `text` whole to `descriptor`, as WriteLine does.
    static void WriteText(int descriptor, const std::string& text);
};

} // namespace Qib::System::Commons::Diagnostics::Logging
