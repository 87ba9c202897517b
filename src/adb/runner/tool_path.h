// Where the adb tool lies: in a folder `Resources` beside the folder of the running executable.
#pragma once

#include <string>

// <folder of the running executable>/../Resources/adb, found anew for every call.
std::string GetAdbPath();

namespace wrenlink::adb {

// The tool's path for an executable at `executable`: the path is cut at its second "/" from the
// end (a path with fewer stays whole) and "/Resources/adb" is appended.
std::string adb_path_for_executable(std::string executable);

}  // namespace wrenlink::adb
