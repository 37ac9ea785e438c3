#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace ubbsim
{

// One method call or property write that a neighbour received.
struct BusCall
{
    std::string service;   // the neighbour's bus name
    std::string member;    // the method, or the property written
    std::string arguments; // the arguments (or the new value) as text
    bool propertyWrite = false;

    // "service Member(arguments)" or "service Property = value".
    std::string text() const;
};

// Safe to add to from the neighbours' threads while another reads it.
class CallLog
{
  public:
    void add(BusCall call);
    std::vector<BusCall> entries() const;
    // How many calls or writes of `member` arrived.
    size_t count(const std::string& member) const;

  private:
    mutable std::mutex mutex;
    std::vector<BusCall> calls;
};

} // namespace ubbsim
