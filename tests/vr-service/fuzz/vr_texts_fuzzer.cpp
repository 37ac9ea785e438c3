// Reads arbitrary bytes as what a FRU and a vr_config.json give the VR
// update: the first line as a design text or part number, the second as a
// product name, the third as a thermal or air-flow record, the rest as the
// contents of vr_config.json. Nothing may crash, and what comes out must
// hold what the updates rely on.
#include "utils/platform/platform.hpp"
#include "vr-service/design_table.hpp"
#include "vr-service/vr_texts.hpp"

#include <cstdint>
#include <string>
#include <string_view>

namespace
{

using namespace orvane;

// The log lines of a design hit need a clock.
struct Seams : platform::Clock
{
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
};

const VrDesignTable& Prepare()
{
    static Seams seams;
    platform::Platform set;
    set.clock = &seams;
    platform::install(set);
    static const VrDesignTable table = MakeDesignTable();
    return table;
}

// The next line of `rest`, which loses it.
std::string Line(std::string_view& rest)
{
    const size_t end = rest.find('\n');
    std::string line(rest.substr(0, end));
    rest = end == std::string_view::npos ? std::string_view()
                                         : rest.substr(end + 1);
    return line;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const VrDesignTable& table = Prepare();
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    const std::string design = Line(rest);
    const std::string product = Line(rest);
    const std::string thermal = Line(rest);

    for (int kind : {fruKindUbb, fruKindOam})
    {
        FruRecord record;
        record.partNumber = design;
        LookUpDesign(table, record, kind);
        // A design is a folder, a forbidden design, or unknown (0).
        const std::string_view folder = kind == fruKindUbb
                                            ? UbbConfigFolder(record.hwDesign)
                                            : OamConfigFolder(record.hwDesign);
        if (record.hwDesign < 0 || (!folder.empty() && record.hwDesign == 0))
        {
            __builtin_trap();
        }
        const std::string text = ThermalText(thermal, product, kind);
        if (text.size() > 11)
        {
            __builtin_trap();
        }
        if (VersionText(record.hwDesign, text).size() != 3 + text.size())
        {
            __builtin_trap();
        }
    }

    std::string problem;
    const auto version = ConfigVersion(rest, problem);
    if (version && !problem.empty())
    {
        __builtin_trap();
    }
    return 0;
}
