#include "main/boot_ops.hpp"

#include "logging/log_line.hpp"
#include "utils/gpio_lines.hpp"
#include "utils/platform/platform.hpp"

namespace orvane
{

namespace
{

constexpr const char* baseEnableLine = "GPU_BASE_PWR_EN";

bool baseEnabled()
{
    int value = 0;
    return GetGPIOValue(baseEnableLine, value) && value == 1;
}

} // namespace

void PlaceholderBootOps::RunDbusService(OrvaneSvcState&)
{}

void PlaceholderBootOps::PowerMonitor(OrvaneSvcState&)
{}

uint32_t PlaceholderBootOps::Stby_Pwr_on_Sqnc_1(OrvaneSvcState&)
{
    return 1;
}

uint32_t PlaceholderBootOps::CheckWarmBootPowerGood(OrvaneSvcState&)
{
    return 0;
}

void PlaceholderBootOps::CreateSecureBootService(sem_t*, bool)
{}

void PlaceholderBootOps::UbbVrUpdate()
{}

uint32_t PlaceholderBootOps::Stby_Pwr_on_FpgaRail(OrvaneSvcState&)
{
    return 1;
}

void PlaceholderBootOps::RunSecureBoot(OrvaneSvcState&)
{}

void PlaceholderBootOps::CollectComponentTimes(ComponentTimes&)
{}

uint32_t PlaceholderBootOps::Stby_Pwr_on_Sqnc_3(OrvaneSvcState& state)
{
    state.standbyPowerStatus = true;
    return 1;
}

bool PlaceholderBootOps::ParallelTask(sem_t* semaphore)
{
    sem_post(semaphore);
    ConsoleLog(logging::level::INFO) << "*** Leave Boot Critical Section. ***";
    return true;
}

uint32_t PlaceholderBootOps::Base_Pwr_on_Sqnc(OrvaneSvcState& state)
{
    while (!baseEnabled())
    {
        platform::sleepMilliseconds(100);
    }
    state.basePowerStatus = true;
    state.sequenceEvent = sequence_event::basePowerOn;
    return 1;
}

uint32_t PlaceholderBootOps::Base_Pwr_off_Sqnc(OrvaneSvcState& state)
{
    if (state.getSequenceEvent() == sequence_event::basePowerOn)
    {
        while (baseEnabled())
        {
            platform::sleepMilliseconds(100);
        }
    }
    state.basePowerStatus = false;
    return 1;
}

uint32_t PlaceholderBootOps::CheckRmEfuseFault(OrvaneSvcState&)
{
    return 1;
}

} // namespace orvane
