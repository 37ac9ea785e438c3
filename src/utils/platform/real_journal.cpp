#include "utils/platform/real_journal.hpp"

// The location fields are given by the caller, not by the library's macros.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

namespace orvane::platform
{

namespace
{

class RealJournal : public Journal
{
  public:
    void print(int priority, const std::string& file, int line,
               const std::string& function, const std::string& message) override
    {
        std::string fileField = "CODE_FILE=" + file;
        std::string lineField = "CODE_LINE=" + std::to_string(line);
        // A journal that can't be reached loses the entry; nothing to do.
        sd_journal_print_with_location(priority, fileField.c_str(),
                                       lineField.c_str(), function.c_str(),
                                       "%s", message.c_str());
    }
};

} // namespace

std::unique_ptr<Journal> makeRealJournal()
{
    return std::make_unique<RealJournal>();
}

} // namespace orvane::platform
