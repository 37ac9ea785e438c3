#pragma once

#include <string>

namespace orvane
{

class SecureBootService;

// True when the RM of all eight OAMs answers with the SHA-256 of the image.
bool CheckRmHash(SecureBootService& service, const std::string& imagePath);

} // namespace orvane
