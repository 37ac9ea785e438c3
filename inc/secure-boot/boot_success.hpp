#pragma once

#include <string>

namespace orvane
{

class SecureBootService;

// Reports the boot's success once the non-volatile log partition can take
// it, on a detached thread of its own.
void reportBootMessage(const std::string& text);

// The body of that thread: waits for the partition, then raises
// "BootSuccess" with `text`, or "BootFailure" when it can't be used.
void ReportBootMessageNow(const std::string& text);

// Waits, without limit, until `path` is a mount point in the mount table,
// then checks that it can be listed.
bool checkPartitionAccess(const std::string& path);

// After the firmware copy: refreshes the image information and reports an
// SMC FPGA backup that the eRoT has no valid digest for.
void postBootReport(SecureBootService& service);

} // namespace orvane
