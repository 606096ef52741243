// The vShield Manager stand-in of tools/vsmstub, run as a child process on
// 127.0.0.1 for one test. It is built next to the test program when missing
// or older than its sources, started on free ports, and driven over its
// control port with JSON. It stops when its stdin closes, so a test that
// dies takes it along.
#pragma once
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

extern char** environ;

namespace vsmstub {

namespace fs = std::filesystem;

inline fs::path sourceDir() { return fs::path(__FILE__).parent_path().parent_path() / "tools" / "vsmstub"; }

// Builds the stand-in unless an up-to-date binary is there. Concurrent
// builders each write their own file and rename it into place.
inline std::string binary() {
  fs::path bin = fs::read_symlink("/proc/self/exe").parent_path() / "vsmstub";
  std::error_code ec;
  bool stale = !fs::exists(bin, ec);
  for (const auto& f : fs::directory_iterator(sourceDir()))
    if (!stale && f.path().extension() == ".go" && f.last_write_time() > fs::last_write_time(bin))
      stale = true;
  if (!stale) return bin;
  std::string tmp = bin.string() + "." + std::to_string(getpid());
  std::string cmd = "cd '" + sourceDir().string() + "' && GO111MODULE=off go build -o '" + tmp + "' .";
  if (std::system(cmd.c_str()) != 0) throw std::runtime_error("cannot build " + sourceDir().string());
  fs::rename(tmp, bin);
  return bin;
}

// One HTTP/1.0 exchange (no chunked replies); returns the status, body in *out.
inline int http(const std::string& base, const std::string& method, const std::string& target,
                const std::string& body, std::string* out) {
  int port = std::stoi(base.substr(base.rfind(':') + 1));
  int s = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_port = htons(static_cast<uint16_t>(port));
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(s, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
    close(s);
    throw std::runtime_error("control port unreachable");
  }
  std::string req = method + " " + target + " HTTP/1.0\r\nContent-Type: application/json\r\n" +
                    "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  for (size_t off = 0; off < req.size();) off += static_cast<size_t>(write(s, req.data() + off, req.size() - off));
  std::string reply;
  char buf[65536];
  for (ssize_t n; (n = read(s, buf, sizeof buf)) > 0;) reply.append(buf, static_cast<size_t>(n));
  close(s);
  size_t head = reply.find("\r\n\r\n");
  if (out) *out = head == std::string::npos ? "" : reply.substr(head + 4);
  return reply.size() > 12 ? std::stoi(reply.substr(9, 3)) : 0;
}

// Every string value of `key` in a JSON text, in order (no unescaping).
inline std::vector<std::string> values(const std::string& json, const std::string& key) {
  std::vector<std::string> out;
  std::string mark = "\"" + key + "\":\"";
  for (size_t p = json.find(mark); p != std::string::npos; p = json.find(mark, p)) {
    p += mark.size();
    out.push_back(json.substr(p, json.find('"', p) - p));
  }
  return out;
}

class Stub {
 public:
  Stub() {
    std::string bin = binary();
    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    char* argv[] = {const_cast<char*>(bin.c_str()), const_cast<char*>("-stdin=watch"), nullptr};
    int rc = posix_spawn(&pid_, bin.c_str(), &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    close(out[1]);
    stdin_ = in[1];
    if (rc != 0) throw std::runtime_error("cannot start " + bin);
    // "VSM_URL=..." and "VSM_CONTROL=...", one line each.
    std::string text;
    char buf[256];
    pollfd p{out[0], POLLIN, 0};
    while (text.find("VSM_CONTROL=") == std::string::npos || text.back() != '\n') {
      if (poll(&p, 1, 10000) <= 0) break;
      ssize_t n = read(out[0], buf, sizeof buf);
      if (n <= 0) break;
      text.append(buf, static_cast<size_t>(n));
    }
    close(out[0]);
    url = line(text, "VSM_URL=");
    control = line(text, "VSM_CONTROL=");
    if (url.empty() || control.empty()) throw std::runtime_error("stand-in printed: " + text);
  }
  ~Stub() {
    close(stdin_);
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
  }
  Stub(const Stub&) = delete;
  Stub& operator=(const Stub&) = delete;

  // POSTs one answer object or an array of them; returns the reply.
  std::string answer(const std::string& json) { return call("POST", "/answers", json); }
  std::string call(const std::string& method, const std::string& target, const std::string& body = "") {
    std::string reply;
    int status = http(control, method, target, body, &reply);
    if (status != 200) throw std::runtime_error(target + ": " + std::to_string(status) + " " + reply);
    return reply;
  }
  // Request targets received so far, in order.
  std::vector<std::string> uris() { return values(call("GET", "/log"), "uri"); }

  std::string url;
  std::string control;

 private:
  static std::string line(const std::string& text, const std::string& key) {
    size_t p = text.find(key);
    if (p == std::string::npos) return "";
    p += key.size();
    return text.substr(p, text.find('\n', p) - p);
  }
  pid_t pid_ = 0;
  int stdin_ = -1;
};

}  // namespace vsmstub
