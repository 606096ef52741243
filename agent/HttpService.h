// The agent's HTTP interface, off unless --listen names an address:
//   GET /               a web page of the view that follows its changes
//   GET /api/v1/view    the JSON view (as --json prints it); 503 before the first
//   GET /api/v1/events  server-sent events, one "change" event per line of the
//                       live mode, as they happen
//   GET /metrics        Prometheus text format
//   GET /healthz        200 while the work runs
//   GET /readyz         200 once the first view is made, else 503
// Away from loopback every request needs the bearer token. Handlers read
// copies from the Board: a slow client holds up only its own connection.
#pragma once
#include <memory>
#include <string>

#include "agent/Board.h"

namespace HarbecAgent {

struct HttpSettings {
  std::string listen;     // "ADDR:PORT"; port 0 takes a free one
  std::string token;      // bearer token; empty: none asked
  std::string tlsCert, tlsKey;  // PEM files; both or neither
};

class HttpService {
 public:
  explicit HttpService(Board& board);
  ~HttpService();
  HttpService(const HttpService&) = delete;
  HttpService& operator=(const HttpService&) = delete;

  // Binds and serves on a thread of its own; the address served
  // ("127.0.0.1:8080"), or "" with *error set.
  std::string start(const HttpSettings& settings, std::string* error);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// "127.0.0.1:8080" -> host and port; false when it is not that shape.
bool splitListen(const std::string& listen, std::string* host, int* port);
// Whether requests from this host need no token: loopback addresses.
bool isLoopback(const std::string& host);

}  // namespace HarbecAgent
