// Hosts libVantrelBase.Net.so the way the controller runtime does: domain, entry, component lifecycle.
#include "LibraryHost.hpp"

#include "ExitStatus.hpp"

#include "Qib/System/Acf/ComponentFactory.hpp"
#include "Qib/System/Acf/ILibrary.hpp"
#include "Qib/System/Commons/Diagnostics/Logging/LogManager.hpp"
#include "VantrelBase/Net/NetLibrary.hpp"

#include <fmt/format.h>

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>

#ifndef VANTREL_NETD_LIBRARY_FILE
#define VANTREL_NETD_LIBRARY_FILE "libVantrelBase.Net.so"
#endif
#ifndef VANTREL_NETD_BIN_TO_LIB
#define VANTREL_NETD_BIN_TO_LIB "lib"
#endif

namespace VantrelNetd
{

namespace
{

using EntryFunction = Qib::System::Acf::ILibrary& (*)(Qib::AppDomain&);

std::string ExecutableDirectory()
{
    std::array<char, 4096> buffer{};
    const ssize_t length = ::readlink("/proc/self/exe", buffer.data(), buffer.size() - 1);
    if (length <= 0)
    {
        return {};
    }
    return std::filesystem::path(std::string(buffer.data(), static_cast<std::size_t>(length)))
        .parent_path()
        .string();
}

} // namespace

LibraryHost::LibraryHost() : application(Qib::String("vantrel-netd"))
{
}

LibraryHost::~LibraryHost()
{
    try
    {
        Stop();
    }
    catch (const std::exception& error)
    {
        Qib::System::Commons::Diagnostics::Logging::LogManager::Write(
            {"VantrelNetd.LibraryHost", 3, fmt::format("component shut-down failed: {}", error.what()),
             std::chrono::system_clock::now(), "component shut-down failed: {0}", {error.what()}});
    }
    if (appDomain != nullptr)
    {
        appDomain->UnregisterSingleton<Qib::Plc::Commons::Domain::PlcDomainProxy>();
    }
}

std::vector<std::string> LibraryHost::LibraryCandidates()
{
    std::vector<std::string> candidates;
    const std::string directory = ExecutableDirectory();
    if (!directory.empty())
    {
        candidates.push_back(directory + "/" + VANTREL_NETD_LIBRARY_FILE);
        candidates.push_back(directory + "/../" + VANTREL_NETD_BIN_TO_LIB + "/" + VANTREL_NETD_LIBRARY_FILE);
    }
    candidates.emplace_back(VANTREL_NETD_LIBRARY_FILE);
    return candidates;
}

void LibraryHost::Start()
{
    using Qib::System::Acf::IComponent;

    if (!Qib::AppDomain::IsCreated())
    {
        Qib::AppDomain::CreateInstance();
    }
    appDomain = &Qib::AppDomain::GetInstance();
    appDomain->RegisterSingleton<Qib::Plc::Commons::Domain::PlcDomainProxy>(domainProxy);

    std::string failures;
    for (const std::string& candidate : LibraryCandidates())
    {
        // A bare soname is looked up by the loader; a path only when the file is there.
        if (candidate.find('/') != std::string::npos && !std::filesystem::exists(candidate))
        {
            continue;
        }
        handle = ::dlopen(candidate.c_str(), RTLD_NOW | RTLD_GLOBAL);
        if (handle != nullptr)
        {
            // The file the loader actually mapped, also when it was found by its soname.
            link_map* map = nullptr;
            libraryPath = ::dlinfo(handle, RTLD_DI_LINKMAP, &map) == 0 && map != nullptr && map->l_name[0] != '\0'
                              ? map->l_name
                              : candidate;
            break;
        }
        failures += fmt::format("{}{}", failures.empty() ? "" : "; ", ::dlerror());
    }
    if (handle == nullptr)
    {
        throw DaemonExit(RuntimeFailure, fmt::format("cannot load {}: {}", VANTREL_NETD_LIBRARY_FILE, failures));
    }
    auto entry = reinterpret_cast<EntryFunction>(::dlsym(handle, "QibDynamicLibraryMain"));
    if (entry == nullptr)
    {
        throw DaemonExit(RuntimeFailure, fmt::format("{} has no entry QibDynamicLibraryMain", libraryPath));
    }
    // The daemon also links the library to build its servers; both must be one loaded object.
    if (entry != &QibDynamicLibraryMain)
    {
        throw DaemonExit(RuntimeFailure,
                         fmt::format("{} is another copy of the library than the one the daemon is linked with",
                                     libraryPath));
    }
    try
    {
        Qib::System::Acf::ILibrary& library = entry(*appDomain);
        component = library.GetComponentFactory().CreateComponent(application, Qib::String(ComponentTypeName),
                                                                  Qib::String("NetComponent"));
        Call(*component, "Initialize", &IComponent::Initialize);
        Call(*component, "SubscribeServices", &IComponent::SubscribeServices);
        calledHooks.emplace_back("LoadSettings");
        component->LoadSettings(Qib::String(""));
        Call(*component, "SetupSettings", &IComponent::SetupSettings);
        Call(*component, "PublishServices", &IComponent::PublishServices);
        Call(*component, "LoadConfig", &IComponent::LoadConfig);
        Call(*component, "SetupConfig", &IComponent::SetupConfig);
    }
    catch (const std::exception& error)
    {
        component.reset();
        throw DaemonExit(RuntimeFailure, fmt::format("the library {} failed to start: {}", libraryPath, error.what()));
    }
}

void LibraryHost::Stop()
{
    using Qib::System::Acf::IComponent;
    if (!component)
    {
        return;
    }
    // Released even when a hook throws, so that the hooks run at most once.
    const std::shared_ptr<IComponent> stopping = std::move(component);
    component.reset();
    Call(*stopping, "ResetConfig", &IComponent::ResetConfig);
    Call(*stopping, "Dispose", &IComponent::Dispose);
    Call(*stopping, "PowerDown", &IComponent::PowerDown);
}

void LibraryHost::Call(Qib::System::Acf::IComponent& target, const char* hook,
                       void (Qib::System::Acf::IComponent::*function)())
{
    calledHooks.emplace_back(hook);
    (target.*function)();
}

} // namespace VantrelNetd
