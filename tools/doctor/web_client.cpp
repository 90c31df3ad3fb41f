#include "tools/doctor/web_client.h"

#include "hdtv/kiosk.h"

#include <event2/buffer.h>
#include <event2/event.h>
#include <event2/http.h>
#include <event2/keyvalq_struct.h>
#include <memory>
#include <strings.h>

namespace {

constexpr int patience = 2; // seconds
constexpr ev_ssize_t longest_body = 1000000;
constexpr int usual_port = 80;

using base_owner = std::unique_ptr<event_base, decltype(&event_base_free)>;
using connection_owner = std::unique_ptr<evhttp_connection, decltype(&evhttp_connection_free)>;
using uri_owner = std::unique_ptr<evhttp_uri, decltype(&evhttp_uri_free)>;

struct exchange {
    event_base *base;
    web_answer answer;
};

// Null instead of a request means that there was no answer.
void take_answer(evhttp_request *request, void *arg) {
    auto &[base, answer] = *static_cast<exchange *>(arg);
    event_base_loopbreak(base);
    if (request == nullptr) {
        return;
    }
    answer.status = evhttp_request_get_response_code(request);
    evbuffer *body = evhttp_request_get_input_buffer(request);
    const std::size_t size = evbuffer_get_length(body);
    if (size > 0) {
        answer.body.assign(reinterpret_cast<const char *>(evbuffer_pullup(body, -1)), size);
    }
    const evkeyvalq *headers = evhttp_request_get_input_headers(request);
    for (const evkeyval *each = headers->tqh_first; each != nullptr; each = each->next.tqe_next) {
        answer.headers.emplace_back(each->key, each->value);
    }
}

} // namespace

web_answer fetch_from_unit(const std::string &name) {
    const uri_owner page(evhttp_uri_parse(station_page), evhttp_uri_free);
    const base_owner base(event_base_new(), event_base_free);
    exchange taken = {base.get(), {}};
    const char *host = evhttp_uri_get_host(page.get());
    const int port = evhttp_uri_get_port(page.get());
    const connection_owner connection(
        evhttp_connection_base_new(base.get(), nullptr, host,
                                   static_cast<ev_uint16_t>(port > 0 ? port : usual_port)),
        evhttp_connection_free);
    evhttp_connection_set_timeout(connection.get(), patience);
    evhttp_connection_set_max_body_size(connection.get(), longest_body);
    // One that sends a byte from time to time never times out.
    const timeval limit = {patience, 0};
    event_base_loopexit(base.get(), &limit);
    evhttp_request *request = evhttp_request_new(take_answer, &taken);
    evhttp_add_header(evhttp_request_get_output_headers(request), "Host", host);
    evhttp_add_header(evhttp_request_get_output_headers(request), "Connection", "close");
    const std::string path = evhttp_uri_get_path(page.get()) + name;
    if (evhttp_make_request(connection.get(), request, EVHTTP_REQ_GET, path.c_str()) == 0) {
        event_base_dispatch(base.get());
    }
    return taken.answer;
}

std::string header_of(const web_answer &answer, const std::string &name) {
    for (const auto &[key, value] : answer.headers) {
        if (strcasecmp(key.c_str(), name.c_str()) == 0) {
            return value;
        }
    }
    return "";
}
