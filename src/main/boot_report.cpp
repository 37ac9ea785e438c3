#include "main/boot_report.hpp"

#include "logging/log_line.hpp"

namespace orvane
{

using logging::level::ERR;
using logging::level::INFO;

void PrintBootTimeReport(const BootTimes& times,
                         const ComponentTimes& componentTimes)
{
    const char* rule =
        "--------------------------------------------------------------------";
    ConsoleLog(INFO) << rule;
    ConsoleLog(INFO)
        << "|                             Boot  Time                           |";
    ConsoleLog(INFO) << rule;
    ConsoleLog(INFO) << "*** StandBy Power On took " << times.standbySeconds
                     << " sec ***";
    for (const auto& [name, seconds] : componentTimes)
    {
        ConsoleLog(INFO) << "*** The Component - " << name
                         << " verification took " << seconds << " sec ***";
    }
    ConsoleLog(INFO) << "*** Total Secure Boot Verification took "
                     << times.secureBootSeconds << " sec ***";
    ConsoleLog(INFO) << "*** Base Power On took " << times.baseSeconds
                     << "sec *** ";
}

void CollectCopyResult(std::future<bool>& copyTask)
{
    if (!copyTask.valid())
    {
        ConsoleLog(INFO) << "parallelTask Skip copy process";
        return;
    }
    if (!copyTask.get())
    {
        ConsoleLog(ERR) << "parallelTask Copy Occur failed";
    }
}

} // namespace orvane
