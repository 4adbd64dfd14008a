#include "support/scripted_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

namespace keyloom::test {

ScriptedServer::ScriptedServer(std::vector<std::string> answers) : answers_(std::move(answers)) {
  listener_ = socket(AF_INET, SOCK_STREAM, 0);
  if (listener_ < 0) throw std::runtime_error("socket");
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = 0;  // a free port, chosen by the system
  socklen_t len = sizeof addr;
  if (bind(listener_, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0 ||
      listen(listener_, 8) != 0 ||
      getsockname(listener_, reinterpret_cast<sockaddr *>(&addr), &len) != 0) {
    close(listener_);
    throw std::runtime_error("bind");
  }
  port_ = ntohs(addr.sin_port);
  thread_ = std::thread([this] { serve(); });
}

ScriptedServer::~ScriptedServer() {
  stopping_ = true;
  thread_.join();
  close(listener_);
}

// One connection at a time: a new one replaces the previous and takes the
// script up where the previous one left it.
void ScriptedServer::serve() {
  int conn = -1;
  size_t next = 0;
  char buf[4096];
  while (!stopping_) {
    pollfd fds[2] = {{listener_, POLLIN, 0}, {conn, POLLIN, 0}};
    if (poll(fds, conn >= 0 ? 2 : 1, 20) <= 0) continue;
    if (fds[0].revents & POLLIN) {
      int fresh = accept(listener_, nullptr, nullptr);
      if (fresh >= 0) {
        if (conn >= 0) close(conn);
        conn = fresh;
        ++connections_;
      }
      continue;
    }
    if (conn >= 0 && (fds[1].revents & (POLLIN | POLLHUP | POLLERR))) {
      ssize_t n = read(conn, buf, sizeof buf);
      if (n <= 0) {
        close(conn);
        conn = -1;
        continue;
      }
      if (next < answers_.size()) {
        const std::string &a = answers_[next++];
        for (size_t sent = 0; sent < a.size();) {
          ssize_t w = write(conn, a.data() + sent, a.size() - sent);
          if (w <= 0) break;
          sent += static_cast<size_t>(w);
        }
      }
    }
  }
  if (conn >= 0) close(conn);
}

}  // namespace keyloom::test
