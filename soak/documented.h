// The results that the public header documents, call by call, for every call the soak makes. A
// result outside its call's table is undocumented: the soak counts it as a fault of the library.
//
// Values are the calls' own: an AgentStatus or an int32_t result, widened. Three calls have no
// result value of their own and get one here:
//   NetConnectionOpen     1 for a handle, 0 for NULL;
//   NDDStartScan.onCode   the code the scan's loop reported; without one, kProgressComplete when
//                         the last progress had reached its total (a scan that finished, though
//                         the stream ended before its code) and kNoCode otherwise; kTwoCodes for
//                         more than one code (both undocumented);
//   NFCFileRefClose       as any call; after a failed exchange the soak closes the connection
//                         first, so that the handle is released.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace wrenlink::soak {

enum class Verdict { Ok, Failed, Undocumented };

constexpr int64_t kNoCode = -1;
constexpr int64_t kTwoCodes = -2;
constexpr int64_t kProgressComplete = -3;

// Ok when the value means the call did what was asked, Failed when it is one of the call's
// documented failures, Undocumented otherwise (also for a call with no table).
Verdict judge(std::string_view call, int64_t value);

// The value as a reader knows it: "ECONNRESET", "AgentShortPayload", "-4", "handle".
std::string value_name(std::string_view call, int64_t value);

// Whether the soak has a table for the call.
bool has_table(std::string_view call);

}  // namespace wrenlink::soak
