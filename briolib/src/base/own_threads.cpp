#include "base/own_threads.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/guards.h"
#include "base/log.h"
#include "base/relaxed.h"

constexpr char kLogTag[] = "briolib/src/base";

namespace brio {
namespace {

__thread Thread t_thread;
__thread uint32_t t_callbacks;

// Relaxed atomics: how many threads to be joined and other claims there are; whether forks are watched; in a
// child, whether its parent had claims.
uint32_t s_claims;
uint32_t s_watches;
uint32_t s_forked;

void prv_in_child() {
  if (relaxed_load(s_claims) != 0) relaxed_store(s_forked, 1u);
}

// The handler stays: the library is never unloaded. Where memory is short the next claim tries again.
void prv_claim() {
  if (relaxed_load(s_watches) == 0 && pthread_atfork(nullptr, nullptr, prv_in_child) == 0) {
    relaxed_store(s_watches, 1u);
  }
  __atomic_fetch_add(&s_claims, 1u, __ATOMIC_RELAXED);
}

void prv_give_up() {
  __atomic_fetch_sub(&s_claims, 1u, __ATOMIC_RELAXED);
}

bool prv_refuse(bool refused, const char* function) {
  if (refused) BLIB_E("%s::refused on a thread of the library or in a forked child\n", function);
  return refused;
}

}  // namespace

bool OwnThread::open_sockets() {
  int sockets[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) return false;
  Descriptor ends[] = {Descriptor(sockets[0]), Descriptor(sockets[1])};
  for (Descriptor& end : ends) {
    // The host runs without standard input, and its descriptor is to stay free.
    if (end.get() == 0) end.reset(fcntl(0, F_DUPFD_CLOEXEC, 1));
    if (!end.valid()) return false;
    if (end.get() >= FD_SETSIZE) {
      errno = EMFILE;
      return false;
    }
  }
  MutexGuard lock(mutex_);
  for (int i = 0; i < 2; i++) sockets_[i] = ends[i].release();
  return true;
}

void OwnThread::close_sockets() {
  MutexGuard lock(mutex_);
  for (int& socket : sockets_) {
    if (socket >= 0) close(socket);
    socket = -1;
  }
}

int OwnThread::start() {
  prv_claim();
  const int error = pthread_create(&thread_, nullptr, prv_main, this);
  if (error != 0) prv_give_up();
  started_ = error == 0;
  return error;
}

void* OwnThread::prv_main(void* self) {
  OwnThread* own = static_cast<OwnThread*>(self);
  t_thread = own->which_;
  own->run_(own->sockets_[0]);
  own->close_sockets();
  return nullptr;
}

int OwnThread::stop() {
  static constexpr char kStop[] = "STOP";
  MutexGuard lock(mutex_);
  const ssize_t sent = send(sockets_[1], kStop, sizeof(kStop), MSG_NOSIGNAL);
  if (sent == static_cast<ssize_t>(sizeof(kStop))) return 0;
  const int error = sent < 0 ? errno : EIO;
  prv_hang_up();
  return error;
}

void OwnThread::hang_up() {
  MutexGuard lock(mutex_);
  prv_hang_up();
}

void OwnThread::prv_hang_up() {
  assert_held(mutex_);
  if (sockets_[1] < 0) return;
  // shutdown reaches the thread even when a forked child still holds a copy of this side.
  shutdown(sockets_[1], SHUT_RDWR);
  close(sockets_[1]);
  sockets_[1] = -1;
}

bool OwnThread::join() {
  if (!started_) return false;
  pthread_join(thread_, nullptr);
  started_ = false;
  prv_give_up();
  return true;
}

bool on_channel_thread() {
  return t_thread == Thread::kRead || t_thread == Thread::kEvent;
}

ProcessClaim::ProcessClaim() {
  prv_claim();
}

ProcessClaim::~ProcessClaim() {
  prv_give_up();
}

bool in_forked_child() {
  return relaxed_load(s_forked) != 0;
}

bool refused_in_forked_child(const char* function) {
  return prv_refuse(in_forked_child(), function);
}

bool refused_here(const char* function) {
  return prv_refuse(t_thread != Thread::kHost || in_forked_child(), function);
}

InEventCallback::InEventCallback() {
  t_callbacks++;
}

InEventCallback::~InEventCallback() {
  t_callbacks--;
}

bool may_send() {
  return t_thread != Thread::kRead && (t_thread != Thread::kEvent || t_callbacks == 0) && !in_forked_child();
}

}  // namespace brio
