#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace orvane
{

// Progress numbers of a base power-on; 1 to 13 name rails.
namespace sequence_event
{
constexpr uint32_t none = 0;
constexpr uint32_t beforeHotswap = 16;
constexpr uint32_t hotswap = 17;
constexpr uint32_t module = 18;
constexpr uint32_t basePowerOn = 19;
} // namespace sequence_event

// The power state record. One instance lives on main's stack for the life
// of the process; the D-Bus thread and the power monitor hold references.
// The flags are polled across threads without a lock, so each is atomic.
struct OrvaneSvcState
{
    std::atomic<bool> baseDownRequest{false};
    std::atomic<bool> baseTransition{false};
    std::atomic<bool> standbyPowerStatus{false};
    std::atomic<bool> basePowerStatus{false};
    std::atomic<bool> ubbFpgaStatus{false};
    std::atomic<bool> smcFpgaStatus{false};
    std::atomic<bool> serverResetStatus{false};
    std::atomic<uint8_t> oamPresentMask{0};
    std::atomic<uint8_t> moduleGoodMask{0};
    std::atomic<bool> oamErrorInjection{false};
    std::atomic<bool> ubbFpgaConfigured{false};
    std::atomic<uint32_t> sequenceEvent{sequence_event::none};
    std::vector<std::string> messages; // no sequence reads it

    uint32_t getSequenceEvent() const
    {
        return sequenceEvent.load();
    }
};

} // namespace orvane
