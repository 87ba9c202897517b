#include "services.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

#include "log.h"
#include "phone.h"
#include "transport.h"

namespace phone {

bool write_all_unless_closed(int fd, std::string_view data, int closed_signal) {
    while (!data.empty()) {
        pollfd fds[2] = {{fd, POLLOUT, 0}, {closed_signal, POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if (fds[1].revents != 0) return false;
        const ssize_t n = ::write(fd, data.data(), data.size());
        if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (n <= 0) return false;
        data.remove_prefix(static_cast<std::size_t>(n));
    }
    return true;
}

void run_service(Stream &stream, std::string_view name, const PhoneContext &phone) {
    if (name.starts_with("shell:")) return run_shell(stream, name.substr(6), phone);
    if (name == "sync:") return run_sync(stream, phone);
    if (name.starts_with("tcp:")) return run_tcp_forward(stream, name.substr(4), phone);
    if (name.starts_with("localabstract:")) return run_abstract_forward(stream, name.substr(14), phone);
    log(1, "%s: no service \"%.*s\"", phone.name.c_str(), static_cast<int>(name.size()), name.data());
    stream.refuse();
}

}  // namespace phone
