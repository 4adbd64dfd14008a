#include "connector.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <memory>

#include "connection.h"
#include "log.h"
#include "reply_reader.h"
#include "wake_fd.h"

namespace keyloom {

void ConnectorDeleter::operator()(Connector *connector) const { delete connector; }

Connector::Connector(const CallContext &call, const Server &server, int ready_fd)
    : context_{call.client, call.deadline, {}}, ready_fd_(ready_fd) {
  connection_.host = server.host;
  connection_.port = server.port;
  connection_.name = server.name;
  connection_.version_major = server.version_major;
  connection_.version_minor = server.version_minor;
}

bool Connector::start(const CallContext &call, Server *server) {
  const int fd = make_wake_fd();
  if (fd < 0) return false;
  std::unique_ptr<Connector, ConnectorDeleter> connector(new (std::nothrow) Connector(call, *server, fd));
  if (!connector) {
    close(fd);
    return false;
  }
  Connector *self = connector.get();
  try {
    self->thread_ = std::thread([self] {
      // Signals are the process's business, not this thread's.
      sigset_t all;
      sigfillset(&all);
      pthread_sigmask(SIG_BLOCK, &all, nullptr);
      self->connected_ = open_connection(self->context_, &self->connection_);
      self->done_.store(true, std::memory_order_release);
      ring(self->ready_fd_);
    });
  } catch (...) {
    return false;  // no thread to wait for; the connector closes its fd
  }
  server->connector = std::move(connector);
  return true;
}

void Connector::wait() {
  if (thread_.joinable()) thread_.join();
}

Connector::~Connector() {
  wait();
  disconnect_server(&connection_);
  close(ready_fd_);
}

bool finish_connector(Server *server, CallContext *call) {
  std::unique_ptr<Connector, ConnectorDeleter> connector = std::move(server->connector);
  if (!connector) return server->ctx != nullptr;
  connector->wait();
  if (call && call->failure.kind == KL_FAILURE_NONE) call->failure = connector->failure();
  Server &made = connector->connection_;
  kl_client *client = connector->context_.client;
  if (!connector->connected_) {
    if (made.down) {
      server->down = true;
      server->down_until = made.down_until;
      server->failure = made.failure;
    }
    return false;
  }
  disconnect_server(server);  // nothing, unless someone connected it meanwhile
  server->ctx = made.ctx;
  server->tls = made.tls;
  made.ctx = nullptr;
  made.tls = nullptr;
  server->io_timeout_ms = made.io_timeout_ms;
  server->version_major = made.version_major;
  server->version_minor = made.version_minor;
  // The reader counts what a reply costs against the server's own budget.
  server->budget.limit = client->max_reply_bytes;
  attach_reply_budget(server->ctx->reader, &server->budget);
  if (server->down) log_event(client, KL_LEVEL_NOTICE, "server %s up again", server->name.c_str());
  server->down = false;
  return true;
}

}  // namespace keyloom
