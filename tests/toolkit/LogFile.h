#pragma once
// Reads what the toolkit's log thread wrote. Only in the sandbox, where the file is ours.
#include <string>

// What is in the log file behind the first `from` bytes once `text` is there, which is waited for;
// empty when it does not come.
std::string LogOnceItHas(const std::string& text, size_t from = 0);

std::string LogContent();

// Whether the log has a line of that level, from a place that the expression matches and with
// exactly that message.
bool HasLogLine(const std::string& log, const std::string& level, const std::string& place,
                const std::string& message);
