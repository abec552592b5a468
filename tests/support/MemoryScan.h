#pragma once
// Looking for secrets in the memory of another process, as whoever reads a core image would.
#include <sys/types.h>

#include <string>
#include <vector>

// An ASCII text as bytes, as 2-byte characters of either byte order, and as 4-byte characters; the
// zero bytes around the whole are left out.
std::vector<std::string> FormsOf(const std::string& text);

// Those of the byte strings that appear in what the process can read. Throws std::runtime_error
// when its memory cannot be read.
std::vector<std::string> FoundInMemory(pid_t process, const std::vector<std::string>& wanted);
