#include <Wrenlink/ComLog.h>

#include <cstdio>

int main() {
    ComLog::Log("%s\n", "discarded");
    std::printf("consumer_cxx: %d\n", ComLog::Initialise("consumer") ? 1 : 0);
    return ComLog::GetCuurrentFoler().empty() ? 0 : 1;
}
