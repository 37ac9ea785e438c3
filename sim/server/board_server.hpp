#pragma once

#include "board/board.hpp"

#include <atomic>
#include <list>
#include <mutex>
#include <string>
#include <thread>

namespace ubbsim
{

// Serves the board to the daemon's backends on a Unix socket: one thread
// per connection, one request and one reply at a time.
class BoardServer
{
  public:
    BoardServer(Board& board, std::string socketPath);
    ~BoardServer();
    BoardServer(const BoardServer&) = delete;
    BoardServer& operator=(const BoardServer&) = delete;

    // Throws std::system_error when the socket can't be made.
    void start();
    void stop();

  private:
    void acceptLoop();
    void serve(int fd, uint64_t owner);

    Board& board;
    std::string socketPath;
    int listener = -1;
    std::atomic<bool> running{false};
    std::thread acceptor;
    std::mutex mutex;
    std::list<std::thread> workers;
    std::list<int> connections;
    uint64_t nextOwner = 1;
};

} // namespace ubbsim
