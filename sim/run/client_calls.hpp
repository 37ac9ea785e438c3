#pragma once

#include "scenario/scenario.hpp"

#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace ubbsim
{

// The scenario's management clients: each call runs the machine's busctl
// against the run's bus on a thread of its own, so that a daemon that
// blocks on the call doesn't stop the board. A call starts at its time or
// once the call before it has answered, whichever is later.
class ClientCalls
{
  public:
    ClientCalls() = default;
    ~ClientCalls();
    ClientCalls(const ClientCalls&) = delete;
    ClientCalls& operator=(const ClientCalls&) = delete;

    void start(const ClientCall& call);
    // Waits for every call and writes one JSON line each, in the order they
    // were started: "at", "busctl", "status" (the exit status) and "output"
    // (standard output and error).
    void finish(const std::string& path);

  private:
    struct Result
    {
        ClientCall call;
        int status = -1;
        std::string output;
    };

    void join();

    std::mutex mutex;
    std::vector<Result> results;
    std::thread last; // the latest call; it joins the one before it
};

} // namespace ubbsim
