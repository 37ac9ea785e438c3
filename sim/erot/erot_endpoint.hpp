#pragma once

#include "common/sim_clock.hpp"
#include "erot/erot_device.hpp"
#include "erot/link_faults.hpp"

#include <fstream>
#include <functional>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace ubbsim::erot
{

// The arguments of the MCTP call beside the request frame.
struct MctpCall
{
    uint8_t address = 0; // SMBus address
    uint8_t eid = 0;     // destination endpoint
    uint16_t timeoutMs = 0;
};

// How an exchange ended for the SMC.
struct Delivery
{
    enum class Kind
    {
        reply,    // `frame` arrived
        lost,     // the device acted, its reply never arrived
        linkDown, // the request never reached the device
        rejected, // wrongly addressed or framed: nothing answers it
    };
    Kind kind = Kind::reply;
    Bytes frame;
};

// One exchange, as the run's erot.jsonl records it.
struct ExchangeRecord
{
    double at = 0; // board seconds
    uint8_t opcode = 0;
    size_t requestLength = 0;
    std::optional<uint8_t> status; // none when the device never answered
    size_t responseLength = 0;
    Delivery::Kind delivery = Delivery::Kind::reply;
    std::string fault; // kinds that struck, or why it was rejected
};

// The eRoT behind its link: the device, the scenario's faults on the way
// and a record of every exchange. Safe to call from any thread.
class ErotEndpoint
{
  public:
    using Clock = std::function<SimTime()>;

    ErotEndpoint(ErotState state, std::vector<ErotFault> faults, Clock clock);

    // Appends one JSON line per exchange to the file from now on.
    void recordTo(const std::string& path);

    // A call that isn't to the eRoT's address and endpoint with the
    // commands' time-out, or whose frame header isn't the vendor's, is
    // rejected before the device sees it.
    Delivery exchange(const MctpCall& call, std::span<const uint8_t> request);

    // The SMC was reset (by the eRoT or otherwise).
    void smcReset();
    // True once when a system reset the device accepted is due: shortly
    // after its reply, so that the reply reaches the SMC first.
    bool resetDue();

    ErotState state() const;
    std::vector<ExchangeRecord> exchanges() const;
    int resets() const;

  private:
    Bytes distort(Bytes frame, const std::vector<const ErotFault*>& struck);
    void record(const ExchangeRecord& entry);

    mutable std::mutex mutex;
    ErotDevice device;
    LinkFaults faults;
    Clock clock;
    std::optional<SimTime> resetAt;
    int resetCount = 0;
    std::vector<ExchangeRecord> log;
    std::ofstream out;
};

std::string exchangeJson(const ExchangeRecord& entry);

} // namespace ubbsim::erot
