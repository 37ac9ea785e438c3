#pragma once

#include "secure-boot/secure_boot_service.hpp"

#include <future>

namespace orvane
{

struct BootTimes
{
    double standbySeconds = 0;
    double secureBootSeconds = 0;
    double baseSeconds = 0;
};

void PrintBootTimeReport(const BootTimes& times,
                         const ComponentTimes& componentTimes);

// Waits for the firmware copy once; later calls find the future empty.
void CollectCopyResult(std::future<bool>& copyTask);

} // namespace orvane
