// Helpers shared by the library frame tests: a clean library singleton and a bounded wait.
#pragma once

#include "Qib/AppDomain.hpp"
#include "VantrelBase/Net/NetLibrary.hpp"

#include <chrono>
#include <thread>

namespace VantrelTest
{

/// Starts and ends a test without a NetLibrary instance, whatever earlier tests left behind.
struct NoNetLibrary
{
    NoNetLibrary() { VantrelBase::Net::NetLibrary::DisposeInstance(); }
    ~NoNetLibrary() { VantrelBase::Net::NetLibrary::DisposeInstance(); }
    NoNetLibrary(const NoNetLibrary&) = delete;
    NoNetLibrary& operator=(const NoNetLibrary&) = delete;
};

/// The process's application domain singleton for the length of a test.
struct AppDomainInstance
{
    AppDomainInstance() : domain((Qib::AppDomain::DisposeInstance(), Qib::AppDomain::CreateInstance())) {}
    ~AppDomainInstance() { Qib::AppDomain::DisposeInstance(); }
    AppDomainInstance(const AppDomainInstance&) = delete;
    AppDomainInstance& operator=(const AppDomainInstance&) = delete;

    Qib::AppDomain& domain;
};

/// Waits until `condition` holds, at most `timeout`.
template <typename Condition>
bool Eventually(Condition condition, std::chrono::milliseconds timeout = std::chrono::seconds(10))
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition())
    {
        if (std::chrono::steady_clock::now() > deadline)
        {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace VantrelTest
