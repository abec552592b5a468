#pragma once
// How the arguments of device operations read in the record.
#include <string>

#include "VelKeyTypes.h"

// Printable ASCII as it is, other bytes as \xNN.
std::string Shown(const void* data, size_t size);

// "null" for a null pointer.
std::string Shown(const char* text);
std::string Shown(const wchar_t* text);

// "type=value" each, blank-separated.
std::string Shown(ISmartList<tag_VEL_CERT_FILTER_ITEM>& filters);

// "type:library:rsa hash:sm2 hash" each, with ":vendor and product" when that filter is in force.
std::string Shown(ISmartList<tag_VEL_KEY_INFO_EX>& keys);
