// c-ares on the LinuxLoop: the channel's sockets are watched through the
// loop's epoll, its time limits run on one loop timer, and every answer is
// posted so that it arrives on a later pass.
#include "varnek/platform/linux/name_resolver.h"

#include <ares.h>
#include <netinet/in.h>
#include <sys/epoll.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>
#include <set>

namespace varnek {

namespace {

void InitLibraryOnce() {
  static std::once_flag once;
  std::call_once(once, [] { ares_library_init(ARES_LIB_INIT_ALL); });
}

}  // namespace

struct NameResolver::Impl : std::enable_shared_from_this<Impl> {
  LinuxLoop& loop;
  ResolverConfig config;
  ares_channel channel = nullptr;
  bool channel_failed = false;
  std::unique_ptr<LoopTimer> timer;
  std::map<uint64_t, Done> waiting;
  uint64_t next_ticket = 1;
  size_t in_flight = 0;
  bool destroying = false;
  std::set<int> watched;  // the channel's sockets in the loop

  Impl(LinuxLoop& l, ResolverConfig c) : loop(l), config(std::move(c)) {}

  ~Impl() {
    destroying = true;
    if (timer) timer->SetEnabled(false);
    for (int fd : watched) loop.Unwatch(fd);
    if (channel) ares_destroy(channel);  // pending queries report ARES_EDESTRUCTION, ignored
  }

  bool EnsureChannel() {
    if (channel) return true;
    if (channel_failed) return false;
    InitLibraryOnce();
    ares_options options{};
    int mask = ARES_OPT_SOCK_STATE_CB | ARES_OPT_TIMEOUTMS | ARES_OPT_TRIES;
    options.sock_state_cb = &Impl::SocketState;
    options.sock_state_cb_data = this;
    options.timeout = config.timeout_ms > 0 ? config.timeout_ms : 2000;
    options.tries = config.tries > 0 ? config.tries : 2;
    if (!config.lookups.empty()) {
      mask |= ARES_OPT_LOOKUPS;
      options.lookups = const_cast<char*>(config.lookups.c_str());
    }
    if (ares_init_options(&channel, &options, mask) != ARES_SUCCESS) {
      channel = nullptr;
      channel_failed = true;
      return false;
    }
    if (!config.servers.empty() &&
        ares_set_servers_ports_csv(channel, config.servers.c_str()) != ARES_SUCCESS) {
      ares_destroy(channel);
      channel = nullptr;
      channel_failed = true;
      return false;
    }
    timer = loop.CreateTimer();
    timer->on_tick = [this] {
      timer->SetEnabled(false);
      ares_process_fd(channel, ARES_SOCKET_BAD, ARES_SOCKET_BAD);
      Reschedule();
    };
    return true;
  }

  // c-ares tells which of its sockets to watch, and for what.
  static void SocketState(void* data, ares_socket_t fd, int readable, int writable) {
    auto* self = static_cast<Impl*>(data);
    if (self->destroying) return;
    if (!readable && !writable) {
      self->loop.Unwatch(fd);
      self->watched.erase(fd);
      return;
    }
    self->watched.insert(fd);
    uint32_t events = (readable ? EPOLLIN : 0u) | (writable ? EPOLLOUT : 0u);
    std::weak_ptr<Impl> weak = self->weak_from_this();
    self->loop.Watch(fd, events, [weak, fd](uint32_t ev) {
      auto me = weak.lock();
      if (!me || !me->channel) return;
      const bool in = ev & (EPOLLIN | EPOLLERR | EPOLLHUP);
      const bool out = ev & EPOLLOUT;
      ares_process_fd(me->channel, in ? fd : ARES_SOCKET_BAD, out ? fd : ARES_SOCKET_BAD);
      me->Reschedule();
    });
  }

  // The timer follows c-ares's next time limit while queries are out.
  void Reschedule() {
    if (!channel || !timer) return;
    if (in_flight == 0) {
      timer->SetEnabled(false);
      return;
    }
    timeval max{3600, 0}, tv{};
    timeval* next = ares_timeout(channel, &max, &tv);
    int ms = static_cast<int>(next->tv_sec * 1000 + next->tv_usec / 1000);
    timer->SetInterval(std::max(ms, 1));
    timer->SetEnabled(true);
  }

  struct Query {
    std::weak_ptr<Impl> owner;
    uint64_t ticket;
    int port;
  };

  static void Answered(void* arg, int status, int /*timeouts*/, ares_addrinfo* result) {
    std::unique_ptr<Query> query(static_cast<Query*>(arg));
    std::vector<ResolvedAddress> found;
    if (status == ARES_SUCCESS && result) {
      for (ares_addrinfo_node* n = result->nodes; n; n = n->ai_next) {
        if (n->ai_family != AF_INET && n->ai_family != AF_INET6) continue;
        ResolvedAddress a;
        a.length = std::min<socklen_t>(n->ai_addrlen, sizeof a.address);
        std::memcpy(&a.address, n->ai_addr, a.length);
        const uint16_t port = htons(static_cast<uint16_t>(query->port));
        if (n->ai_family == AF_INET)
          reinterpret_cast<sockaddr_in*>(&a.address)->sin_port = port;
        else
          reinterpret_cast<sockaddr_in6*>(&a.address)->sin6_port = port;
        found.push_back(a);
      }
      std::stable_partition(found.begin(), found.end(), [](const ResolvedAddress& a) {
        return a.address.ss_family == AF_INET;
      });
    }
    if (result) ares_freeaddrinfo(result);
    auto self = query->owner.lock();
    if (!self || self->destroying) return;
    if (self->in_flight > 0) --self->in_flight;
    if (status == ARES_SUCCESS && found.empty()) status = ARES_ENOTFOUND;
    self->Deliver(query->ticket, status, std::move(found));
  }

  // Runs the ticket's callback on a later pass, unless it was cancelled.
  void Deliver(uint64_t ticket, int status, std::vector<ResolvedAddress> found) {
    std::weak_ptr<Impl> weak = weak_from_this();
    loop.Post([weak, ticket, status, found = std::move(found)]() mutable {
      auto me = weak.lock();
      if (!me) return;
      auto it = me->waiting.find(ticket);
      if (it == me->waiting.end()) return;
      Done done = std::move(it->second);
      me->waiting.erase(it);
      if (done) done(status, std::move(found));
    });
  }
};

NameResolver::NameResolver(LinuxLoop& loop, ResolverConfig config)
    : impl_(std::make_shared<Impl>(loop, std::move(config))) {}

NameResolver::~NameResolver() = default;

uint64_t NameResolver::Resolve(const std::string& host, int port, Done done) {
  const uint64_t ticket = impl_->next_ticket++;
  impl_->waiting[ticket] = std::move(done);
  if (!impl_->EnsureChannel()) {
    impl_->Deliver(ticket, ARES_ENOTINITIALIZED, {});
    return ticket;
  }
  ares_addrinfo_hints hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = ARES_AI_ENVHOSTS;  // CARES_HOSTS may name another hosts file
  ++impl_->in_flight;
  auto* query = new Impl::Query{impl_, ticket, port};
  ares_getaddrinfo(impl_->channel, host.c_str(), nullptr, &hints, &Impl::Answered, query);
  impl_->Reschedule();
  return ticket;
}

void NameResolver::Cancel(uint64_t ticket) { impl_->waiting.erase(ticket); }

size_t NameResolver::Pending() const { return impl_->in_flight; }

}  // namespace varnek
