#include <base/unique_fd.h>
#include <binder/process.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
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
#include "parcel.h"
#include "registry.h"

namespace binder {
namespace {

// Numbers in epoll events; lower ones are connections.
constexpr uint32_t kListener = Connections::kPlaces;
constexpr uint32_t kTermination = kListener + 1;
constexpr int kMaxEvents = Connections::kPlaces + 2;
constexpr int kAcceptsPerRound = 256;
constexpr int64_t kRoundMs = 4;
constexpr int64_t kIdleMs = 10'000;
constexpr int64_t kTerminationMs = 1'000;
constexpr int64_t kAcceptRetryMs = 1'000;
constexpr int kWaitRetryMs = 100;
constexpr int kMaxWaitFailures = 20;
constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

// Monotonic time with a resolution of some milliseconds. Reading this clock never enters the
// kernel.
int64_t NowMs() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

// A descriptor that is readable while the process has a pending SIGTERM. Empty: the kernel refused,
// and SIGTERM ends the process at once.
base::UniqueFd OpenTerminationSignal() {
    sigset_t signals;
    (void)sigemptyset(&signals);
    (void)sigaddset(&signals, SIGTERM);
    base::UniqueFd fd(signalfd(-1, &signals, SFD_CLOEXEC));
    if (fd && sigprocmask(SIG_BLOCK, &signals, nullptr) != 0) fd.Reset();
    return fd;
}

bool IsHangUp(const epoll_event& event) {
    return (event.events & EPOLLHUP) != 0;
}

// Serves one binder to all clients in rounds: it waits for events, accepts all new connections and
// serves one request of each ready connection; users take turns. A round of slow calls ends early,
// so that requests that came in the meantime get their turn.
//
// With a listener from systemd, SIGTERM does not interrupt clients: the server accepts no more, and
// exits when its clients have disconnected, at the latest a second later. If a call takes longer,
// the server exits after it. Later clients wait for the next process.
//
// A peer that sends a malformed message is disconnected. A request is received only after the peer
// took the last reply, so a peer that does not read costs one reply. Never logs: a client could
// flood the log.
class Server {
  public:
    // message_ is not initialised: Serve reads only what it received.
    // cppcheck-suppress uninitMemberVar
    explicit Server(const Registration& registration)
        : binder_(registration.binder),
          listener_(registration.listener.get()),
          exits_when_idle_(registration.handed_over),
          epoll_(epoll_create1(EPOLL_CLOEXEC)) {}

    // Returns if the events cannot be set up, or after kMaxWaitFailures failed waits in a row.
    void Run();

  private:
    [[nodiscard]] bool Watch(int operation, int fd, uint32_t number, uint32_t events);
    void RunRound(std::span<const epoll_event> events);
    void AcceptAll();
    void PauseAccepting();
    void Terminate();
    void Admit(base::UniqueFd fd);
    void MarkReady(uint32_t number);
    void ServeReady();
    void Serve(uint32_t number);
    void SetHeldBack(uint32_t number, bool held_back);
    void HangUp(uint32_t number);
    void Close(uint32_t number);
    void CheckTime();
    int WaitMs() const;

