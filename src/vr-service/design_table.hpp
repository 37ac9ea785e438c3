#pragma once

#include "vr-service/fru_record.hpp"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace orvane
{

// One row of the hardware design table: the FRU's text (a design number in
// decimal or a part number) and what it stands for.
struct VrDesignEntry
{
    std::string key;
    std::string revision;
    int32_t design;
    std::string thermal;
};

using VrDesignTable = std::vector<std::shared_ptr<const VrDesignEntry>>;

// The table in its fixed order, built from the product data compiled in
// (vr_designs.csv, turned into code by the build).
VrDesignTable MakeDesignTable();

// The four characters that begin every UBB part number; they come with the
// table's data.
std::string_view UbbPartNumberPrefix();

// FRU kinds of the scan.
constexpr int fruKindUbb = 0;
constexpr int fruKindOam = 1;

// Sets record.hwDesign (0 when no row matches) and, on a hit,
// record.thermalInfo, with its line. For a UBB a key without the UBB
// part-number prefix is a small design number, looked up plus 20.
void LookUpDesign(const VrDesignTable& table, FruRecord& record, int kind);

} // namespace orvane
