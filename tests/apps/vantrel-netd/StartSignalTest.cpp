// Tests of the handshake between a server's thread coming up and the main thread waiting for it.
#include "StartSignal.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

using VantrelNetd::StartSignal;
using namespace std::chrono_literals;

// A server that comes up slowly: the wait asks `gaveUp` between its short waits and still sees the
// raise; a server that will never come up ends the wait at once.
TEST(StartSignalTest, ALateRaiseIsSeenBetweenPollsAndAGiveUpEndsTheWait)
{
    StartSignal late;
    std::thread server([&late] {
        std::this_thread::sleep_for(100ms);
        late.Raise();
    });
    EXPECT_TRUE(late.Wait([] { return false; }));
    server.join();

    StartSignal never;
    EXPECT_FALSE(never.Wait([] { return true; }));
}
