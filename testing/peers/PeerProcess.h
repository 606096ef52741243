// The peers written in Go (vcsim/, vsmstub/, govclient/ next to this
// header), run as child processes on 127.0.0.1: finding their binaries,
// starting them with a pipe on stdin (they stop when it closes, so a
// program that dies takes its peers along), reading the "KEY=value" lines
// they print once ready, and a small HTTP client for their control ports.
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

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace peer {

namespace fs = std::filesystem;

// Where the peers' binaries are: $HARBEC_PEERS_DIR, or libexec/harbec
// beside the running program's bin/ (the build tree is laid out the same
// way: <build>/agent, <build>/tests and <build>/bench beside
// <build>/libexec/harbec).
inline fs::path directory() {
  if (const char* dir = std::getenv("HARBEC_PEERS_DIR")) return dir;
  return fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "libexec" / "harbec";
}

inline std::string binary(const std::string& name) {
  fs::path bin = directory() / name;
  std::error_code ec;
  if (!fs::exists(bin, ec))
    throw std::runtime_error("no peer program " + bin.string() +
                             " (build the target harbec-peers, or set HARBEC_PEERS_DIR)");
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

// Every string value of `key` in a JSON text, compact or indented, in
// order (no unescaping).
inline std::vector<std::string> values(const std::string& json, const std::string& key) {
  std::vector<std::string> out;
  std::string mark = "\"" + key + "\":";
  for (size_t p = json.find(mark); p != std::string::npos; p = json.find(mark, p)) {
    p = json.find_first_not_of(" \t\r\n", p + mark.size());
    if (p == std::string::npos) break;
    if (json[p] != '"') continue;
    ++p;
    out.push_back(json.substr(p, json.find('"', p) - p));
  }
  return out;
}

// A running peer. Waits until every key of `keys` has been printed as
// "KEY=value" on a line of its own and keeps the values; a peer silent for
// `quietMs` counts as failed to start (a large inventory takes a while).
// What it prints later is read with nextLine().
class Process {
 public:
  Process(const std::string& bin, const std::vector<std::string>& args, const std::vector<std::string>& keys,
          int quietMs = 60000) {
    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    std::vector<char*> argv{const_cast<char*>(bin.c_str())};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    int rc = posix_spawn(&pid_, bin.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    close(out[1]);
    stdin_ = in[1];
    out_ = out[0];
    if (rc != 0) {
      stop();
      throw std::runtime_error("cannot start " + bin);
    }
    std::string text;
    char buf[256];
    pollfd p{out_, POLLIN, 0};
    auto complete = [&] {
      if (text.empty() || text.back() != '\n') return false;
      for (const std::string& k : keys)
        if (text.find(k + "=") == std::string::npos) return false;
      return true;
    };
    while (!complete()) {
      if (poll(&p, 1, quietMs) <= 0) break;
      ssize_t n = read(out_, buf, sizeof buf);
      if (n <= 0) break;
      text.append(buf, static_cast<size_t>(n));
    }
    size_t end = 0;
    for (const std::string& k : keys) {
      size_t at = text.find(k + "=");
      if (at == std::string::npos) {
        stop();
        throw std::runtime_error(bin + " printed: " + text);
      }
      at += k.size() + 1;
      size_t eol = text.find('\n', at);
      printed_[k] = text.substr(at, eol - at);
      end = std::max(end, eol + 1);
    }
    later_ = text.substr(end);
  }
  ~Process() { stop(); }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  const std::string& printed(const std::string& key) const { return printed_.at(key); }

  // The next line printed after the keys, without its end: false when none
  // comes within `timeoutMs` or the peer's output ends.
  bool nextLine(std::string* line, int timeoutMs) {
    for (;;) {
      size_t nl = later_.find('\n');
      if (nl != std::string::npos) {
        *line = later_.substr(0, nl);
        later_.erase(0, nl + 1);
        return true;
      }
      pollfd p{out_, POLLIN, 0};
      if (out_ < 0 || poll(&p, 1, timeoutMs) <= 0) return false;
      char buf[4096];
      ssize_t n = read(out_, buf, sizeof buf);
      if (n <= 0) return false;
      later_.append(buf, static_cast<size_t>(n));
    }
  }

  // Ends the peer and waits for it; its ports are closed on return.
  void stop() {
    if (out_ >= 0) close(out_);
    out_ = -1;
    if (pid_ <= 0) return;
    close(stdin_);
    kill(pid_, SIGTERM);
    // A peer that ignores SIGTERM for five seconds is killed.
    for (int i = 0; i < 500 && waitpid(pid_, nullptr, WNOHANG) == 0; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (waitpid(pid_, nullptr, WNOHANG) == 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    pid_ = 0;
  }
  bool running() const { return pid_ > 0; }

 private:
  pid_t pid_ = 0;
  int stdin_ = -1;
  int out_ = -1;
  std::map<std::string, std::string> printed_;
  std::string later_;
};

}  // namespace peer
