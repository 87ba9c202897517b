#include "adb/runner/tool_path.h"

#include <cstdio>

#include "base/platform.h"

namespace wrenlink::adb {

std::string adb_path_for_executable(std::string executable) {
    int slashes = 0;
    for (std::size_t i = executable.size(); i-- > 0;) {
        if (executable[i] == '/' && ++slashes == 2) {
            executable.resize(i);
            break;
        }
    }
    return executable + "/Resources/adb";
}

}  // namespace wrenlink::adb

std::string GetAdbPath() {
    const std::string executable = wrenlink::platform::executable_path();
    // Kept, in these words and with no line end: the line callers' logs have always shown.
    if (executable.empty()) std::printf("_NSGetExecutablePath fail.....");
    return wrenlink::adb::adb_path_for_executable(executable);
}
