// Usage: unloading MODULE DATABASE
// Loads MODULE, which uses the libraries, lets it work on DATABASE, unloads it, and checks that the libraries were
// unloaded with it. Does so twice, as the libraries must also work when they are loaded again.
//
// Like every C++ application, the program links to the C++ standard library itself. If only the module linked to it, it
// would be bound to symbols of the module and never be unloaded.

#include <iostream>

#include <dlfcn.h>

namespace
{

constexpr char const* kLibraries[] = {"libfiraim-history.so.0", "firaim.so.0", "libdb.so.0"};

bool isLoaded(char const* library)
{
    void* const handle = dlopen(library, RTLD_LAZY | RTLD_NOLOAD);
    if (handle != nullptr)
    {
        dlclose(handle);
    }
    return handle != nullptr;
}

bool areAll(bool loaded, char const* when)
{
    bool areAll = true;
    for (char const* const library : kLibraries)
    {
        if (isLoaded(library) != loaded)
        {
            std::cout << when << ": " << library << " is " << (loaded ? "not " : "") << "loaded\n";
            areAll = false;
        }
    }
    return areAll;
}

bool use(char const* module, char const* database)
{
    void* const handle = dlopen(module, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr)
    {
        std::cout << dlerror() << '\n';
        return false;
    }
    auto* const useLibraries = reinterpret_cast<bool (*)(char const*)>(dlsym(handle, "useLibraries"));
    bool const hasWorked = useLibraries != nullptr && useLibraries(database);
    if (!hasWorked)
    {
        std::cout << module << ": useLibraries is missing or has failed\n";
    }
    bool const wereLoaded = areAll(true, "in use");
    dlclose(handle);
    return hasWorked && wereLoaded && areAll(false, "unloaded");
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        return 2;
    }
    // Load and unload twice. NOLINTNEXTLINE(misc-redundant-expression)
    return use(argv[1], argv[2]) && use(argv[1], argv[2]) ? 0 : 1;
}
