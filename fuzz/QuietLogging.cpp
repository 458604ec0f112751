// Turns the library's logging off before fuzzing: servers log every datagram, which would drown the
// fuzzer's own output and slow it down.
#include "Qib/System/Commons/Diagnostics/Logging/LogManager.hpp"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    Qib::System::Commons::Diagnostics::Logging::LogManager::SetLevel(0);
    return 0;
}
