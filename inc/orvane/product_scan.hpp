#pragma once

#include "orvane/orvane_svc_state.hpp"

#include <array>
#include <atomic>
#include <cstddef>
#include <string>

namespace orvane
{

// Products by FRU name; 0 is unknown.
enum Product : int
{
    productUnknown = 0,
    productKV10X = 1,
    productKV18X = 2,
    productKV10XHF = 3,
    productKV20X = 4,
    productKV20 = 5,
    productKV20DLC = 6,
    productKV30 = 7,
    productKV35 = 8,
    productKV38 = 9,
};

// Entries 0 to 7: OAM_0 to OAM_7; entry 8: the UBB.
constexpr size_t ubbProductIndex = 8;
extern std::array<std::atomic<int>, 9> productTable;

// The product whose match text (the name with a blank on each side) stands
// in a FRU product name; 0 when none does.
int MatchProduct(const std::string& productName);

// Reads each OAM's and the UBB's product name from the FRU service.
void ScanProducts(OrvaneSvcState& state);

} // namespace orvane
