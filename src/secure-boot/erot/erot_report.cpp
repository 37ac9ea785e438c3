#include "secure-boot/erot/erot_report.hpp"

#include "logging/log_line.hpp"

namespace orvane
{

std::string FailText(const std::string& api, CodeWord word)
{
    return "Fail to run " + api +
           (word == CodeWord::returnCode ? ". Return Code: "
                                         : ". Error Code: ");
}

void ReportErotFailure(const std::string& api, const std::string& text,
                       int value)
{
    NvEvent(logging::level::CRITICAL,
            "ResourceEvent.1.2.1.ResourceSelfTestFailed",
            "[Secure-Boot] Fail to access eRoT API - " + api +
                "; Return code: " + std::to_string(value),
            "", "")
        << text << value;
}

void ReportErotFailure(const std::string& api, CodeWord word, int value)
{
    ReportErotFailure(api, FailText(api, word), value);
}

} // namespace orvane
