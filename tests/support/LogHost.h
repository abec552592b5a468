#pragma once
// For the tests of the debug log: files, waiting, and hosts in processes of their own.
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "Eventually.h"
#include "Traces.h"

std::string Slurp(const std::string& path);
void Spill(const std::string& path, const std::string& text);
bool Exists(const std::string& path);

// The lines of a log file without its mark, parted at "\r\n\r\n"; what follows the last separator
// is the last element when it is not empty.
std::vector<std::string> LogLines(const std::string& path);

// Waits for that many lines with their separators, then returns them.
std::vector<std::string> AwaitLines(const std::string& path, size_t count);

// Runs `body` in a forked process that then ends through exit(), destructors and all. Its exit
// code, or 1000 and the signal; more than four minutes count as signal 9.
int RunHost(const std::function<void()>& body);
