#include "server.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "base/platform.h"
#include "frame.h"
#include "peer_check.h"

namespace wrenlink::reference_agent {

Agent::Agent(AgentOptions options)
    : options_(std::move(options)),
      log_(options_.verbose),
      sandbox_(options_.root),
      catalogue_(sandbox_),
      scanner_(sandbox_, options_.scan, log_) {
    int error = 0;
    listener_ = listen_at(options_.control, 16, error);
    if (!listener_) throw std::system_error(error, std::generic_category(), "listen on " + describe(options_.control));
    if (!options_.control.is_local()) port_ = local_port(listener_.get());
    int fds[2];
    if (!platform::cloexec_pipe(fds)) throw std::system_error(errno, std::generic_category(), "pipe");
    wake_read_.reset(fds[0]);
    wake_write_.reset(fds[1]);
}

Agent::~Agent() { end_all(); }

std::string Agent::listening_on() const {
    Endpoint at = options_.control;
    at.port = port_;
    return describe(at);
}

void Agent::stop() {
    const char byte = 1;
    (void)!::write(wake_write_.get(), &byte, 1);
}

void Agent::run() {
    for (;;) {
        pollfd p[2] = {{listener_.get(), POLLIN, 0}, {wake_read_.get(), POLLIN, 0}};
        const int ready = ::poll(p, 2, 1000);
        if (ready < 0 && errno != EINTR) break;
        if (p[1].revents != 0) break;
        reap_finished();
        if (ready > 0 && (p[0].revents & POLLIN) != 0) accept_one();
    }
    end_all();
}

void Agent::accept_one() {
    UniqueFd fd = accept_trusted(listener_.get(), log_, "a connection");
    if (!fd) return;
    if (connections_.size() >= options_.max_connections) {
        log_.say("too many connections; one refused");
        return;  // closed here
    }
    const int number = next_number_++;
    log_.detail(connection_tag(number) + " connected");
    auto session = std::make_unique<Session>(number, std::move(fd), Services{sandbox_, catalogue_, scanner_, log_});
    Session *s = session.get();
    connections_.push_back(Connection{std::move(session), std::thread([s] { s->run(); })});
}

void Agent::reap_finished() {
    for (auto it = connections_.begin(); it != connections_.end();) {
        if (it->session->finished()) {
            it->thread.join();
            it = connections_.erase(it);
        } else {
            ++it;
        }
    }
}

void Agent::end_all() {
    listener_.reset();
    scanner_.shutdown();
    for (auto &c : connections_) c.session->interrupt();
    for (auto &c : connections_) c.thread.join();
    connections_.clear();
}

}  // namespace wrenlink::reference_agent
