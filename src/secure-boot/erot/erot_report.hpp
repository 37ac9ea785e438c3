#pragma once

#include <string>

namespace orvane
{

// The word that a failure text uses for the number; each call keeps its
// own, even where "Return Code" reports a device status.
enum class CodeWord
{
    returnCode,
    errorCode,
};

// "Fail to run <api>. Return Code: " or "... Error Code: ".
std::string FailText(const std::string& api, CodeWord word);

// Raises the self-test event of a failed eRoT call: its argument names the
// call `api` and the value, its text is `text` followed by the value.
void ReportErotFailure(const std::string& api, const std::string& text,
                       int value);

// The common form: the text is FailText(api, word).
void ReportErotFailure(const std::string& api, CodeWord word, int value);

} // namespace orvane
