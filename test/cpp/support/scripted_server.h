// A server that speaks only what a test scripts: it listens on a loopback port
// of its own, and answers each read with the next of its canned byte strings
// (the protocol as a hostile or broken server would send it), across
// connections; with none left it stays silent, connection open, until it is
// destroyed.
#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace keyloom::test {

class ScriptedServer {
 public:
  explicit ScriptedServer(std::vector<std::string> answers);
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer &) = delete;
  ScriptedServer &operator=(const ScriptedServer &) = delete;

  unsigned port() const { return port_; }
  // Connections accepted so far.
  int connections() const { return connections_.load(); }

 private:
  void serve();

  std::vector<std::string> answers_;
  int listener_ = -1;
  unsigned port_ = 0;
  std::atomic<bool> stopping_{false};
  std::atomic<int> connections_{0};
  std::thread thread_;
};

}  // namespace keyloom::test
