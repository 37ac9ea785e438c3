#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace orvane
{

// A copy of an image file that the file system refused, with the board
// paths of both ends; caught around the whole firmware copy.
struct FirmwareCopyError : std::runtime_error
{
    FirmwareCopyError(const std::string& from, const std::string& to,
                      const std::string& why) :
        std::runtime_error(why),
        from(from), to(to)
    {}

    std::string from;
    std::string to;
};

// Logs both SHA-384 digests as the copy shows a difference.
void LogDifferentHashes(const uint8_t* active, const uint8_t* inactive);

// Hashes both files, a missing or unreadable one as all zeros, and logs the
// digests when they differ; true when they differ.
bool HashesDiffer(const std::string& active, const std::string& inactive);

// Copies the active file over the inactive one; false when nothing was
// copied, FirmwareCopyError when the file system refused.
bool CopyImageFile(const std::string& active, const std::string& inactive);

// Copies the active file over the inactive one when their digests differ.
bool hashAndCopy(const std::string& active, const std::string& inactive);

// The same, except that an active file that doesn't exist removes the
// inactive one: a file that only the inactive side holds goes.
bool copyIfDifferent(const std::string& active, const std::string& inactive);

} // namespace orvane
