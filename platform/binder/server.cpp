#include <binder/process.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <utility>

#include "connections.h"
#include "message.h"
#include "object.h"
#include "registry.h"

namespace binder {
namespace {

constexpr uint32_t kListener = Connections::kPlaces;  // its number among the connections' events
constexpr int kAcceptsPerRound = 256;
constexpr int64_t kRoundMs = 4;
constexpr int64_t kIdleMs = 10'000;
constexpr int64_t kAcceptRetryMs = 1'000;
constexpr int kWaitRetryMs = 100;
constexpr int kMaxWaitFailures = 20;
constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

// To some milliseconds. This clock is read without the kernel, whatever the machine's timer.
int64_t NowMs() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

// Serves one binder to all who connect, in rounds: wait, accept all that connected, then serve one
// request of each ready connection, users in turn. A round ends early when its calls take long, so
// that requests that have come since then get their turn.
//
// A peer that sends a malformed message is disconnected. A request is not received before the
// reply to the last one was taken, so that a peer that does not read costs one reply. Nothing is
// logged: what a peer can cause once it can cause a million times.
class Server {
  public:
    // message_ stays as it is until a message is received into it.
    // cppcheck-suppress uninitMemberVar
    explicit Server(const Registration& registration)
        : binder_(registration.binder),
          listener_(registration.listener.get()),
          may_leave_(registration.handed_over),
          epoll_(epoll_create1(EPOLL_CLOEXEC)) {}

    // Returns when the kernel refuses to wait for clients, again and again.
    void Run();

  private:
    bool Watch(int operation, int fd, uint32_t number, uint32_t events);
    void RunRound(std::span<const epoll_event> events);
    void AcceptAll();
    void Admit(base::UniqueFd fd);
    void ServeReady();
    void Serve(uint32_t number);
    void HoldBack(uint32_t number, bool held_back);
    void HangUp(uint32_t number);
    void Close(uint32_t number);
    void CheckTime();
    int WaitMs() const;

