#pragma once

#include "board/board.hpp"
#include "server/dispatch.hpp"
#include "virtual/board_link.hpp"

namespace ubbsim
{

// The board in the same process: requests are carried out at once, on the
// caller's thread. Tests run the daemon's code on it without a socket.
class DirectPort : public BoardPort
{
  public:
    explicit DirectPort(Board& board, uint64_t owner = 1) :
        board(board), owner(owner)
    {}

    std::vector<uint8_t> call(const WireWriter& request) override
    {
        return dispatch(board, request.buffer(), owner);
    }

  private:
    Board& board;
    uint64_t owner;
};

} // namespace ubbsim
