#pragma once

#include <filesystem>
#include <string>

#include "veltratune_io/Plugin.h"

namespace veltra::test {

/** A folder that is gone when the object is. */
class TemporaryFolder
{
public:
    TemporaryFolder();
    ~TemporaryFolder();

    TemporaryFolder (const TemporaryFolder&) = delete;
    TemporaryFolder& operator= (const TemporaryFolder&) = delete;

    const std::filesystem::path path;
};

std::string readFile (const std::filesystem::path& file);
void writeFile (const std::filesystem::path& file, const std::string& text);

/** A settings file's text with one entry. */
std::string settingsText (const std::string& key, const std::string& value);

/** Copies the built module to a folder, where a settings file may stand beside it. */
std::filesystem::path copyModule (const std::filesystem::path& folder);

/** The module, loaded as a host loads it. */
class HostModule
{
public:
    /** @param file  the built one by default; a relative path is passed on as it is */
    explicit HostModule (const std::filesystem::path& file = MODULE_FILE);
    ~HostModule();

    HostModule (const HostModule&) = delete;
    HostModule& operator= (const HostModule&) = delete;

    void unload();

    /** Whether a file is loaded in this process. */
    static bool isLoaded (const std::filesystem::path& file);

    decltype (&::GetVersionedPluginObject) get = nullptr;
    decltype (&::ReleaseVersionedPluginObject) release = nullptr;
    decltype (&::SetLogPath) setLogPath = nullptr;

private:
    void* handle = nullptr;
};

}
