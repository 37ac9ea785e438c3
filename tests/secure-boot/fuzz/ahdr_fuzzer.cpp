// Reads arbitrary bytes as an AHDR file, as the secure boot readers do with
// what lies on the SMC's storage: any size but 578 must be refused before a
// read, and whatever 578 bytes hold must dump and render safely, the
// details as printable text of at most 250 characters.
#include "secure-boot/ahdr.hpp"
#include "utils/platform/platform.hpp"

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

namespace
{

using namespace orvane;

// Board paths below a directory of the fuzzer's own in TMPDIR, which the
// fuzz script points into its build directory; the log needs a clock.
struct Seams : platform::FileRoot, platform::Clock
{
    std::filesystem::path resolve(std::string_view absolute) override
    {
        return base / std::filesystem::path(absolute).relative_path();
    }
    std::chrono::steady_clock::time_point steadyNow() override
    {
        return {};
    }
    std::chrono::system_clock::time_point wallNow() override
    {
        return {};
    }
    void sleepFor(std::chrono::nanoseconds) override
    {}

    const std::filesystem::path base =
        std::filesystem::temp_directory_path() /
        ("ahdr-fuzz-" + std::to_string(getpid()));
};

const std::string path = "/var/lib/images/A/ifwi.ahdr";

std::filesystem::path Prepare()
{
    static Seams seams;
    platform::Platform set;
    set.files = &seams;
    set.clock = &seams;
    platform::install(set);
    std::filesystem::path file = platform::path(path);
    std::filesystem::create_directories(file.parent_path());
    return file;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const std::filesystem::path file = Prepare();
    std::ofstream(file, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(data),
               static_cast<std::streamsize>(size));

    AhdrHeader header;
    std::memset(&header, 0xa5, sizeof(header));
    const bool loaded = LoadAhdr(path, header, AhdrVoice::log);
    if (loaded != (size == ahdrSize))
    {
        __builtin_trap();
    }
    if (loaded && ReadAhdr(path, header) != (header.magic == ahdrMagic))
    {
        __builtin_trap();
    }
    const std::string details = RenderComponentDetails(header);
    if (details.size() > ahdrDetailsSize)
    {
        __builtin_trap();
    }
    for (char c : details)
    {
        if (c < 0x20 || c > 0x7e)
        {
            __builtin_trap();
        }
    }
    DumpAhdr(path, header);
    return 0;
}
