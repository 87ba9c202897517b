// The services a phone offers on a stream the server opens: "shell:", "sync:", "tcp:PORT" and
// "localabstract:NAME".
#pragma once

#include <string_view>

namespace phone {

class Stream;
struct PhoneContext;

// Runs the named service on the stream until it is done or the server closes it. Accepts or
// refuses the stream first; the caller closes it afterwards.
void run_service(Stream &stream, std::string_view name, const PhoneContext &phone);

// Writes all of the data to a non-blocking descriptor unless the stream's closed signal comes
// first: a child or a port that stops reading must not hold a stream open. (The phone ignores
// SIGPIPE, so this serves pipes and sockets alike.)
bool write_all_unless_closed(int fd, std::string_view data, int closed_signal);

void run_shell(Stream &stream, std::string_view command, const PhoneContext &phone);
void run_sync(Stream &stream, const PhoneContext &phone);
void run_tcp_forward(Stream &stream, std::string_view target, const PhoneContext &phone);
void run_abstract_forward(Stream &stream, std::string_view name, const PhoneContext &phone);

}  // namespace phone
