#pragma once

#include "board/board.hpp"
#include "board/board_model.hpp"
#include "board/board_time.hpp"
#include "board/topology.hpp"

#include <array>
#include <memory>
#include <mutex>
#include <optional>
#include <set>

namespace ubbsim
{

// The board behind the daemon's backends. One lock guards the model; every
// call first applies what fell due up to its own time, and nobody sleeps
// while holding it. Each call takes the board time that the operation
// costs on the SMC: its caller is busy until then.
class VirtualBoard final : public Board
{
  public:
    static constexpr uint32_t coldReset = 0x00000001;
    static constexpr uint32_t warmReset = 0x00001000;

    VirtualBoard(const Scenario& scenario, std::unique_ptr<BoardTime> time);

    int openBus(int bus) override;
    int transfer(int bus, std::vector<I2cSegment>& segments, bool pec) override;
    bool lineExists(const std::string& name) override;
    int requestLine(uint64_t owner, const std::string& name,
                    const std::string& consumer, bool output, int flags,
                    int defaultValue, uint32_t& handle) override;
    int getLine(uint32_t handle) override;
    int setLine(uint32_t handle, int value) override;
    int releaseLine(uint32_t handle) override;
    void releaseOwner(uint64_t owner) override;
    uint32_t resetReason() override;
    void smcReset() override;
    int retimerEnsure(int switchValue, const std::string& path) override;
    void loadImages(DeviceImages images) override;
    int driverWrite(const std::string& file, const std::string& text) override;
    int toolRun(const std::string& tool,
                const std::vector<std::string>& arguments) override;
    std::optional<std::vector<uint8_t>> rmImage(int oam) override;
    void advance() override;
    BoardStats stats() override;
    void writeWaveform(const std::string& path) override;
    std::vector<std::string> summary() override;

  private:
    // Takes the lock with everything due applied.
    std::unique_lock<std::mutex> settle();
    // Carries out `operation` and spends `cost` of board time on it.
    template <typename Operation>
    auto spending(SimTime cost, Operation operation);
    // Waits for the bus to be free, moves the messages, waits for the wire.
    int busTransfer(int bus, std::vector<I2cSegment>& segments, bool pec);

    std::unique_ptr<BoardTime> time;
    std::mutex mutex;
    BoardModel model;
    std::array<SimTime, topology::busCount> busFree{};
    BoardStats counts;
    uint32_t reason;
    // Switch values whose retimer never takes a new image.
    std::set<int> stuckRetimers;
    std::array<std::optional<std::vector<uint8_t>>, 8> rmImages;
};

// A board on a time source of its own choosing; tests drive it by hand.
std::unique_ptr<Board> makeBoard(const Scenario& scenario,
                                 std::unique_ptr<BoardTime> time);

} // namespace ubbsim
