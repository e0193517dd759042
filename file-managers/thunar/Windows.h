#pragma once

#include <map>
#include <string>
#include <vector>

namespace file_managers {

/// Has Thunar's windows show other emblems of the files with these URLs: Thunar reads emblems when
/// it shows a file, and is not told when GVfs stores others.
void showEmblems(const std::map<std::string, std::vector<std::string>>& emblems);

} // namespace file_managers
