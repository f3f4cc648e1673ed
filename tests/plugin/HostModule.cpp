#include "tests/plugin/HostModule.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <dlfcn.h>

namespace veltra::test {

namespace {

std::filesystem::path makeTemporaryFolder()
{
    auto name = (std::filesystem::temp_directory_path() / "veltra-test-XXXXXX").string();

    if (mkdtemp (name.data()) == nullptr)
        throw std::runtime_error ("no temporary folder");

    return std::filesystem::canonical (name);
}

template <typename Function>
void find (void* handle, const char* name, Function& function)
{
    function = reinterpret_cast<Function> (dlsym (handle, name));

    if (function == nullptr)
        throw std::runtime_error (dlerror());
}

}

TemporaryFolder::TemporaryFolder() : path (makeTemporaryFolder()) {}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all (path, ignored);
}

std::string readFile (const std::filesystem::path& file)
{
    std::ifstream stream (file, std::ios::binary);
    return { std::istreambuf_iterator<char> (stream), {} };
}

void writeFile (const std::filesystem::path& file, const std::string& text)
{
    std::ofstream (file, std::ios::binary) << text;
}

std::string settingsText (const std::string& key, const std::string& value)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<PROPERTIES>\n  <VALUE name=\"" + key + "\" val=\"" + value
           + "\"/>\n</PROPERTIES>\n";
}

std::filesystem::path copyModule (const std::filesystem::path& folder)
{
    const auto copy = folder / std::filesystem::path (MODULE_FILE).filename();
    std::filesystem::copy_file (MODULE_FILE, copy);
    return copy;
}

HostModule::HostModule (const std::filesystem::path& file) : handle (dlopen (file.c_str(), RTLD_NOW | RTLD_LOCAL))
{
    if (handle == nullptr)
        throw std::runtime_error (dlerror());

    find (handle, "GetVersionedPluginObject", get);
    find (handle, "ReleaseVersionedPluginObject", release);
    find (handle, "SetLogPath", setLogPath);
}

HostModule::~HostModule()
{
    unload();
}

void HostModule::unload()
{
    if (handle != nullptr)
        dlclose (handle);

    handle = nullptr;
}

bool HostModule::isLoaded (const std::filesystem::path& file)
{
    void* loaded = dlopen (file.c_str(), RTLD_NOW | RTLD_NOLOAD);

    if (loaded != nullptr)
        dlclose (loaded);

    return loaded != nullptr;
}

}
