// Helpers shared by the library frame tests: a clean library singleton and application domain.
#pragma once

#include "Qib/AppDomain.hpp"
#include "VantrelBase/Net/NetLibrary.hpp"


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

} // namespace VantrelTest
