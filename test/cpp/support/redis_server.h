// A throwaway redis-server for the tests: started on a free loopback port by
// fork/exec, keeping nothing on disk, and stopped by its pid.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace keyloom::test {

class RedisServer {
 public:
  // Starts a server on a free port (or `port` when not 0) and waits until it
  // answers PING. `args` are extra command-line arguments (e.g.
  // {"--requirepass", "secret"}). Throws std::runtime_error when it does not
  // come up within a few seconds.
  explicit RedisServer(std::vector<std::string> args = {}, unsigned port = 0);
  ~RedisServer();  // stops the server
  RedisServer(const RedisServer &) = delete;
  RedisServer &operator=(const RedisServer &) = delete;

  const char *host() const { return "127.0.0.1"; }
  unsigned port() const { return port_; }
  pid_t pid() const { return pid_; }
  bool running() const { return pid_ > 0; }

  void stop();    // SIGTERM (after SIGCONT), then SIGKILL; waits for the exit
  void kill();    // SIGKILL and wait
  void pause();   // SIGSTOP: the port stays open, nothing answers
  void resume();  // SIGCONT
  void restart(); // starts again on the same port, empty

 private:
  void start();

  std::vector<std::string> args_;
  unsigned port_ = 0;
  pid_t pid_ = -1;
  bool paused_ = false;
};

// A port that nothing listened on a moment ago.
unsigned free_port();

// True when a server on port answers PING (or NOAUTH) within timeout_ms.
bool answers_ping(unsigned port, int timeout_ms = 200);

}  // namespace keyloom::test
