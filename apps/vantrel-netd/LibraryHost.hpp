// Hosts libVantrelBase.Net.so the way the controller runtime does: domain, entry, component lifecycle.
#pragma once

#include "Qib/AppDomain.hpp"
#include "Qib/Plc/Commons/Domain/PlcDomainProxy.hpp"
#include "Qib/System/Acf/Application.hpp"
#include "Qib/System/Acf/IComponent.hpp"

#include <memory>
#include <string>
#include <vector>

namespace VantrelNetd
{

/// Creates the application domain with a domain proxy, loads the library with dlopen, enters it and
/// drives its NetComponent through the host's lifecycle. Main thread only; once per process, since
/// the library's entry creates a process-wide singleton.
class LibraryHost
{
public:
    static constexpr const char* ComponentTypeName = "VantrelBase.Net.NetComponent";

    LibraryHost();
    /// Shuts the component down when Stop was not called and unregisters the domain proxy. The library
    /// stays loaded: its singleton lives until the process ends.
    ~LibraryHost();
    LibraryHost(const LibraryHost&) = delete;
    LibraryHost& operator=(const LibraryHost&) = delete;

    /// Loads and enters the library and runs the component's start-up hooks. Throws DaemonExit
    /// (status 1) with one line when the library cannot be loaded or entered.
    void Start();
    /// Runs the component's shut-down hooks: ResetConfig, Dispose, PowerDown.
    void Stop();

    /// The file that was loaded.
    const std::string& GetLibraryPath() const { return libraryPath; }
    /// The hooks called so far, in order.
    const std::vector<std::string>& GetCalledHooks() const { return calledHooks; }
    Qib::Plc::Commons::Domain::PlcDomainProxy& GetDomainProxy() { return domainProxy; }

    /// Where the library is looked for: beside the executable, in the install library folder
    /// relative to it, then by its soname.
    static std::vector<std::string> LibraryCandidates();

private:
    void Call(Qib::System::Acf::IComponent& target, const char* hook,
              void (Qib::System::Acf::IComponent::*function)());

    Qib::AppDomain* appDomain = nullptr;
    Qib::Plc::Commons::Domain::PlcDomainProxy domainProxy;
    Qib::System::Acf::Application application;
    void* handle = nullptr;
    std::string libraryPath;
    std::shared_ptr<Qib::System::Acf::IComponent> component;
    std::vector<std::string> calledHooks;
};

} // namespace VantrelNetd
