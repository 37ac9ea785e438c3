#include "board/board.hpp"

#include "board/virtual_board.hpp"

namespace ubbsim
{

std::unique_ptr<Board> makeBoard(const Scenario& scenario,
                                 std::unique_ptr<BoardTime> time)
{
    return std::make_unique<VirtualBoard>(scenario, std::move(time));
}

std::unique_ptr<Board> makeBoard(const Scenario& scenario,
                                 const SimClock& clock)
{
    return makeBoard(scenario, clockTime(clock));
}

} // namespace ubbsim
