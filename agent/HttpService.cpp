#include "agent/HttpService.h"

#include <httplib.h>

#include <thread>

namespace HarbecAgent {

extern const char kWebPage[];  // web/index.html

namespace {

// A stream's client is asked for a sign of life this often, so that one
// that went away frees its thread.
const double kEventWait = 15;

// Each event stream holds a worker for as long as it is open; the
// library's default of 8 would let eight watchers starve /metrics.
const size_t kWorkers = 32;

const char kJson[] = "application/json";
const char kText[] = "text/plain; charset=utf-8";

std::string eventText(const std::string& line) { return "event: change\ndata: " + line + "\n\n"; }

}  // namespace

bool splitListen(const std::string& listen, std::string* host, int* port) {
  size_t colon = listen.rfind(':');
  if (colon == std::string::npos || colon == 0 || colon + 1 == listen.size()) return false;
  std::string p = listen.substr(colon + 1);
  if (p.find_first_not_of("0123456789") != std::string::npos || p.size() > 5 || std::stoi(p) > 65535) return false;
  *host = listen.substr(0, colon);
  if (host->size() > 2 && host->front() == '[' && host->back() == ']') *host = host->substr(1, host->size() - 2);
  *port = std::stoi(p);
  return true;
}

bool isLoopback(const std::string& host) {
  return host == "localhost" || host == "::1" || host.rfind("127.", 0) == 0;
}

struct HttpService::Impl {
  Board& board;
  std::unique_ptr<httplib::Server> server;
  std::thread thread;

  explicit Impl(Board& b) : board(b) {}
  void routes(const std::string& token);
};

void HttpService::Impl::routes(const std::string& token) {
  httplib::Server& s = *server;
  if (!token.empty())
    s.set_pre_routing_handler([token](const httplib::Request& req, httplib::Response& res) {
      if (req.get_header_value("Authorization") == "Bearer " + token) return httplib::Server::HandlerResponse::Unhandled;
      res.status = 401;
      res.set_header("WWW-Authenticate", "Bearer");
      res.set_content("a bearer token is needed\n", kText);
      return httplib::Server::HandlerResponse::Handled;
    });
  s.Get("/", [](const httplib::Request&, httplib::Response& res) { res.set_content(kWebPage, "text/html; charset=utf-8"); });
  s.Get("/healthz", [](const httplib::Request&, httplib::Response& res) { res.set_content("ok\n", kText); });
  s.Get("/readyz", [this](const httplib::Request&, httplib::Response& res) {
    bool ready = board.ready();
    res.status = ready ? 200 : 503;
    res.set_content(ready ? "ready\n" : "waiting for the first sync\n", kText);
  });
  s.Get("/api/v1/view", [this](const httplib::Request&, httplib::Response& res) {
    std::string view = board.view();
    if (view.empty()) {
      res.status = 503;
      res.set_content("{\"error\":\"waiting for the first sync\"}\n", kJson);
      return;
    }
    res.set_content(view + "\n", kJson);
  });
  s.Get("/metrics", [this](const httplib::Request&, httplib::Response& res) {
    res.set_content(board.metrics(), "text/plain; version=0.0.4; charset=utf-8");
  });
  s.Get("/api/v1/events", [this](const httplib::Request&, httplib::Response& res) {
    res.set_header("Cache-Control", "no-cache");
    auto next = std::make_shared<uint64_t>(0);
    res.set_chunked_content_provider("text/event-stream", [this, next](size_t, httplib::DataSink& sink) {
      if (*next == 0) {
        board.changesAfter(next.get(), 0);  // from now on
        const char hello[] = ": changes follow\n\n";
        return sink.write(hello, sizeof hello - 1);
      }
      std::vector<std::string> lines = board.changesAfter(next.get(), kEventWait);
      std::string text = lines.empty() ? std::string(": alive\n\n") : std::string();
      for (const std::string& l : lines) text += eventText(l);
      return sink.is_writable() && sink.write(text.data(), text.size());
    });
  });
}

HttpService::HttpService(Board& board) : impl_(std::make_unique<Impl>(board)) {}

HttpService::~HttpService() {
  if (!impl_->server) return;
  impl_->server->stop();
  if (impl_->thread.joinable()) impl_->thread.join();
}

std::string HttpService::start(const HttpSettings& settings, std::string* error) {
  std::string host;
  int port = 0;
  if (!splitListen(settings.listen, &host, &port)) {
    *error = "--listen wants ADDR:PORT, not '" + settings.listen + "'";
    return "";
  }
  if (!settings.tlsCert.empty())
    impl_->server = std::make_unique<httplib::SSLServer>(settings.tlsCert.c_str(), settings.tlsKey.c_str());
  else
    impl_->server = std::make_unique<httplib::Server>();
  if (!impl_->server->is_valid()) {
    *error = "cannot use the TLS certificate " + settings.tlsCert + " with key " + settings.tlsKey;
    return "";
  }
  // SO_REUSEADDR alone: the library's default adds SO_REUSEPORT, with which
  // a second agent on the same port would take half the requests silently.
  impl_->server->set_socket_options([](socket_t sock) {
    int yes = 1;
    setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
  impl_->server->new_task_queue = [] { return new httplib::ThreadPool(kWorkers); };
  impl_->server->set_read_timeout(10);
  impl_->server->set_write_timeout(10);
  impl_->routes(settings.token);
  int bound = port == 0 ? impl_->server->bind_to_any_port(host) : (impl_->server->bind_to_port(host, port) ? port : -1);
  if (bound <= 0) {
    *error = "cannot listen on " + settings.listen + ": " + std::strerror(errno);
    return "";
  }
  impl_->thread = std::thread([this] { impl_->server->listen_after_bind(); });
  return (host.find(':') != std::string::npos ? "[" + host + "]" : host) + ":" + std::to_string(bound);
}

}  // namespace HarbecAgent