    AIBinder* const binder_;
    const int listener_;
    const bool exits_when_idle_;
    base::UniqueFd epoll_;
    base::UniqueFd termination_;
    Connections connections_;
    int64_t accept_again_at_ms_ = kNever;  // kNever: the listener is watched
    int64_t exit_at_ms_ = kNever;          // kNever: there are connections, or idle exit is off
    bool terminating_ = false;
    AParcel request_;
    AParcel reply_;
    Message message_;
};

void Server::Run() {
    if (!epoll_ || !Watch(EPOLL_CTL_ADD, listener_, kListener, EPOLLIN)) return;
    if (exits_when_idle_) {
        exit_at_ms_ = NowMs() + kIdleMs;
        termination_ = OpenTerminationSignal();
        if (termination_ && !Watch(EPOLL_CTL_ADD, termination_.get(), kTermination, EPOLLIN))
            return;
    }
    std::array<epoll_event, kMaxEvents> events;
    for (int failures = 0; failures < kMaxWaitFailures;) {
        const int ready = epoll_wait(epoll_.get(), events.data(), kMaxEvents, WaitMs());
        if (ready < 0 && errno != EINTR) {
            ++failures;
            (void)poll(nullptr, 0, kWaitRetryMs);  // A failed or interrupted pause is only shorter.
            continue;
        }
        failures = 0;
        RunRound({events.data(), static_cast<size_t>(std::max(ready, 0))});
        CheckTime();
    }
}

// False: the kernel refused the change.
bool Server::Watch(int operation, int fd, uint32_t number, uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.u32 = number;
    return epoll_ctl(epoll_.get(), operation, fd, &event) == 0;
}

// Closes the connections that hung up before it accepts new ones, so that their places are free.
void Server::RunRound(std::span<const epoll_event> events) {
    bool accept = false;
    for (const epoll_event& event : events) {
        if (event.data.u32 == kListener) {
            accept = true;
        } else if (event.data.u32 == kTermination) {
            Terminate();
        } else if (IsHangUp(event)) {
            HangUp(event.data.u32);
        }
    }
    if (accept && !terminating_) AcceptAll();
    connections_.StartRound();
    for (const epoll_event& event : events) {
        if (event.data.u32 < kListener && !IsHangUp(event)) MarkReady(event.data.u32);
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
        if (errno != EAGAIN && errno != ECONNABORTED && errno != EINTR) PauseAccepting();
        return;
    }
}

// Stops watching the listener, for example when descriptors run out: the peer still waits, so the
// listener would be reported again at once.
void Server::PauseAccepting() {
    if (Watch(EPOLL_CTL_MOD, listener_, kListener, 0)) {
        accept_again_at_ms_ = NowMs() + kAcceptRetryMs;
    }
}

void Server::Terminate() {
    terminating_ = true;
    (void)Watch(EPOLL_CTL_DEL, termination_.get(), kTermination, 0);
    (void)Watch(EPOLL_CTL_DEL, listener_, kListener, 0);
    accept_again_at_ms_ = kNever;
    exit_at_ms_ = NowMs() + (connections_.Count() == 0 ? 0 : kTerminationMs);
}

void Server::Admit(base::UniqueFd fd) {
    // peer.uid is the uid at the time of connecting. peer.pid is not used: it may belong to another
    // process by now.
    ucred peer;
    socklen_t size = sizeof(peer);
    if (getsockopt(fd.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return;
    const std::optional<uint32_t> number = connections_.Admit(std::move(fd), peer.uid, NowMs());
    if (!number) return;
    exit_at_ms_ = kNever;
    if (!Watch(EPOLL_CTL_ADD, connections_.Fd(*number), *number, EPOLLIN)) Close(*number);
}

// AcceptAll may have closed the connection or given its number to a new one. A new connection does
// no harm here: if it has no request yet, Serve receives nothing and returns.
void Server::MarkReady(uint32_t number) {
    if (!connections_.Holds(number)) return;
    // The kernel reports only once that the peer took the reply, and the round may end before this
    // connection's turn. So the connection is released here, not in its turn.
    if (connections_.HeldBack(number) && ReplyWasTaken(connections_.Fd(number))) {
        SetHeldBack(number, false);
    }
    if (connections_.Holds(number)) connections_.MarkReady(number);
}

void Server::ServeReady() {
    const int64_t end_ms = NowMs() + kRoundMs;
    while (const std::optional<uint32_t> number = connections_.TakeTurn()) {
        Serve(*number);
        if (NowMs() >= end_ms) return;
    }
}

void Server::Serve(uint32_t number) {
    const int fd = connections_.Fd(number);
    if (!ReplyWasTaken(fd)) {
        if (!connections_.HeldBack(number)) SetHeldBack(number, true);
        return;
    }
    const ReceiveResult result = Receive(fd, kRequestMagic, &message_);
    if (result == ReceiveResult::kNothing) return;
    if (result != ReceiveResult::kMessage) {
        Close(number);
        return;
    }
    connections_.NoteRequest(number, NowMs());
    request_.Assign(message_.data());
    const auto code = static_cast<transaction_code_t>(message_.header.word);
    const binder_status_t status = RunTransaction(binder_, code, &request_, &reply_);
    if (Send(fd, kReplyMagic, status, reply_.data, &message_) != 0) Close(number);
}

// Watches either for the peer to take the reply or for its next request. A socket is nearly always
// writable, so EPOLLOUT is edge-triggered: the kernel reports it when the peer receives a message.
void Server::SetHeldBack(uint32_t number, bool held_back) {
    connections_.SetHeldBack(number, held_back);
    const uint32_t events = held_back ? uint32_t{EPOLLOUT} | EPOLLET : uint32_t{EPOLLIN};
    if (!Watch(EPOLL_CTL_MOD, connections_.Fd(number), number, events)) Close(number);
}

// Handles EPOLLHUP: the peer closed its socket or shut it down. After a shutdown the peer may still
// have to take the last reply; the connection then stays open until the peer takes it.
void Server::HangUp(uint32_t number) {
    if (ReplyWasTaken(connections_.Fd(number))) {
        Close(number);
    } else if (!connections_.HeldBack(number)) {
        SetHeldBack(number, true);
    }
}

void Server::Close(uint32_t number) {
    connections_.Close(number);
    if (connections_.Count() == 0 && exits_when_idle_) {
        exit_at_ms_ = NowMs() + (terminating_ ? 0 : kIdleMs);
    }
}

void Server::CheckTime() {
    if (accept_again_at_ms_ == kNever && exit_at_ms_ == kNever) return;
    const int64_t now_ms = NowMs();
    if (now_ms >= accept_again_at_ms_) {
        const bool watched = Watch(EPOLL_CTL_MOD, listener_, kListener, EPOLLIN);
        accept_again_at_ms_ = watched ? kNever : now_ms + kAcceptRetryMs;
    }
    if (now_ms >= exit_at_ms_) {
        // A client that connected just now would otherwise wait for the next process to start.
        if (!terminating_) AcceptAll();
        if (terminating_ || connections_.Count() == 0) std::exit(0);
    }
}

// Milliseconds until the next point in time, for epoll_wait; -1: none.
int Server::WaitMs() const {
    const int64_t next_ms = std::min(accept_again_at_ms_, exit_at_ms_);
    return next_ms == kNever ? -1 : static_cast<int>(std::max(next_ms - NowMs(), int64_t{0}));
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
