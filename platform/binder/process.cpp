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
#include <utility>

#include "binder.h"
#include "message.h"
#include "registration.h"

namespace binder {
namespace {

constexpr uint32_t kMaxConnections = 256;
constexpr int64_t kMaxConnectionsOfAUser = 64;
constexpr uint32_t kListener = kMaxConnections;  // its number among the connections' events
constexpr int kEventsPerRound = 32;
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

// Serves one binder to all who connect. Every connection is answered one message a round and
// nothing is kept for later: who sends rubbish, or does not take his reply, is disconnected.
// Nothing is logged, since whatever a peer can cause it can cause a million times.
//
// With every place taken the listener is left alone, so that newcomers wait in its queue. If one
// waits after 10 seconds, those who asked nothing in the meantime lose their place. So do those of
// a user who has his share of the places and comes again; if none was silent, the newcomer is
// disconnected, so that other users find a place.
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
    struct Connection {
        UniqueFd fd;
        uid_t user = 0;
        int64_t asked_at_ms = 0;  // or came
    };

    bool Watch(int operation, int fd, uint32_t number, uint32_t events);
    void Accept();
    void Admit(UniqueFd fd);
    void Serve(uint32_t number);
    void Close(uint32_t number);
    void Pause(int64_t until_ms);
    void Resume();
    void CheckTime();
    void GiveWay();
    template <typename Choice>
    bool CloseSilent(int64_t since_ms, Choice&& chosen);
    int WaitMs() const;

    AIBinder* const binder_;
    const int listener_;
    const bool may_leave_;
    UniqueFd epoll_;
    std::array<Connection, kMaxConnections> connections_;
    uint32_t count_ = 0;
    // Points in time, or kNever. paused_until_ms_ is set while the listener is left alone.
    int64_t paused_until_ms_ = kNever;
    int64_t leave_at_ms_ = kNever;
    AParcel request_;
    AParcel reply_;
    Message message_;
};

void Server::Run() {
    if (!epoll_ || !Watch(EPOLL_CTL_ADD, listener_, kListener, EPOLLIN)) return;
    if (may_leave_) leave_at_ms_ = NowMs() + kIdleMs;
    std::array<epoll_event, kEventsPerRound> events;
    for (int failures = 0; failures < kMaxWaitFailures;) {
        const int ready = epoll_wait(epoll_.get(), events.data(), kEventsPerRound, WaitMs());
        if (ready < 0 && errno != EINTR) {
            ++failures;
            (void)poll(nullptr, 0, kWaitRetryMs);
            continue;
        }
        failures = 0;
        for (int i = 0; i < ready; ++i) {
            const uint32_t number = events[size_t(i)].data.u32;
            number == kListener ? Accept() : Serve(number);
        }
        CheckTime();
    }
}

bool Server::Watch(int operation, int fd, uint32_t number, uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.u32 = number;
    return epoll_ctl(epoll_.get(), operation, fd, &event) == 0;
}

void Server::Accept() {
    // Reported before the listener was left alone, or the kernel refused to leave it alone.
    if (count_ == kMaxConnections) return Pause(paused_until_ms_);
    UniqueFd fd(accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (fd) return Admit(std::move(fd));
    // Out of descriptors or the like: the newcomer still waits, so trying on would be a spin.
    const bool nobody = errno == EAGAIN || errno == ECONNABORTED || errno == EINTR;
    if (!nobody) Pause(NowMs() + kAcceptRetryMs);
}

void Server::Admit(UniqueFd fd) {
    // As it was when the peer connected. Its process id would tell nothing: it may be another's by
    // now.
    ucred peer;
    socklen_t size = sizeof peer;
    if (getsockopt(fd.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return;
    const auto is_his = [&](const Connection& c) { return c.fd && c.user == peer.uid; };
    const bool full = std::ranges::count_if(connections_, is_his) >= kMaxConnectionsOfAUser;
    if (full && !CloseSilent(NowMs() - kIdleMs, is_his)) return;
    const auto place =
        std::ranges::find_if(connections_, [](const Connection& c) { return !c.fd; });
    const auto number = uint32_t(place - connections_.begin());
    if (!Watch(EPOLL_CTL_ADD, fd.get(), number, EPOLLIN)) return;
    *place = {std::move(fd), peer.uid, NowMs()};
    leave_at_ms_ = kNever;
    if (++count_ == kMaxConnections) Pause(NowMs() + kIdleMs);
}

void Server::Serve(uint32_t number) {
    Connection& connection = connections_[number];
    const ReceiveResult result = Receive(connection.fd.get(), kRequestMagic, &message_);
    if (result == ReceiveResult::kNothing) return;
    if (result != ReceiveResult::kMessage) return Close(number);
    connection.asked_at_ms = NowMs();
    request_.Assign(message_.data());
    const binder_status_t status =
        RunTransaction(binder_, uint32_t(message_.header.word), &request_, &reply_);
    if (status != STATUS_OK) reply_.Clear();
    if (Send(connection.fd.get(), kReplyMagic, status, reply_.data) != 0) Close(number);
}

void Server::Close(uint32_t number) {
    connections_[number] = {};
    if (--count_ == 0 && may_leave_) leave_at_ms_ = NowMs() + kIdleMs;
    Resume();
}

void Server::Pause(int64_t until_ms) {
    paused_until_ms_ = until_ms;
    (void)Watch(EPOLL_CTL_MOD, listener_, kListener, 0);
}

void Server::Resume() {
    if (paused_until_ms_ == kNever) return;
    const bool watched = Watch(EPOLL_CTL_MOD, listener_, kListener, EPOLLIN);
    paused_until_ms_ = watched ? kNever : NowMs() + kAcceptRetryMs;
}

void Server::CheckTime() {
    if (paused_until_ms_ == kNever && leave_at_ms_ == kNever) return;
    const int64_t now_ms = NowMs();
    if (now_ms >= paused_until_ms_) count_ == kMaxConnections ? GiveWay() : Resume();
    if (now_ms >= leave_at_ms_) {
        // A client that has just come is served rather than made to wait for the next process.
        Accept();
        if (count_ == 0) std::exit(0);
    }
}

// All places are taken, and were 10 seconds ago.
void Server::GiveWay() {
    pollfd waiting{listener_, POLLIN, 0};
    const bool wanted = poll(&waiting, 1, 0) > 0;
    const int64_t taken_ms = paused_until_ms_ - kIdleMs;
    Pause(NowMs() + kIdleMs);
    if (wanted) (void)CloseSilent(taken_ms, [](const Connection&) { return true; });
}

// Closes those of the chosen that asked nothing since a point in time. Whoever has a request
// waiting was not silent: this thread was busy. False: there was none.
template <typename Choice>
bool Server::CloseSilent(int64_t since_ms, Choice&& chosen) {
    std::array<pollfd, kMaxConnections> silent;
    for (uint32_t number = 0; number < kMaxConnections; ++number) {
        const Connection& connection = connections_[number];
        const bool is_silent = chosen(connection) && connection.asked_at_ms < since_ms;
        silent[number] = {is_silent ? connection.fd.get() : -1, POLLIN, 0};
    }
    if (poll(silent.data(), silent.size(), 0) < 0) return false;
    bool closed = false;
    for (uint32_t number = 0; number < kMaxConnections; ++number) {
        if (silent[number].fd < 0 || silent[number].revents != 0) continue;
        Close(number);
        closed = true;
    }
    return closed;
}

int Server::WaitMs() const {
    const int64_t next_ms = std::min(paused_until_ms_, leave_at_ms_);
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
