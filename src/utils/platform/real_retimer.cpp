#include "utils/platform/real_retimer.hpp"

#include <dlfcn.h>

#include <iostream>

namespace orvane::platform
{

namespace
{

constexpr const char* libraryName = "libretimerlib.so";
constexpr const char* ensureSymbol =
    "_Z21EnsureRetimerDevImageiRKNSt7__cxx1112basic_stringIcSt11char_"
    "traitsIcESaIcEEE";

using EnsureFn = int (*)(int, const std::string&);

class LoadedRetimerLib : public RetimerLib
{
  public:
    LoadedRetimerLib(void* handle, EnsureFn ensure) :
        handle(handle), ensure(ensure)
    {}

    int ensureRetimerDevImage(int switchValue,
                              const std::string& imagePath) override
    {
        return ensure(switchValue, imagePath);
    }

  private:
    void* handle; // kept open for the life of the process
    EnsureFn ensure;
};

class MissingRetimerLib : public RetimerLib
{
  public:
    int ensureRetimerDevImage(int, const std::string&) override
    {
        // Without the vendor reader a match can't be proven; reporting a
        // mismatch makes the caller program the verified image.
        return -1;
    }
};

} // namespace

std::unique_ptr<RetimerLib> makeRealRetimerLib()
{
    void* handle = ::dlopen(libraryName, RTLD_NOW | RTLD_LOCAL);
    if (handle != nullptr)
    {
        auto ensure = reinterpret_cast<EnsureFn>(::dlsym(handle, ensureSymbol));
        if (ensure != nullptr)
        {
            return std::make_unique<LoadedRetimerLib>(handle, ensure);
        }
        ::dlclose(handle);
    }
    return std::make_unique<MissingRetimerLib>();
}

} // namespace orvane::platform
