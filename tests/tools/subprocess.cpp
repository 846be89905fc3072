#include "subprocess.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace fwmtest {

namespace {

using Clock = std::chrono::steady_clock;

// Reads what the pipes hold until `done` says so, both are closed (true) or
// the deadline passes (false).
template <class Done>
bool pump(int (&fds)[2], std::string *(&into)[2], Clock::time_point deadline, Done done) {
  while (!done()) {
    if (fds[0] < 0 && fds[1] < 0) return true;
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return false;
    pollfd p[2] = {{fds[0], POLLIN, 0}, {fds[1], POLLIN, 0}};
    if (::poll(p, 2, static_cast<int>(std::min<long long>(left, 200))) <= 0) continue;
    for (int i = 0; i < 2; ++i) {
      char buf[4096];
      ssize_t n = fds[i] >= 0 && (p[i].revents & (POLLIN | POLLHUP)) ? ::read(fds[i], buf, sizeof buf) : -2;
      if (n > 0) into[i]->append(buf, static_cast<size_t>(n));
      if (n == 0 || n == -1) ::close(std::exchange(fds[i], -1));
    }
  }
  return true;
}

}  // namespace

Child::Child(const std::vector<std::string> &argv) {
  int out[2], err[2];
  if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  pid_ = ::fork();
  if (pid_ == 0) {
    ::dup2(out[1], 1);
    ::dup2(err[1], 2);
    std::vector<char *> args;
    for (const auto &a : argv) args.push_back(const_cast<char *>(a.c_str()));
    args.push_back(nullptr);
    ::execv(args[0], args.data());
    ::_exit(127);
  }
  ::close(out[1]);
  ::close(err[1]);
  fds_[0] = out[0];
  fds_[1] = err[0];
}

Child::~Child() {
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  for (int fd : fds_)
    if (fd >= 0) ::close(fd);
}

std::optional<std::string> Child::errLine(std::chrono::milliseconds limit) {
  auto &err = result_.err;
  pump(fds_, sinks_, Clock::now() + limit, [&] { return err.find('\n', errRead_) != std::string::npos; });
  const auto nl = err.find('\n', errRead_);
  if (nl == std::string::npos) return std::nullopt;
  const auto from = std::exchange(errRead_, nl + 1);
  return err.substr(from, nl - from);
}

Outcome Child::finish(std::chrono::milliseconds limit) {
  bool ended = pump(fds_, sinks_, Clock::now() + limit, [] { return false; });
  int status = 0;
  if (!ended) ::kill(pid_, SIGKILL);
  ::waitpid(std::exchange(pid_, -1), &status, 0);
  result_.exitCode = ended && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result_;
}

Outcome runTool(const std::vector<std::string> &argv, std::chrono::milliseconds limit) {
  Child c(argv);
  return c.finish(limit);
}

std::vector<std::string> splitLines(const std::string &s) {
  std::vector<std::string> lines;
  std::istringstream in(s);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

std::string scratch(const std::string &name) {
  struct Dir {
    std::string path;
    Dir() {
      std::string pattern = (std::filesystem::temp_directory_path() / "fwmclk-test-XXXXXX").string();
      if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a scratch directory");
      path = pattern;
    }
    ~Dir() {
      std::error_code ignored;
      std::filesystem::remove_all(path, ignored);
    }
  };
  static const Dir dir;
  return dir.path + "/" + name;
}

std::string readFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

bool haveTool(const char *name) { return ::access(("/usr/bin/" + std::string(name)).c_str(), X_OK) == 0; }

std::string dissect(const std::string &pcap, const std::string &fields) {
  std::vector<std::string> argv = {"/usr/bin/tshark", "-r", pcap, "-T", "fields", "-E", "separator=,"};
  std::istringstream words(fields);
  for (std::string f; words >> f;) argv.insert(argv.end(), {"-e", f});
  auto o = runTool(argv);
  return o.exitCode == 0 ? o.out : "tshark failed: " + o.err;
}

}  // namespace fwmtest
