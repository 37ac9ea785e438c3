#pragma once

#include "board/board.hpp"

#include <sys/types.h>

#include <atomic>
#include <list>
#include <map>
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
    // Requests served to the connections of one process, so that what one
    // of two daemons did to the board can be told apart.
    uint64_t requestsFrom(pid_t process);

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
    std::map<pid_t, uint64_t> requestsByProcess;
};

} // namespace ubbsim
