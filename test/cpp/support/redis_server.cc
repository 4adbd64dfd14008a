#include "support/redis_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace keyloom::test {

namespace {

sockaddr_in loopback(unsigned port) {
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(static_cast<uint16_t>(port));
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return addr;
}

bool wait_for_exit(pid_t pid, int timeout_ms) {
  for (int waited = 0; waited < timeout_ms; waited += 10) {
    if (waitpid(pid, nullptr, WNOHANG) == pid) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

}  // namespace

unsigned free_port() {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr = loopback(0);
  socklen_t len = sizeof addr;
  if (fd < 0 || bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0 ||
      getsockname(fd, reinterpret_cast<sockaddr *>(&addr), &len) != 0) {
    if (fd >= 0) close(fd);
    throw std::runtime_error("no free port");
  }
  close(fd);
  return ntohs(addr.sin_port);
}

bool answers_ping(unsigned port, int timeout_ms) {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  if (fd < 0) return false;
  sockaddr_in addr = loopback(port);
  bool ok = false;
  if (connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) == 0 &&
      write(fd, "PING\r\n", 6) == 6) {
    pollfd p{fd, POLLIN, 0};
    char buf[64] = {};
    if (poll(&p, 1, timeout_ms) == 1 && read(fd, buf, sizeof buf - 1) > 0)
      ok = std::strncmp(buf, "+PONG", 5) == 0 || std::strncmp(buf, "-NOAUTH", 7) == 0;
  }
  close(fd);
  return ok;
}

RedisServer::RedisServer(std::vector<std::string> args, unsigned port)
    : args_(std::move(args)), port_(port ? port : free_port()) {
  // A chosen free port can be taken by a parallel test before the server
  // binds it: then try another one.
  for (int attempt = 0;; ++attempt) {
    try {
      start();
      return;
    } catch (const std::runtime_error &) {
      if (port != 0 || attempt >= 3) throw;
      port_ = free_port();
    }
  }
}

RedisServer::~RedisServer() { stop(); }

void RedisServer::start() {
  std::vector<std::string> argv = {"redis-server", "--bind",    "127.0.0.1",
                                   "--port",       std::to_string(port_),
                                   "--save",       "",          "--appendonly",
                                   "no",           "--daemonize", "no",
                                   "--dir",        "/tmp",      "--logfile", ""};
  argv.insert(argv.end(), args_.begin(), args_.end());
  std::vector<char *> cargv;
  for (auto &a : argv) cargv.push_back(a.data());
  cargv.push_back(nullptr);

  pid_t parent = getpid();
  pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    // The server goes with the test process, even when that is killed
    // before its destructors run.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(1);
    // Quiet child: its log would interleave with the test output.
    int devnull = ::open("/dev/null", O_WRONLY);
    if (devnull >= 0) {
      dup2(devnull, 1);
      dup2(devnull, 2);
    }
    execvp("redis-server", cargv.data());
    _exit(127);
  }
  pid_ = pid;
  paused_ = false;
  for (int waited = 0; waited < 5000; waited += 20) {
    if (answers_ping(port_)) return;
    if (waitpid(pid_, nullptr, WNOHANG) == pid_) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  kill();
  throw std::runtime_error("redis-server did not start on port " + std::to_string(port_));
}

void RedisServer::stop() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGCONT);
  ::kill(pid_, SIGTERM);
  if (!wait_for_exit(pid_, 3000)) {
    ::kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  pid_ = -1;
}

void RedisServer::kill() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

void RedisServer::pause() {
  if (pid_ > 0 && ::kill(pid_, SIGSTOP) == 0) paused_ = true;
}

void RedisServer::resume() {
  if (pid_ > 0 && ::kill(pid_, SIGCONT) == 0) paused_ = false;
}

void RedisServer::restart() {
  stop();
  // The old socket may linger a moment; retry binding the same port.
  for (int attempt = 0;; ++attempt) {
    try {
      start();
      return;
    } catch (const std::runtime_error &) {
      if (attempt >= 5) throw;
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
  }
}

}  // namespace keyloom::test
