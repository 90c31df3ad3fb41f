#include "tools/gatewayctl/metrics_server.h"

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/socket.h"

#include <cerrno>
#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/http.h>
#include <event2/listener.h>
#include <sys/socket.h>
#include <utility>

namespace {

constexpr int backlog = 16;
constexpr std::chrono::seconds longest_visit(10);
constexpr int most_header_bytes = 8192;
constexpr int most_body_bytes = 1024; // nobody has a reason to send one

constexpr int every_method = EVHTTP_REQ_GET | EVHTTP_REQ_POST | EVHTTP_REQ_HEAD | EVHTTP_REQ_PUT |
                             EVHTTP_REQ_DELETE | EVHTTP_REQ_OPTIONS | EVHTTP_REQ_TRACE |
                             EVHTTP_REQ_CONNECT | EVHTTP_REQ_PATCH;

// The library calls with no argument of ours.
bool has_failed_to_accept = false;

void accept_failed_fn(evconnlistener *listener, void * /*arg*/) {
    evconnlistener_disable(listener);
    has_failed_to_accept = true;
}

descriptor_owner listen_at(const sockaddr_in &address) {
    descriptor_owner listening = open_socket(SOCK_STREAM | SOCK_NONBLOCK);
    const int on = 1;
    setsockopt(listening.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(listening.get(), generic(address), sizeof address) != 0 ||
        listen(listening.get(), backlog) != 0) {
        throw run_failure("cannot listen on " + to_text(address) + ": " + reason(errno));
    }
    return listening;
}

void reply(evhttp_request *request, int status, const char *words, const std::string &text) {
    evbuffer *body = evhttp_request_get_output_buffer(request);
    evbuffer_add(body, text.data(), text.size());
    evhttp_send_reply(request, status, words, nullptr);
}

bool is_for_metrics(evhttp_request *request) {
    const evhttp_uri *address = evhttp_request_get_evhttp_uri(request);
    const char *path = address == nullptr ? nullptr : evhttp_uri_get_path(address);
    return path != nullptr && std::string(path) == "/metrics";
}

// The library takes its callbacks away from a connection that it ends.
bool is_ended(bufferevent *stream) {
    bufferevent_event_cb callback = nullptr;
    bufferevent_getcb(stream, nullptr, nullptr, &callback, nullptr);
    return callback == nullptr;
}

} // namespace

metrics_server::metrics_server(const sockaddr_in &address, shortage &lack, text_fn text)
    : lack_(lack), text_(std::move(text)), base_(event_base_new(), event_base_free),
      server_(evhttp_new(base_.get()), evhttp_free) {
    descriptor_owner listening = listen_at(address);
    listener_ =
        evconnlistener_new(base_.get(), nullptr, nullptr,
                           LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC, 0, listening.release());
    evhttp_bind_listener(server_.get(), listener_);
    evconnlistener_set_error_cb(listener_, accept_failed_fn);
    evhttp_set_bevcb(server_.get(), open_fn, this);
    evhttp_set_gencb(server_.get(), answer_fn, this);
    evhttp_set_allowed_methods(server_.get(), every_method);
    evhttp_set_max_headers_size(server_.get(), most_header_bytes);
    evhttp_set_max_body_size(server_.get(), most_body_bytes);
}

metrics_server::~metrics_server() {
    server_.reset();
    forget_ended_clients();
}

bufferevent *metrics_server::open_fn(event_base *base, void *arg) {
    auto &self = *static_cast<metrics_server *>(arg);
    bufferevent *stream = bufferevent_socket_new(base, -1, 0);
    if (stream != nullptr) {
        bufferevent_incref(stream);
        self.clients_.push_back({stream, clock_type::now() + longest_visit});
    }
    return stream;
}

void metrics_server::answer_fn(evhttp_request *request, void *arg) {
    const auto &self = *static_cast<metrics_server *>(arg);
    evkeyvalq *headers = evhttp_request_get_output_headers(request);
    evhttp_add_header(headers, "Content-Type", "text/plain; charset=utf-8");
    if (!is_for_metrics(request)) {
        reply(request, HTTP_NOTFOUND, "Not Found", "There is only /metrics here.\n");
        return;
    }
    const evhttp_cmd_type method = evhttp_request_get_command(request);
    if (method != EVHTTP_REQ_GET && method != EVHTTP_REQ_HEAD) {
        evhttp_add_header(headers, "Allow", "GET, HEAD");
        reply(request, HTTP_BADMETHOD, "Method Not Allowed", "GET it.\n");
        return;
    }
    evhttp_remove_header(headers, "Content-Type");
    evhttp_add_header(headers, "Content-Type", "text/plain; version=0.0.4; charset=utf-8");
    // The library would send a body even to those who ask for the head only.
    reply(request, HTTP_OK, "OK", method == EVHTTP_REQ_HEAD ? "" : self.text_());
}

void metrics_server::watch(poll_set &set) const {
    for (const client &one : clients_) {
        const bool is_sending = evbuffer_get_length(bufferevent_get_output(one.stream)) > 0;
        const int events = POLLIN | (is_sending ? POLLOUT : 0);
        set.watch(bufferevent_getfd(one.stream), static_cast<short>(events));
        set.wake_by(one.end);
    }
    if (event_base_get_num_events(base_.get(), EVENT_BASE_COUNT_ACTIVE) > 0) {
        set.wake_by(clock_type::now()); // it has put something off
    }
    if (lack_.is_resting()) {
        set.wake_by(lack_.rest_end());
    } else {
        set.watch(evconnlistener_get_fd(listener_), POLLIN);
    }
}

void metrics_server::advance() {
    lack_.is_resting() ? evconnlistener_disable(listener_) : evconnlistener_enable(listener_);
    has_failed_to_accept = false;
    event_base_loop(base_.get(), EVLOOP_ONCE | EVLOOP_NONBLOCK);
    forget_ended_clients();
    end_late_clients();
    if (has_failed_to_accept) {
        lack_.note();
    }
}

// The library notices the end of the connection at the next opportunity, as if it were the client's.
void metrics_server::end_late_clients() {
    std::size_t left = clients_.size();
    for (const client &one : clients_) {
        if (left-- > most_clients || clock_type::now() >= one.end) {
            shutdown(bufferevent_getfd(one.stream), SHUT_RDWR);
        }
    }
}

void metrics_server::forget_ended_clients() {
    clients_.remove_if([](const client &one) {
        const bool has_ended = is_ended(one.stream);
        if (has_ended) {
            bufferevent_decref(one.stream);
        }
        return has_ended;
    });
}
