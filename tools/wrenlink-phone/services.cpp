#include "services.h"

#include "log.h"
#include "phone.h"
#include "transport.h"

namespace phone {

void run_service(Stream &stream, std::string_view name, const PhoneContext &phone) {
    if (name.starts_with("shell:")) return run_shell(stream, name.substr(6), phone);
    if (name == "sync:") return run_sync(stream, phone);
    if (name.starts_with("tcp:")) return run_tcp_forward(stream, name.substr(4), phone);
    log(1, "%s: no service \"%.*s\"", phone.name.c_str(), static_cast<int>(name.size()), name.data());
    stream.refuse();
}

}  // namespace phone
