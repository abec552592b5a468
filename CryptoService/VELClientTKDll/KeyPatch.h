#pragma once
// Key patches: fragments of key-list text that installed packages lay on the disk.
#include <string>
#include <vector>

// Appends the text of every patch file to `out`: those of the host application's package below
// /opt/apps/ when it is installed there, else those below /usr/local/vel/. A missing file adds
// nothing.
void GetKeyPatchXml(std::string& out);

// Names of the regular files, respectively the folders, directly inside `dir`, unsorted. The
// pattern "*" takes all, any other the names that contain it. A folder that cannot be opened gives
// none.
std::vector<std::string> GetListFiles(const std::string& dir, const std::string& pattern);
std::vector<std::string> GetListFolders(const std::string& dir, const std::string& pattern);
