#pragma once

#include "erot/erot_state.hpp"
#include "erot/reply_frame.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace ubbsim::erot
{

// What faults change in the device's reports without touching its state.
struct Reporting
{
    std::vector<uint16_t> hiddenBpr;
    // Component and side (-1 both) reported with secure boot status 0.
    std::vector<std::pair<uint16_t, int>> failedSecureBoot;
};

// The eRoT: one request frame in, one response frame out, from its state.
// Requests of a known command but a wrong length are refused with
// status::badLength, unknown commands with status::unknownCommand; refusals
// carry no payload. Not thread-safe: the endpoint serialises the calls.
class ErotDevice
{
  public:
    // Board time in milliseconds, for the trace log.
    using Clock = std::function<uint64_t()>;

    ErotDevice(ErotState state, Clock clock);

    Bytes handle(std::span<const uint8_t> request);

    void setReporting(Reporting reporting);
    // The SMC came out of reset: the side selected for it boots now.
    void smcReset();
    // Whether a system reset was accepted since the last call.
    bool takeResetRequest();

    const ErotState& state() const
    {
        return current;
    }
    void appendTrace(const char (&tag)[5], uint32_t data1, uint32_t data2,
                     uint8_t severity);

  private:
    using Request = std::span<const uint8_t>;
    using Handler = Bytes (ErotDevice::*)(Request);
    struct Command
    {
        uint8_t opcode;
        size_t length; // 0: the command checks its own length
        Handler handler;
    };
    static const std::vector<Command>& commands();

    // flash_commands.cpp
    Bytes activeFlashConfig(Request request);
    Bytes signalBootSuccess(Request request);
    Bytes bprRead(Request request);
    Bytes arbCommit(Request request);
    Bytes selectActiveFlash(Request request);
    Bytes systemReset(Request request);
    Bytes getAutoArb(Request request);
    Bytes setAutoArb(Request request);
    Bytes getResetReason(Request request);
    Bytes setResetReason(Request request);
    void commitAntiRollback();
    // image_verify_command.cpp
    Bytes imageVerify(Request request);
    // component_info_command.cpp
    Bytes componentInfo(Request request);
    Bytes componentEntry(const ComponentState& component, uint8_t side) const;
    // security_commands.cpp
    Bytes bkcManifest(Request request);
    Bytes securitySettings(Request request);
    Bytes setManageability(Request request);
    Bytes tokenInstall(Request request);
    Bytes tokenErase(Request request);
    Bytes tokenRead(Request request);
    Bytes deviceId(Request request);
    Bytes identity(Request request);
    Bytes certificateChain(Request request);
    Bytes keyRevokeBits(Request request);
    Bytes svnRevokeBits(Request request);
    // record_commands.cpp
    Bytes persistGet(Request request);
    Bytes persistSet(Request request);
    Bytes oneByte(Request request);
    Bytes acknowledge(Request request);
    Bytes commandF1(Request request);
    Bytes recordSet(Request request);
    Bytes recordGet(Request request);
    // trace_log_command.cpp
    Bytes traceLog(Request request);
    Bytes healthPoll(Request request);

    // A read of several pages works on the snapshot its first page took;
    // the token of each page is the index of the next entry.
    struct Paging
    {
        uint8_t opcode = 0;
        std::vector<Bytes> entries;
    };
    Bytes page(Request request, Paging& paging, uint8_t version, size_t size,
               uint8_t extraFlags);

    ErotState current;
    Clock clock;
    Reporting reporting;
    bool resetRequested = false;
    Paging componentPages;
    Paging tracePages;
};

Bytes statusOnly(std::span<const uint8_t> request, uint8_t code);

} // namespace ubbsim::erot
