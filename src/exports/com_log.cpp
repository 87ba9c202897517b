#include "Wrenlink/ComLog.h"

// The sink discards: every caller relies only on the call doing no harm and returning, and an
// application that loads the library gets no log file it did not ask for.
bool ComLog::hasInit = false;
std::string ComLog::appName;

ComLog::ComLog() = default;

void ComLog::Log(const char * /*format*/, ...) {}

void ComLog::Log(int32_t /*level*/, const char * /*format*/, ...) {}

bool ComLog::Initialise(const char * /*appName*/) { return true; }

std::string ComLog::GetCuurrentFoler() { return {}; }
