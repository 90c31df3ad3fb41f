#pragma once

#include "tools/gatewayctl/poll_set.h"
#include "tools/gatewayctl/shortage.h"

#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <netinet/in.h>
#include <string>

struct bufferevent;
struct event_base;
struct evhttp;
struct evhttp_request;
struct evconnlistener;

/// Answers GET /metrics over HTTP, and nothing else, with the event library's own server. It never blocks: its
/// owner does the waiting.
class metrics_server {
  public:
    using text_fn = std::function<std::string()>;

    /// Beyond that the oldest connection is ended, so that silent clients do no harm.
    static constexpr std::size_t most_clients = 32;

    /// Fails with run_failure if it cannot listen there.
    metrics_server(const sockaddr_in &address, shortage &lack, text_fn text);
    metrics_server(const metrics_server &) = delete;
    metrics_server &operator=(const metrics_server &) = delete;
    ~metrics_server();

    /// Adds what it is waiting for.
    void watch(poll_set &set) const;

    /// After a wait: answers requests. Opens descriptors, so call it last.
    void advance();

  private:
    /// A connection, kept in sight as long as the server has it.
    struct client {
        bufferevent *stream;
        clock_type::time_point end;
    };

    static bufferevent *open_fn(event_base *base, void *arg);
    static void answer_fn(evhttp_request *request, void *arg);
    void end_late_clients();
    void forget_ended_clients();

    shortage &lack_;
    text_fn text_;
    std::unique_ptr<event_base, void (*)(event_base *)> base_;
    std::unique_ptr<evhttp, void (*)(evhttp *)> server_;
    evconnlistener *listener_ = nullptr; // owned by the server
    std::list<client> clients_;          // the oldest first
};
