// What one client costs for one piece of work: wall time, CPU time of the
// process, and its resident high-water mark. Work measured in a child
// process starts from a clean heap, so its peak is not the one of earlier
// runs in the same process.
#pragma once
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>

namespace figures {

inline double seconds(const timeval& t) { return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6; }

// User and system time of the process.
inline double cpuSeconds(double* systemS = nullptr) {
  rusage r{};
  getrusage(RUSAGE_SELF, &r);
  if (systemS) *systemS = seconds(r.ru_stime);
  return seconds(r.ru_utime) + seconds(r.ru_stime);
}

inline double monotonicSeconds() {
  timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

// A kB figure of /proc/self/status: "VmRSS", "VmHWM".
inline long statusKb(const std::string& key) {
  std::ifstream in("/proc/self/status");
  for (std::string line; std::getline(in, line);)
    if (line.compare(0, key.size() + 1, key + ":") == 0) return std::stol(line.substr(key.size() + 1));
  return 0;
}

// Sets the high-water mark back to the present resident size, which it
// returns in kB.
inline long resetPeakKb() {
  std::ofstream("/proc/self/clear_refs") << "5";
  return statusKb("VmRSS");
}

struct Figures {
  double wallS = 0;
  double cpuS = 0;
  double sysS = 0;  // the kernel's part of cpuS: page faults, socket reads
  long peakKb = 0;  // high-water mark during the work
  long baseKb = 0;  // resident size when it began
  long count[4] = {0, 0, 0, 0};  // what the work reports of itself
  bool ok = false;
};

// Measures `work` around its run in the calling process.
inline Figures measure(const std::function<void(Figures&)>& work) {
  Figures f;
  f.baseKb = resetPeakKb();
  double sys = 0, sysAfter = 0;
  double cpu = cpuSeconds(&sys);
  double wall = monotonicSeconds();
  work(f);
  f.wallS = monotonicSeconds() - wall;
  f.cpuS = cpuSeconds(&sysAfter) - cpu;
  f.sysS = sysAfter - sys;
  f.peakKb = statusKb("VmHWM");
  return f;
}

// Runs `setup` and then measures `work` in a forked child. The child ends
// with _exit, whatever threads or sockets the work left behind.
inline Figures measureInChild(const std::function<void()>& setup, const std::function<void(Figures&)>& work) {
  int fds[2];
  if (pipe(fds) != 0) throw std::runtime_error("pipe");
  pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("fork");
  if (pid == 0) {
    close(fds[0]);
    Figures f;
    try {
      setup();
      f = measure(work);
    } catch (const std::exception& e) {
      std::fprintf(stderr, "measured work failed: %s\n", e.what());
      f.ok = false;
    }
    ssize_t n = write(fds[1], &f, sizeof f);
    _exit(n == sizeof f ? 0 : 1);
  }
  close(fds[1]);
  Figures f;
  ssize_t n = read(fds[0], &f, sizeof f);
  close(fds[0]);
  waitpid(pid, nullptr, 0);
  if (n != sizeof f) throw std::runtime_error("the measured child died");
  return f;
}

}  // namespace figures
