#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orvane
{

struct MctpEndpointService
{
    std::string service;
    std::string path;
    std::string interface;
};

// Each opens a private system bus connection for one method call; the
// result is 0 or more on success and the negative errno of the failing
// sd-bus call otherwise.
int MctpSendAddress(const MctpEndpointService& endpoint, uint8_t a, uint8_t b,
                    uint8_t c, bool flag, const std::vector<uint8_t>& data);
int MctpSendBusOwner(const MctpEndpointService& endpoint, uint8_t a, bool flag,
                     const std::vector<uint8_t>& data);
int MctpSendRecv(const MctpEndpointService& endpoint, uint8_t eid,
                 uint16_t timeout, const std::vector<uint8_t>& request,
                 std::vector<uint8_t>& response);

} // namespace orvane
