#pragma once

#include <cstdint>
#include <string>

namespace orvane
{

// Makes the SMC's backup flash equal to the running one: dumps both, and
// when they differ erases the update partitions and programs the backup
// with the running image. `side` is the side the SMC runs from.
bool copySmcFlash(uint8_t side);

// The entry ("mtdN") of the SMC's flash partition called `name`; `out`
// stays empty when there is none.
void findMtdByName(const std::string& name, std::string& out);

// Tells the SMC's updater that its backup flash is being rewritten. A bus
// failure is logged; the copy goes on.
void setSmcUpdateOnGoing(bool value);

} // namespace orvane