    AIBinder* const binder_;
    const int listener_;
    const bool may_leave_;
    base::UniqueFd epoll_;
    Connections connections_;
    // Points in time, or kNever.
    int64_t accept_again_at_ms_ = kNever;  // the listener is not watched until then
    int64_t leave_at_ms_ = kNever;
    AParcel request_;
    AParcel reply_;
    Message message_;
};

void Server::Run() {
    if (!epoll_ || !Watch(EPOLL_CTL_ADD, listener_, kListener, EPOLLIN)) return;
    if (may_leave_) leave_at_ms_ = NowMs() + kIdleMs;
    std::array<epoll_event, Connections::kPlaces + 1> events;
    for (int failures = 0; failures < kMaxWaitFailures;) {
        const int ready = epoll_wait(epoll_.get(), events.data(), int(events.size()), WaitMs());
        if (ready < 0 && errno != EINTR) {
            ++failures;
            (void)poll(nullptr, 0, kWaitRetryMs);
            continue;
        }
        failures = 0;
        RunRound({events.data(), size_t(std::max(ready, 0))});
        CheckTime();
    }
}

bool Server::Watch(int operation, int fd, uint32_t number, uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.u32 = number;
    return epoll_ctl(epoll_.get(), operation, fd, &event) == 0;
}

void Server::RunRound(std::span<const epoll_event> events) {
    bool connected = false;
    for (const epoll_event& event : events) {
        if (event.data.u32 == kListener) {
            connected = true;
        } else if ((event.events & EPOLLHUP) != 0) {
            HangUp(event.data.u32);
        }
    }
    if (connected) AcceptAll();
    connections_.StartRound();
    for (const epoll_event& event : events) {
        const uint32_t number = event.data.u32;
        if (number == kListener || (event.events & EPOLLHUP) != 0) continue;
        // The place may be another connection's since AcceptAll; receiving from it does no harm.
        if (!connections_.holds(number)) continue;
        // The edge that it waited for is reported once, and the round may end before its turn.
        if (connections_.held_back(number) && ReplyWasTaken(connections_.fd(number))) {
            HoldBack(number, false);
        }
        if (connections_.holds(number)) connections_.MarkReady(number);
    }
    ServeReady();
}

void Server::AcceptAll() {
    for (int i = 0; i < kAcceptsPerRound; ++i) {
        base::UniqueFd fd(accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (fd) {
            Admit(std::move(fd));
            continue;
        }
        if (errno == EAGAIN || errno == ECONNABORTED || errno == EINTR) return;
        // Out of descriptors or the like: the peer still waits, so another try now would be a spin.
        if (Watch(EPOLL_CTL_MOD, listener_, kListener, 0)) {
            accept_again_at_ms_ = NowMs() + kAcceptRetryMs;
        }
        return;
    }
}

void Server::Admit(base::UniqueFd fd) {
    // As it was when the peer connected. Its process id may be another process's by now.
    ucred peer;
    socklen_t size = sizeof peer;
    if (getsockopt(fd.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return;
    const std::optional<uint32_t> number = connections_.Admit(std::move(fd), peer.uid, NowMs());
    if (!number) return;
    leave_at_ms_ = kNever;
    if (!Watch(EPOLL_CTL_ADD, connections_.fd(*number), *number, EPOLLIN)) Close(*number);
}

void Server::ServeReady() {
    const int64_t end_ms = NowMs() + kRoundMs;
    while (const std::optional<uint32_t> number = connections_.TakeTurn()) {
        Serve(*number);
        if (NowMs() >= end_ms) return;
    }
}

void Server::Serve(uint32_t number) {
    const int fd = connections_.fd(number);
    if (!ReplyWasTaken(fd)) {
        if (!connections_.held_back(number)) HoldBack(number, true);
        return;
    }
    const ReceiveResult result = Receive(fd, kRequestMagic, &message_);
    if (result == ReceiveResult::kNothing) return;
    if (result != ReceiveResult::kMessage) return Close(number);
    connections_.NoteRequest(number, NowMs());
    request_.Assign(message_.data());
    const binder_status_t status =
        RunTransaction(binder_, uint32_t(message_.header.word), &request_, &reply_);
    if (status != STATUS_OK) reply_.Clear();
    if (Send(fd, kReplyMagic, status, reply_.data, &message_) != 0) Close(number);
}

// Waits for the peer to take a reply instead of for its next request, or the other way round.
// Writable it is all along: only the edge, a message received by the peer, is an event.
void Server::HoldBack(uint32_t number, bool held_back) {
    connections_.set_held_back(number, held_back);
    const uint32_t events = held_back ? uint32_t{EPOLLOUT} | EPOLLET : uint32_t{EPOLLIN};
    if (!Watch(EPOLL_CTL_MOD, connections_.fd(number), number, events)) Close(number);
}

// The peer closed the connection, or shut it down and keeps the last reply.
void Server::HangUp(uint32_t number) {
    if (ReplyWasTaken(connections_.fd(number))) {
        Close(number);
    } else if (!connections_.held_back(number)) {
        HoldBack(number, true);
    }
}

void Server::Close(uint32_t number) {
    connections_.Close(number);
    if (connections_.count() == 0 && may_leave_) leave_at_ms_ = NowMs() + kIdleMs;
}

void Server::CheckTime() {
    if (accept_again_at_ms_ == kNever && leave_at_ms_ == kNever) return;
    const int64_t now_ms = NowMs();
    if (now_ms >= accept_again_at_ms_) {
        const bool watched = Watch(EPOLL_CTL_MOD, listener_, kListener, EPOLLIN);
        accept_again_at_ms_ = watched ? kNever : now_ms + kAcceptRetryMs;
    }
    if (now_ms >= leave_at_ms_) {
        // A client that has just connected is served rather than made to wait for the next process.
        AcceptAll();
        if (connections_.count() == 0) std::exit(0);
    }
}

int Server::WaitMs() const {
    const int64_t next_ms = std::min(accept_again_at_ms_, leave_at_ms_);
    return next_ms == kNever ? -1 : int(std::max(next_ms - NowMs(), int64_t{0}));
}

}  // namespace
}  // namespace binder

bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t) {
    return true;
}

void ABinderProcess_joinThreadPool() {
    using namespace binder;
    const Registration& registration = TheRegistration();
    if (registration.binder == nullptr) return;
    std::make_unique<Server>(registration)->Run();
}
